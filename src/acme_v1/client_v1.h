// The client of the early, resource-typed protocol. One object serves one command against one
// directory:
//
//   AcmeV1Client client(directory_url, settings);
//   client.FetchDirectory();
//   client.UseOrRegister(contact);         // or LoadAccountKey(folder)
//   client.AuthorizeAll(domains);
//   folder = client.NewCert(domains, certificate_id);
//
// Every failure is an SLError (file "client_v1" unless it comes from a layer below) unless a
// comment says otherwise. Replies are never trusted: a member of another type than the protocol's
// is SLError 200. Unlike its successor this client never repeats a request, not even for a nonce
// that was refused.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>
#include <vector>

#include "acme/nonce_pool.h"
#include "base/settings.h"
#include "challenge/challenge.h"
#include "crypto/certificate_key.h"
#include "crypto/rsa.h"
#include "net/client_network.h"

namespace kova {

class AcmeV1Client {
 public:
  AcmeV1Client(std::string directory_url, const Settings& settings);

  // --- Directory, nonces and signed requests (client_v1.cpp) ---

  // Throws 200 "Directory Member missing.".
  void FetchDirectory();
  // The newest nonce of the pool; throws 204 when it is empty. There is no request for a fresh one:
  // each reply brings the nonce of the next request.
  std::string TakeNonce() { return nonces_.Take(); }
  // Signed POST. The status is the caller's to judge. Throws 201 when no account key is loaded.
  HttpResponse PostJws(const std::string& url, const Json::Value& payload);

  // --- Account (account.cpp) ---

  // Finds the stored account of this directory and contact, or registers one.
  void UseOrRegister(const std::string& contact);
  // The stored folder that fits and holds a readable key, or an empty string. Throws the text
  // "glob error" (no SLError).
  static std::string FindAccount(const std::string& directory, const std::string& contact);
  // Throws 201 when the folder's key cannot be read.
  void LoadAccountKey(const std::string& folder);
  // A new key, its registration, the terms of service agreed to, a new folder in the store.
  void Register(const std::string& contact);

  // --- Authorizations (authorization.cpp, stage.cpp) ---

  Json::Value NewAuthz(const std::string& domain);
  // The first complete challenge entry of that type.
  static const Json::Value& PickChallenge(const Json::Value& authz, const std::string& type);
  // Answers the challenge and polls until the authorization is valid: 30 polls, 2 s after each
  // "pending".
  void DoChallenge(const Json::Value& authz, LeChallenge& challenge);
  // Proves the name by dns-01, if it can be; never throws for it.
  bool DnsChallenge(const std::string& domain);
  // http-01 first, then dns-01 unless `no_dns_fallback` or the settings skip it. Throws what
  // stopped http-01.
  void AuthorizeDomain(const std::string& domain, bool no_dns_fallback);
  // Every name in turn. One whose web server could not be reached gets a second chance behind the
  // router's port forwarding: the first such name of a client's life, and no other.
  void AuthorizeAll(const std::vector<std::string>& domains);

  // --- Issuance and revocation (issue.cpp, revoke.cpp) ---

  // Key, request, certificate, its issuer, storage. The folder that holds the certificate now.
  std::string NewCert(const std::vector<std::string>& domains, const std::string& certificate_id,
                      KeyType key_type = KeyType::kRsa2048);
  // Revokes the certificate of an archive folder, which stays as it is, renewal record included.
  // Throws std::out_of_range when the folder's cert.pem holds no PEM block.
  void Revoke(const std::string& certificate_folder);

 private:
  // The directory's URL of that resource.
  [[nodiscard]] std::string Resource(const char* name) const;
  [[nodiscard]] const RsaKey& Key() const;     // throws 201 when none is loaded
  HttpResponse Fetch(const std::string& url);  // plain GET that keeps the reply's nonce

  void Agree(const std::string& registration_url, const Json::Value& contacts,
             const std::string& terms_url);
  void StoreAccount(const std::string& contact);

  void AwaitValid(const std::string& url, LeChallenge& challenge);
  [[noreturn]] void ThrowValidationProblem(const Json::Value& authz, LeChallenge& challenge);
  void HttpChallenge(const std::string& domain);
  bool FirstPass(const std::string& domain);
  void SecondPass(const std::vector<std::string>& domains);

  HttpResponse RequestCertificate(const std::string& request_pem);
  std::string FetchIssuer(const HttpResponse& issued);

  HttpClient http_;
  std::unique_ptr<RsaKey> key_;
  std::string directory_url_;
  Settings settings_;
  std::string account_folder_;
  Json::Value directory_;
  bool retry_with_port_map_ = true;  // the one retry behind port forwarding is still to be had
  NoncePool nonces_;
};

// The DER between the PEM markers as base64url. No padding: this protocol's servers need not accept
// it. Throws std::out_of_range when there is no such block.
std::string UnpaddedBase64Url(const std::string& pem, const std::string& begin,
                              const std::string& end);

}  // namespace kova
