#include "acme_v2/session.h"

#include <utility>

#include "acme/reply.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "crypto/pem.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kPostAttempts = 4;
constexpr std::chrono::seconds kDefaultRetryDelay{2};

}  // namespace

Session::Session(std::string directory_url, const Settings& settings)
    : http_(HttpOptionsOf(settings)),
      directory_url_(std::move(directory_url)),
      settings_(settings),
      nonces_(kTag) {}

void Session::SetupDirectory() {
  DebugStep("setup acme url %s", directory_url_.c_str());
  const HttpResponse response = http_.Get(directory_url_);
  if (response.status != 200) {
    throw Error(code::kProtocol, kTag, "Failed to init directory map");
  }
  nonces_.Keep(response);
  directory_ = DirectoryBody(kTag, response, {"newOrder", "newAccount", "newNonce", "revokeCert"});
}

std::string Session::Resource(const char* name) const { return TextMember(directory_, name); }

void Session::NewNonce() { nonces_.Keep(http_.Get(Resource("newNonce"))); }

void Session::Use(Account account) { account_ = std::move(account); }

const RsaKey& Session::Key() const {
  if (!account_.key) throw Error(code::kAccountKey, kTag, "RSA Key not found.");
  return *account_.key;
}

Json::Value Session::BuildProtectedHeader(const std::string& url) {
  const RsaKey& key = Key();
  // With the settings' leave an empty pool is refilled once before giving up.
  if (nonces_.IsEmpty() && settings_.nonce_refill) NewNonce();
  Json::Value header(Json::objectValue);
  header["alg"] = "RS256";
  header["url"] = url;
  header["nonce"] = TakeNonce();
  if (account_.url.empty()) {
    header["jwk"] = key.PublicJwk();
  } else {
    header["kid"] = account_.url;
  }
  return header;
}

HttpResponse Session::PostJws(const std::string& url, const Json::Value& payload) {
  return SignedPost(url, Base64UrlEncode(SignedText(payload)), &payload);
}

HttpResponse Session::PostAsGet(const std::string& url) { return SignedPost(url, "", nullptr); }

std::string Session::SignedText(const Json::Value& value) const {
  return settings_.strict_encoding ? JsonToString(value) : JsonFastText(value);
}

std::string Session::DerText(const std::string& pem, const char* begin, const char* end) const {
  std::string text = PemToBase64Url(pem, begin, end);
  if (settings_.strict_encoding) StripBase64Padding(text);
  return text;
}

HttpResponse Session::SignedPost(const std::string& url, const std::string& encoded_payload,
                                 const Json::Value* payload) {
  HttpResponse response;
  for (int attempt = 0; attempt < kPostAttempts; ++attempt) {
    response = SendSigned(url, encoded_payload, payload);
    if (response.status != 400 || !IsProblem(GetJsonBody(response), kBadNonceProblem)) break;
  }
  return response;
}

HttpResponse Session::SendSigned(const std::string& url, const std::string& encoded_payload,
                                 const Json::Value* payload) {
  // When no reply comes, or no nonce to ask with, an older one says nothing about this request.
  last_reply_ = HttpResponse();
  const Json::Value header = BuildProtectedHeader(url);
  const std::string encoded_header = Base64UrlEncode(SignedText(header));
  Json::Value body(Json::objectValue);
  body["protected"] = encoded_header;
  body["payload"] = encoded_payload;
  body["signature"] = Key().Sign(encoded_header + "." + encoded_payload);
  DebugStep("Post JWS Request: %s", url.c_str());
  if (payload != nullptr) {
    DebugDetail("Post JWS header: %s", JsonStyledText(header).c_str());
    DebugDetail("Post JWS value: %s", JsonStyledText(*payload).c_str());
  }
  HttpResponse response = http_.Post(url, body);
  nonces_.Keep(response);
  last_reply_ = response;
  last_reply_.body.clear();
  return response;
}

std::chrono::seconds Session::RetryDelay() const {
  return RetryAfter(last_reply_).value_or(kDefaultRetryDelay);
}

}  // namespace kova
