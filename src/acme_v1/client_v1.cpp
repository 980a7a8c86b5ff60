#include "acme_v1/client_v1.h"

#include <utility>

#include "acme/reply.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";

}  // namespace

AcmeV1Client::AcmeV1Client(std::string directory_url, const Settings& settings)
    : http_(HttpOptionsOf(settings)),
      directory_url_(std::move(directory_url)),
      settings_(settings),
      nonces_(kTag) {}

void AcmeV1Client::FetchDirectory() {
  DebugStep("setup acme url %s", directory_url_.c_str());
  ShowStage("", "asking for the directory");
  // The status plays no part: what does not hold the four resources is no directory.
  directory_ = DirectoryBody(kTag, Fetch(directory_url_),
                             {"new-authz", "new-cert", "new-reg", "revoke-cert"});
}

std::string AcmeV1Client::Resource(const char* name) const { return TextMember(directory_, name); }

HttpResponse AcmeV1Client::Fetch(const std::string& url) {
  HttpResponse response = http_.Get(url);
  nonces_.Keep(response);
  return response;
}

const RsaKey& AcmeV1Client::Key() const {
  if (!key_) throw Error(code::kAccountKey, kTag, "RSA Key not found.");
  return *key_;
}

HttpResponse AcmeV1Client::PostJws(const std::string& url, const Json::Value& payload) {
  Json::Value protected_header(Json::objectValue);
  protected_header["nonce"] = TakeNonce();
  const RsaKey& key = Key();
  DebugStep("Post JWS Request: %s", url.c_str());
  DebugDetail("Post JWS value: %s", JsonStyledText(payload).c_str());

  const std::string encoded_header = Base64UrlEncode(JsonFastText(protected_header));
  const std::string encoded_payload = Base64UrlEncode(JsonFastText(payload));
  Json::Value body(Json::objectValue);
  body["header"]["alg"] = "RS256";
  body["header"]["jwk"] = key.PublicJwk();
  body["protected"] = encoded_header;
  body["payload"] = encoded_payload;
  body["signature"] = key.Sign(encoded_header + "." + encoded_payload);
  HttpResponse response = http_.Post(url, body);
  nonces_.Keep(response);
  return response;
}

std::string UnpaddedBase64Url(const std::string& pem, const std::string& begin,
                              const std::string& end) {
  std::string text = PemToBase64Url(pem, begin, end);
  StripBase64Padding(text);
  return text;
}

}  // namespace kova
