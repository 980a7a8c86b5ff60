// A whole issuance at an authority that answers what it likes.
#include <cstdint>
#include <string>

#include "acme_v2/client_v2.h"
#include "fuzzed_ca.h"

namespace {

using kova::HttpResponse;
using kova::fuzz::Reply;

constexpr char kDirectory[] = R"({"newNonce": "http://c/nonce", "newAccount": "http://c/account",
    "newOrder": "http://c/order", "revokeCert": "http://c/revoke"})";
constexpr char kOrder[] = R"({"status": "pending", "authorizations": ["http://c/authz"],
    "finalize": "http://c/finalize"})";
constexpr char kProcessing[] = R"({"status": "processing"})";
constexpr char kIssued[] = R"({"status": "valid", "certificate": "http://c/certificate"})";
constexpr char kPending[] = R"({"status": "pending",
    "identifier": {"type": "dns", "value": "a.example"},
    "challenges": [{"type": "http-01", "token": "token", "url": "http://c/challenge"}]})";
constexpr char kValid[] = R"({"status": "valid",
    "identifier": {"type": "dns", "value": "a.example"},
    "challenges": [{"type": "http-01", "token": "token", "url": "http://c/challenge",
                    "status": "valid"}]})";
constexpr char kChain[] =
    "-----BEGIN CERTIFICATE-----\nYQ==\n-----END CERTIFICATE-----\n"
    "-----BEGIN CERTIFICATE-----\nYg==\n-----END CERTIFICATE-----\n";

// Remembers how far the issuance is.
class GoodCa {
 public:
  HttpResponse operator()(const std::string& url) {
    if (url == "http://c/directory") return Reply(200, kDirectory);
    if (url == "http://c/nonce") return Reply(204, "");
    if (url == "http://c/account") return Reply(201, "{}", "Location: http://c/account/1\r\n");
    if (url == "http://c/order") return Reply(201, kOrder, "Location: http://c/order/1\r\n");
    if (url == "http://c/authz") return Reply(200, proved_ ? kValid : kPending);
    if (url == "http://c/challenge") {
      proved_ = true;
      return Reply(200, "{}");
    }
    if (url == "http://c/finalize") return Reply(200, kProcessing, "Retry-After: 3\r\n");
    if (url == "http://c/order/1") return Reply(200, kIssued);
    if (url == "http://c/certificate") return Reply(200, kChain);
    return Reply(404, R"({"type": "urn:ietf:params:acme:error:malformed", "detail": "none"})");
  }

 private:
  bool proved_ = false;
};

void Issue() {
  kova::AcmeV2Client client("http://c/directory", kova::Settings::Read());
  client.SetupDirectory();
  client.NewNonce();
  client.SetupAccount("me@mail.example");
  const kova::Order order = client.NewOrder({"a.example"});
  client.AuthorizeOrder(order);
  (void)client.NewCertificate(order, {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  kova::fuzz::PrepareHost();
  FuzzedDataProvider data(bytes, size);
  const kova::fuzz::FuzzedCa ca(data, GoodCa());
  kova::fuzz::CheckIssuance(Issue);
  return 0;
}
