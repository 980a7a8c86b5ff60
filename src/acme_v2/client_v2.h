// The ACME v2 (RFC 8555) client, the front of this folder: one object serves one command against
// one directory. What an operation needs of an earlier one it takes as a value:
//
//   AcmeV2Client client(directory_url, settings);
//   client.SetupDirectory();
//   client.NewNonce();
//   client.SetupAccount(contact);          // or LoadAccount(folder)
//   const Order order = client.NewOrder(names);
//   client.AuthorizeOrder(order);
//   folder = client.NewCertificate(order, options);
//
// Every failure is an SLError (file "client_v2" unless it comes from a layer below). Replies are
// never trusted: a member of another type than the protocol's is SLError 200.
#pragma once

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "acme_v2/account.h"
#include "acme_v2/authorization.h"
#include "acme_v2/authorizer.h"
#include "acme_v2/issue.h"
#include "acme_v2/key_change.h"
#include "acme_v2/order.h"
#include "acme_v2/session.h"

namespace kova {

class AcmeV2Client {
 public:
  AcmeV2Client(std::string directory_url, const Settings& settings)
      : session_(std::move(directory_url), settings), authorizer_(settings) {}

  // --- Directory, nonces and signed requests (session.h) ---

  void SetupDirectory() { session_.SetupDirectory(); }
  void NewNonce() { session_.NewNonce(); }
  std::string TakeNonce() { return session_.TakeNonce(); }
  Json::Value BuildProtectedHeader(const std::string& url) {
    return session_.BuildProtectedHeader(url);
  }
  HttpResponse PostJws(const std::string& url, const Json::Value& payload) {
    return session_.PostJws(url, payload);
  }
  HttpResponse PostAsGet(const std::string& url) { return session_.PostAsGet(url); }
  [[nodiscard]] std::chrono::seconds RetryDelay() const { return session_.RetryDelay(); }

  // --- Account (account.h) ---

  static std::string FindAccount(const std::string& directory, const std::string& contact) {
    return Account::Find(directory, contact);
  }
  void SetupAccount(const std::string& contact) { Account::Setup(session_, contact); }
  void LoadAccount(const std::string& folder) { UseStoredAccount(session_, folder); }
  void RegisterAccount(const std::string& contact) { Account::Register(session_, contact); }

  // --- Order and authorizations (order.h, authorizer.h, authorization.h) ---

  void RequireProfile(const std::string& profile) { kova::RequireProfile(session_, profile); }
  // Begins an attempt.
  Order NewOrder(const std::vector<std::string>& names, const std::string& profile = {},
                 const std::string& replaces = {}) {
    authorizer_.BeginAttempt();
    return kova::NewOrder(session_, names, profile, replaces);
  }
  void AuthorizeOrder(const Order& order) { authorizer_.AuthorizeOrder(session_, order); }
  void DoAuthorization(const std::string& url) { authorizer_.DoAuthorization(session_, url); }
  Json::Value FetchAuthorization(const std::string& url) {
    return kova::FetchAuthorization(session_, url);
  }
  void RespondChallenge(const std::string& url) { kova::RespondChallenge(session_, url); }
  void WaitAuthorization(const std::string& url, const std::string& type) {
    kova::WaitAuthorization(session_, url, type);
  }
  [[nodiscard]] const std::vector<std::string>& ChallengeTypes() const {
    return authorizer_.Types();
  }
  [[nodiscard]] bool HasChallengeTypes() const { return !ChallengeTypes().empty(); }
  // Whether the attempt used up a challenge type.
  [[nodiscard]] bool TypeUsedUp() const { return authorizer_.TypeUsedUp(); }

  // --- Issuance and revocation (issue.h) ---

  std::string NewCertificate(const Order& order, const IssueOptions& options, CertificateKey& key) {
    return Issue(session_, order, options, key);
  }
  std::string NewCertificate(const Order& order, const IssueOptions& options) {
    CertificateKey key(options.key_type);
    return NewCertificate(order, options, key);
  }
  void RevokeCertificate(const std::string& folder) { Revoke(session_, folder); }
  // The first half of it: for a caller with a lock to take before the record is removed.
  std::string RevokeAtCa(const std::string& folder, const RevokeOptions& options = {}) {
    return kova::RevokeAtCa(session_, folder, options);
  }

 private:
  Session session_;
  Authorizer authorizer_;
};

}  // namespace kova
