// The conversation with one CA: its directory, the nonces it gave, and the account that signs. The
// only one that posts.
#pragma once

#include <json/value.h>

#include <chrono>
#include <string>

#include "acme/nonce_pool.h"
#include "acme_v2/account.h"
#include "base/settings.h"
#include "net/client_network.h"

namespace kova {

class Session {
 public:
  Session(std::string directory_url, const Settings& settings);

  // Throws SLError 200 "Failed to init directory map" or "Directory Member missing.".
  void SetupDirectory();

  // One GET of newNonce; a reply without a nonce is no failure here.
  void NewNonce();

  // The newest nonce; throws SLError 204 when there is none.
  std::string TakeNonce() { return nonces_.Take(); }

  // Whose key signs from now on.
  void Use(Account account);

  // Takes a nonce. "jwk" as long as the account has no URL, "kid" from then on. Throws SLError 201
  // when there is no account yet.
  Json::Value BuildProtectedHeader(const std::string& url);

  // Signed POST; a bad nonce is tried again, four attempts in all, any other reply is returned.
  HttpResponse PostJws(const std::string& url, const Json::Value& payload);
  HttpResponse PostAsGet(const std::string& url);

  // The DER between the PEM markers as base64url; with `strictencoding` without the padding. Throws
  // std::out_of_range when there is no such block.
  [[nodiscard]] std::string DerText(const std::string& pem, const char* begin,
                                    const char* end) const;

  // What the CA's last reply asks to wait before another attempt (1 to 10 s; 2 s when it is
  // silent).
  [[nodiscard]] std::chrono::seconds RetryDelay() const;

  // The directory's URL of that resource.
  [[nodiscard]] std::string Resource(const char* name) const;

  [[nodiscard]] const Json::Value& Directory() const { return directory_; }
  [[nodiscard]] const std::string& DirectoryUrl() const { return directory_url_; }
  [[nodiscard]] const std::string& AccountFolder() const { return account_.folder; }
  [[nodiscard]] const RsaKey& Key() const;  // throws SLError 201 when there is no account yet
  [[nodiscard]] HttpClient& Http() { return http_; }  // for other servers, while this one lives
  [[nodiscard]] const Settings& CurrentSettings() const { return settings_; }

 private:
  // The text that is signed. It ends in a line feed unless `strictencoding` is on.
  [[nodiscard]] std::string SignedText(const Json::Value& value) const;
  HttpResponse SignedPost(const std::string& url, const std::string& encoded_payload,
                          const Json::Value* payload);
  HttpResponse SendSigned(const std::string& url, const std::string& encoded_payload,
                          const Json::Value* payload);

  HttpClient http_;
  std::string directory_url_;
  Settings settings_;
  Json::Value directory_;
  NoncePool nonces_;
  Account account_;
  HttpResponse last_reply_;  // of a signed request, without its body
};

}  // namespace kova
