#include "acme_v2/client_v2.h"

#include <array>
#include <utility>

#include "acme/reply.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "net/headers.h"
#include "net/retry_after.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kPostAttempts = 4;
constexpr std::chrono::seconds kDefaultRetryDelay{2};
constexpr std::array kDirectoryMembers = {"newOrder", "newAccount", "newNonce", "revokeCert"};

std::vector<std::string> InitialChallengeTypes(const Settings& settings) {
  if (!settings.usable) {
    DebugStep("Failed to read from %s [%d]", kSettingsPath, settings.read_error);
  }
  if (!settings.skip_dns01) return {"dns-01", "http-01"};
  DebugStep("Skip dns challenge is enabled");
  return {"http-01"};
}

}  // namespace

AcmeV2Client::AcmeV2Client(std::string directory_url, const Settings& settings)
    : directory_url_(std::move(directory_url)),
      challenge_types_(InitialChallengeTypes(settings)),
      async_finalize_(settings.async_finalize),
      nonce_refill_(settings.nonce_refill),
      unpadded_retry_(settings.unpadded_retry) {}

void AcmeV2Client::SetupDirectory() {
  DebugStep("setup acme url %s", directory_url_.c_str());
  const HttpResponse response = HttpGet(directory_url_);
  if (response.status != 200) {
    throw Error(code::kProtocol, kTag, "Failed to init directory map");
  }
  KeepNonce(response);
  Json::Value directory = GetJsonBody(response);
  // All four are asked for, whatever this run needs of them.
  for (const char* name : kDirectoryMembers) {
    if (!Member(directory, name).isString()) {
      throw Error(code::kProtocol, kTag, "Directory Member missing.");
    }
  }
  directory_ = std::move(directory);
}

std::string AcmeV2Client::Resource(const char* name) const { return TextMember(directory_, name); }

void AcmeV2Client::NewNonce() { KeepNonce(HttpGet(Resource("newNonce"))); }

void AcmeV2Client::KeepNonce(const HttpResponse& response) {
  std::string nonce = GetHeader(response, "Replay-Nonce");
  if (!nonce.empty()) nonces_.push_back(std::move(nonce));
}

std::string AcmeV2Client::TakeNonce() {
  if (nonces_.empty()) throw Error(code::kNoNonce, kTag, "No Nonce.... Not Yet implement");
  std::string nonce = std::move(nonces_.back());
  nonces_.pop_back();
  return nonce;
}

// With the settings' leave an empty pool is refilled once before giving up.
std::string AcmeV2Client::NextNonce() {
  if (nonces_.empty() && nonce_refill_) NewNonce();
  return TakeNonce();
}

Json::Value AcmeV2Client::BuildProtectedHeader(const std::string& url) {
  if (!key_) throw Error(code::kAccountKey, kTag, "RSA Key not found.");
  Json::Value header(Json::objectValue);
  header["alg"] = "RS256";
  header["url"] = url;
  header["nonce"] = NextNonce();
  if (account_url_.empty()) {
    header["jwk"] = key_->PublicJwk();
  } else {
    header["kid"] = account_url_;
  }
  return header;
}

HttpResponse AcmeV2Client::PostJws(const std::string& url, const Json::Value& payload) {
  return SignedPost(url, Base64UrlEncode(JsonFastText(payload)), &payload);
}

HttpResponse AcmeV2Client::PostAsGet(const std::string& url) {
  return SignedPost(url, "", nullptr);
}

HttpResponse AcmeV2Client::SignedPost(const std::string& url, const std::string& encoded_payload,
                                      const Json::Value* payload) {
  HttpResponse response;
  for (int attempt = 0; attempt < kPostAttempts; ++attempt) {
    response = SendSigned(url, encoded_payload, payload);
    if (response.status != 400 || !IsProblem(GetJsonBody(response), kBadNonceProblem)) break;
  }
  return response;
}

HttpResponse AcmeV2Client::PostDer(const std::string& url, const char* member,
                                   const std::string& text) {
  Json::Value payload(Json::objectValue);
  payload[member] = text;
  HttpResponse response = PostJws(url, payload);
  if (!unpadded_retry_ || text.empty() || text.back() != '=' || response.status != 400 ||
      !IsProblem(GetJsonBody(response), kMalformedProblem)) {
    return response;
  }
  std::string unpadded = text;
  StripBase64Padding(unpadded);
  payload[member] = unpadded;
  return PostJws(url, payload);
}

HttpResponse AcmeV2Client::SendSigned(const std::string& url, const std::string& encoded_payload,
                                      const Json::Value* payload) {
  const Json::Value header = BuildProtectedHeader(url);
  const std::string encoded_header = Base64UrlEncode(JsonFastText(header));
  Json::Value body(Json::objectValue);
  body["protected"] = encoded_header;
  body["payload"] = encoded_payload;
  body["signature"] = key_->Sign(encoded_header + "." + encoded_payload);
  DebugStep("Post JWS Request: %s", url.c_str());
  if (payload != nullptr) {
    DebugDetail("Post JWS header: %s", JsonStyledText(header).c_str());
    DebugDetail("Post JWS value: %s", JsonStyledText(*payload).c_str());
  }
  last_reply_ = HttpResponse();  // when none comes, an older one says nothing about this request
  HttpResponse response = HttpPost(url, body);
  KeepNonce(response);
  last_reply_ = response;
  last_reply_.body.clear();
  return response;
}

std::chrono::seconds AcmeV2Client::RetryDelay() const {
  return RetryAfter(last_reply_, kDefaultRetryDelay);
}

}  // namespace kova
