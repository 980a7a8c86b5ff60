// A whole issuance at an authority of the early protocol that answers what it likes.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <cstdint>
#include <string>

#include "acme_v1/client_v1.h"
#include "crypto/openssl_ptr.h"
#include "fuzzed_ca.h"

namespace {

using kova::HttpResponse;
using kova::fuzz::Reply;

constexpr char kDirectory[] = R"({"new-authz": "http://c/authz", "new-cert": "http://c/cert",
    "new-reg": "http://c/reg", "revoke-cert": "http://c/revoke"})";
constexpr char kPending[] = R"({"status": "pending",
    "identifier": {"type": "dns", "value": "a.example"},
    "challenges": [{"type": "http-01", "token": "token", "status": "pending",
                    "uri": "http://c/challenge"}]})";
constexpr char kValid[] = R"({"status": "valid"})";

// The DER of a certificate, as the authority and its issuer send it.
std::string Certificate() {
  const kova::EvpPkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048}));
  const kova::X509Ptr certificate(X509_new());
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 86400);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  std::string der(static_cast<size_t>(i2d_X509(certificate.get(), nullptr)), '\0');
  auto* end = reinterpret_cast<unsigned char*>(der.data());
  i2d_X509(certificate.get(), &end);
  return der;
}

HttpResponse GoodReply(const std::string& url) {
  static const std::string der = Certificate();
  if (url == "http://c/directory") return Reply(200, kDirectory);
  if (url == "http://c/reg") {
    return Reply(201, "{}",
                 "Location: http://c/reg/1\r\nLink: <http://c/terms>;rel=\"terms-of-service\"\r\n");
  }
  if (url == "http://c/reg/1") return Reply(202, "{}");
  if (url == "http://c/authz") return Reply(201, kPending, "Location: http://c/authz/1\r\n");
  if (url == "http://c/challenge") {
    return Reply(202, "{}", "Link: <http://c/authz/1>;rel=\"up\"\r\n");
  }
  if (url == "http://c/authz/1") return Reply(200, kValid);
  if (url == "http://c/cert") return Reply(201, der, "Link: <http://c/issuer>;rel=\"up\"\r\n");
  if (url == "http://c/issuer") return Reply(200, der);
  return Reply(404, R"({"type": "urn:acme:error:malformed", "detail": "none"})");
}

void Issue() {
  kova::AcmeV1Client client("http://c/directory", kova::Settings::Read());
  client.FetchDirectory();
  client.UseOrRegister("me@mail.example");
  client.AuthorizeAll({"a.example"});
  (void)client.NewCert({"a.example"}, "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  kova::fuzz::PrepareHost();
  FuzzedDataProvider data(bytes, size);
  const kova::fuzz::FuzzedCa ca(data, GoodReply);
  kova::fuzz::CheckIssuance(Issue);
  return 0;
}
