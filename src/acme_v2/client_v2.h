// The ACME v2 (RFC 8555) client. One object serves one command against one directory:
//
//   AcmeV2Client client(directory_url, settings);
//   client.SetupDirectory();
//   client.NewNonce();
//   client.SetupAccount(contact);          // or LoadAccount(folder)
//   client.NewOrder(domains);
//   client.AuthorizeOrder();
//   folder = client.NewCertificate(domains, certificate_id);
//
// Every failure is an SLError (file "client_v2" unless it comes from a layer below). Replies are
// never trusted: a member of another type than the protocol's is SLError 200.
#pragma once

#include <json/value.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "base/settings.h"
#include "challenge/challenge.h"
#include "crypto/rsa.h"
#include "net/client_network.h"

namespace kova {

class AcmeV2Client {
 public:
  // "dns-01" is preferred over "http-01" unless the settings skip it. Says so when the settings
  // file could not be read.
  AcmeV2Client(std::string directory_url, const Settings& settings);

  // --- Directory, nonces and signed requests (client_v2.cpp) ---

  // Throws 200 "Failed to init directory map" or "Directory Member missing.".
  void SetupDirectory();
  // One GET of newNonce; a reply without a nonce is no failure here.
  void NewNonce();
  // The newest nonce of the pool; throws 204 when it is empty.
  std::string TakeNonce();
  // Takes a nonce. "jwk" as long as the account URL is unknown, "kid" from then on. Throws 201 when
  // there is no account key yet.
  Json::Value BuildProtectedHeader(const std::string& url);
  // Signed POST; a bad nonce is tried again, four attempts in all, any other reply is returned.
  HttpResponse PostJws(const std::string& url, const Json::Value& payload);
  HttpResponse PostAsGet(const std::string& url);

  // --- Account (account.cpp) ---

  // Finds the stored account of this directory and contact, or registers one.
  void SetupAccount(const std::string& contact);
  // The stored folder that fits, or an empty string. Throws the text "glob error" (no SLError).
  static std::string FindAccount(const std::string& directory, const std::string& contact);
  // Throws 201 when one of the folder's two files cannot be used.
  void LoadAccount(const std::string& folder);
  // A new key, agreed terms of service, a new folder in the store.
  void RegisterAccount(const std::string& contact);

  // --- Order and authorizations (order.cpp, authorization.cpp) ---

  void NewOrder(const std::vector<std::string>& domains);
  // Every authorization of the order in turn, while the router forwards the ports.
  void AuthorizeOrder();
  // Proves one authorization with the first challenge type that serves it. A type that cannot serve
  // the name, or whose validation failed, is dropped for the rest of the run.
  void DoAuthorization(const std::string& url);
  Json::Value FetchAuthorization(const std::string& url);
  void RespondChallenge(const std::string& url);
  // Polls until valid: 30 polls, 2 s after each "pending".
  void WaitAuthorization(const std::string& url, const std::string& type);
  [[nodiscard]] bool HasChallengeTypes() const { return !challenge_types_.empty(); }
  [[nodiscard]] size_t ChallengeTypeCount() const { return challenge_types_.size(); }

  // --- Issuance and revocation (issue.cpp, finalize.cpp, revoke.cpp) ---

  // Key, request, finalize, download, storage. The folder that holds the certificate now.
  std::string NewCertificate(const std::vector<std::string>& domains,
                             const std::string& certificate_id);
  // Revokes the certificate of an archive folder and removes its renewal record. Throws
  // std::out_of_range when the folder's cert.pem holds no PEM block.
  void RevokeCertificate(const std::string& folder);

  // What the CA's last reply asks to wait before another attempt (1 to 10 s; 2 s when it is
  // silent).
  [[nodiscard]] std::chrono::seconds RetryDelay() const;

 private:
  // The directory's URL of that resource.
  std::string Resource(const char* name) const;
  void KeepNonce(const HttpResponse& response);
  std::string NextNonce();
  HttpResponse SignedPost(const std::string& url, const std::string& encoded_payload,
                          const Json::Value* payload);
  // Posts a DER text (base64url) as that member. A server that refuses it as malformed is sent the
  // text once more without its padding, when the settings say so.
  HttpResponse PostDer(const std::string& url, const char* member, const std::string& text);
  HttpResponse SendSigned(const std::string& url, const std::string& encoded_payload,
                          const Json::Value* payload);

  void StoreAccount(const std::string& contact);

  bool TryChallenge(const std::string& url, const Json::Value& authorization,
                    LeChallenge& challenge);
  void Validate(const std::string& authorization_url, const std::string& challenge_url,
                const std::string& name, const std::string& type);
  void DropChallengeType(const std::string& type);

  Json::Value FinalizeOrder(const std::string& csr);
  Json::Value AwaitOrder(const HttpResponse& reply, bool (*done)(const Json::Value& order));
  std::string DownloadChain(const Json::Value& order);

  std::unique_ptr<RsaKey> key_;
  std::string account_folder_;
  std::string directory_url_;
  std::string account_url_;  // "kid"; empty until the account is known
  std::string order_url_;
  std::string finalize_url_;
  std::vector<std::string> authorization_urls_;
  std::vector<std::string> challenge_types_;  // still allowed, in order of preference
  HttpGlobal http_;
  Json::Value directory_;
  std::deque<std::string> nonces_;  // newest at the back, used first

  bool async_finalize_ = false;  // settings; off means the bare protocol steps
  bool nonce_refill_ = false;
  bool unpadded_retry_ = false;
  HttpResponse last_reply_;  // of a signed request, without its body
};

}  // namespace kova
