#include "crypto/certificate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "crypto/pem.h"
#include "host_files.h"
#include "libcrypto_watch.h"
#include "made_certificate.h"

namespace kova {
namespace {

using test::CertificateWish;
using test::MadeCertificate;
using test::MakeCertificate;
using test::PemOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kPath = "/run/certificate-test.pem";

Certificate Made(const CertificateWish& wish) {
  return Certificate(std::move(MakeCertificate(wish).certificate));
}

class CertificateTest : public testing::Test {
 protected:
  ~CertificateTest() override {
    unlink(kPath.c_str());
    EXPECT_EQ(ERR_peek_error(), 0U) << "an error stays behind for others to find";
  }

  const MadeCertificate root_ = MakeCertificate({.common_name = "root", .is_authority = true});
};

TEST_F(CertificateTest, KnowsItsNamesInTheirOrder) {
  EXPECT_THAT(Made({.alternative_names = "DNS:b.example, IP:192.0.2.7, email:a@b.example, "
                                         "DNS:*.a.example, IP:2001:db8::1"})
                  .AlternativeNames(),
              ElementsAre("b.example", "192.0.2.7", "*.a.example", "2001:db8::1"));
  EXPECT_THAT(Made({}).AlternativeNames(), IsEmpty());
  EXPECT_EQ(Made({.common_name = "a.example"}).CommonName(), "a.example");
  EXPECT_EQ(Made({.common_name = "", .organization = "O"}).CommonName(), "");
}

TEST_F(CertificateTest, KnowsItsIssuer) {
  const MadeCertificate issuer = MakeCertificate({.common_name = "R\xc3\xbc"
                                                                 "9",
                                                  .organization = "Caf\xc3\xa9",
                                                  .is_authority = true});
  const Certificate leaf(std::move(MakeCertificate({}, &issuer).certificate));
  EXPECT_EQ(leaf.IssuerOrganization(), "Caf\xc3\xa9");
  EXPECT_EQ(leaf.IssuerCommonName(),
            "R\xc3\xbc"
            "9");
  EXPECT_EQ(leaf.CommonName(), "leaf");
  EXPECT_EQ(Made({}).IssuerOrganization(), "");
}

TEST_F(CertificateTest, HandsOutItsIssuersBytesAsTheyAre) {
  MadeCertificate made = MakeCertificate({});
  X509_NAME* issuer = X509_get_issuer_name(made.certificate.get());
  const std::string wide("\0A\0B", 4);
  ASSERT_EQ(1, X509_NAME_add_entry_by_NID(issuer, NID_organizationName, V_ASN1_BMPSTRING,
                                          reinterpret_cast<const unsigned char*>(wide.data()),
                                          static_cast<int>(wide.size()), -1, 0));
  const Certificate certificate(std::move(made.certificate));
  EXPECT_EQ(certificate.IssuerOrganizationBytes(), wide);
  EXPECT_EQ(certificate.IssuerOrganization(), "AB");
  EXPECT_EQ(Made({}).IssuerOrganizationBytes(), "");
}

TEST_F(CertificateTest, FindsAnOrganizationThatItsIssuerIsNamedByFirst) {
  const Certificate certificate = Made({.common_name = "", .organization = "O"});
  EXPECT_EQ(certificate.IssuerOrganizationBytes(), "O");
  EXPECT_EQ(certificate.IssuerOrganization(), "O");
}

TEST_F(CertificateTest, KeepsNoMemoryWhenItIsRead) {
  const Certificate certificate = Made({.organization = "O", .serial = "7765"});
  EXPECT_LT(test::Leaked([&] { return certificate.IssuerOrganization(); }), 100U);
  EXPECT_LT(test::Leaked([&] { return certificate.Serial(); }), 100U);
}

TEST_F(CertificateTest, KnowsWhenItHolds) {
  const std::int64_t now = std::time(nullptr);
  const Certificate certificate = Made({.starts = -100, .ends = 1000});
  ASSERT_TRUE(certificate.NotBefore() && certificate.NotAfter());
  EXPECT_NEAR(static_cast<double>(*certificate.NotBefore()), static_cast<double>(now - 100), 5);
  EXPECT_EQ(*certificate.NotAfter(), *certificate.NotBefore() + 1100);
  EXPECT_FALSE(certificate.EndsBy(*certificate.NotAfter() - 1));
  EXPECT_TRUE(certificate.EndsBy(*certificate.NotAfter()));
}

TEST_F(CertificateTest, ATimeThatIsNoneComparesAsFalse) {
  MadeCertificate made = MakeCertificate({});
  ASN1_STRING_set(X509_getm_notAfter(made.certificate.get()), "soon", 4);
  const Certificate certificate(std::move(made.certificate));
  EXPECT_FALSE(certificate.NotAfter());
  EXPECT_TRUE(certificate.NotBefore());
  EXPECT_FALSE(certificate.EndsBy(std::time(nullptr) + 1000000));
}

TEST_F(CertificateTest, KnowsTheOctetsOfItsSerialNumber) {
  EXPECT_EQ(Made({.serial = "8765432100FF"}).Serial(),
            std::string("\x00\x87\x65\x43\x21\x00\xff", 7));
  EXPECT_EQ(Made({.serial = "7765"}).Serial(), "\x77\x65");
  EXPECT_EQ(Made({.serial = "00"}).Serial(), std::string(1, '\0'));
}

TEST_F(CertificateTest, KnowsTheKeyOfItsIssuer) {
  const Certificate leaf(std::move(MakeCertificate({}, &root_).certificate));
  const ASN1_OCTET_STRING* id = X509_get0_subject_key_id(root_.certificate.get());
  const std::string expected(reinterpret_cast<const char*>(ASN1_STRING_get0_data(id)), 20);
  EXPECT_EQ(leaf.AuthorityKeyId(), expected);
  EXPECT_EQ(Made({}).AuthorityKeyId(), "");
}

TEST_F(CertificateTest, FitsItsOwnKeyOfEitherKindAlone) {
  for (EVP_PKEY* key : {EVP_RSA_gen(2048), EVP_EC_gen("P-256"), EVP_EC_gen("P-384")}) {
    MadeCertificate made = MakeCertificate({}, &root_, EvpPkeyPtr(key));
    const Certificate certificate(std::move(made.certificate));
    EXPECT_TRUE(certificate.Fits(*made.key));
    EXPECT_TRUE(certificate.FitsKeyText(PemOf(*made.key)));
    EXPECT_FALSE(certificate.Fits(*root_.key));
    EXPECT_FALSE(certificate.FitsKeyText(PemOf(*root_.key)));
    EXPECT_FALSE(certificate.FitsKeyText("nothing"));
  }
}

TEST_F(CertificateTest, IsIssuedByWhoSignedIt) {
  const MadeCertificate other = MakeCertificate({.common_name = "root", .is_authority = true});
  const MadeCertificate stranger = MakeCertificate({.common_name = "else", .is_authority = true});
  const auto shared = [](const MadeCertificate& made) {
    X509_up_ref(made.certificate.get());
    return Certificate(X509Ptr(made.certificate.get()));
  };
  const Certificate leaf(std::move(MakeCertificate({}, &root_).certificate));
  EXPECT_TRUE(leaf.IsIssuedBy(shared(root_)));
  EXPECT_TRUE(shared(root_).IsIssuedBy(shared(root_)));
  EXPECT_FALSE(leaf.IsIssuedBy(leaf));
  EXPECT_FALSE(leaf.IsIssuedBy(shared(other))) << "the same name is not the same key";
  EXPECT_FALSE(leaf.IsIssuedBy(shared(stranger)));
  EXPECT_FALSE(shared(root_).IsIssuedBy(leaf));
  EVP_PKEY_up_ref(root_.key.get());
  const MadeCertificate renamed = MakeCertificate({.common_name = "renamed", .is_authority = true},
                                                  nullptr, EvpPkeyPtr(root_.key.get()));
  EXPECT_FALSE(leaf.IsIssuedBy(shared(renamed))) << "the same key is not the same name";
  MadeCertificate forged = MakeCertificate({}, &root_);
  X509_sign(forged.certificate.get(), other.key.get(), EVP_sha256());
  EXPECT_FALSE(shared(forged).IsIssuedBy(shared(root_))) << "its name and key id are not enough";
}

TEST_F(CertificateTest, IsReadFromTheFirstOfAFile) {
  const MadeCertificate first = MakeCertificate({.common_name = "first"});
  test::WriteFile(kPath, "text before\n" + PemOf(*first.certificate) + PemOf(*root_.certificate));
  const std::optional<Certificate> certificate = Certificate::FromFile(kPath);
  ASSERT_TRUE(certificate);
  EXPECT_EQ(certificate->CommonName(), "first");
}

TEST_F(CertificateTest, IsNotReadFromWhatHoldsNone) {
  EXPECT_FALSE(Certificate::FromFile("/run/none.pem"));
  EXPECT_FALSE(Certificate::FromFile("/run"));
  test::WriteFile(kPath, PemOf(*root_.key));
  EXPECT_FALSE(Certificate::FromFile(kPath));
}

TEST_F(CertificateTest, APipeOrADeviceIsNotWaitedFor) {
  ASSERT_EQ(mkfifo(kPath.c_str(), 0600), 0);
  for (const std::string& path : {kPath, std::string("/dev/zero")}) {
    errno = 0;
    EXPECT_EQ(OpenPem(path), nullptr) << path;
    EXPECT_EQ(errno, EINVAL) << path;
    EXPECT_FALSE(Certificate::FromFile(path));
  }
}

TEST_F(CertificateTest, AChainKeepsItsOrder) {
  const MadeCertificate leaf = MakeCertificate({}, &root_);
  const std::vector<Certificate> chain = Certificate::ChainFromText(
      PemOf(*leaf.certificate) + "\nbetween\n" + PemOf(*root_.certificate) + "\n");
  ASSERT_THAT(chain, SizeIs(2));
  EXPECT_EQ(chain[0].CommonName(), "leaf");
  EXPECT_EQ(chain[1].CommonName(), "root");
  EXPECT_TRUE(chain[0].IsIssuedBy(chain[1]));
}

TEST_F(CertificateTest, AChainWithSomethingBrokenInItIsNone) {
  const std::string good = PemOf(*root_.certificate);
  EXPECT_THAT(Certificate::ChainFromText(std::string(1, '\0') + "\n" + good), IsEmpty());
  EXPECT_THAT(Certificate::ChainFromText(""), IsEmpty());
  EXPECT_THAT(Certificate::ChainFromText("nothing"), IsEmpty());
  EXPECT_THAT(Certificate::ChainFromText(good + good.substr(0, good.size() / 2)), IsEmpty());
  EXPECT_THAT(Certificate::ChainFromText(
                  good + "-----BEGIN CERTIFICATE-----\nMIIB\n-----END CERTIFICATE-----\n" + good),
              IsEmpty());
}

}  // namespace
}  // namespace kova
