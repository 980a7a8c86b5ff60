#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../crypto/made_certificate.h"
#include "acme/issued_folder.h"
#include "error_text.h"
#include "syslog_capture.h"

namespace kova::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

CertificateWish Wish(const std::string& alternative_names = "DNS:a.example,DNS:*.a.example") {
  CertificateWish wish;
  wish.alternative_names = alternative_names;
  return wish;
}

CertificateWish Authority(const std::string& name) {
  CertificateWish wish;
  wish.common_name = name;
  wish.is_authority = true;
  return wish;
}

class IssuedCheck : public ::testing::Test {
 protected:
  // What is wrong with the chain, or "nothing".
  std::string Check(const std::string& chain, const MadeCertificate& leaf,
                    const std::vector<std::string>& names = {"a.example", "*.a.example"}) {
    const std::string error =
        ErrorOf([&] { RequireFitting("client_v2", chain, PemOf(*leaf.key), names); });
    const std::string start = "200 client_v2: new-cert: issued certificate does not fit. (";
    if (!error.starts_with(start)) return error;
    return error.substr(start.size(), error.size() - start.size() - 1);
  }

  std::string CheckLeaf(const CertificateWish& wish) {
    const MadeCertificate leaf = MakeCertificate(wish, &intermediate_);
    return Check(PemOf(*leaf.certificate) + rest_, leaf);
  }

  MadeCertificate root_ = MakeCertificate(Authority("root"));
  MadeCertificate intermediate_ = MakeCertificate(Authority("intermediate"), &root_);
  MadeCertificate leaf_ = MakeCertificate(Wish(), &intermediate_);
  std::string first_ = PemOf(*leaf_.certificate);
  std::string rest_ = PemOf(*intermediate_.certificate) + PemOf(*root_.certificate);
  SyslogCapture syslog_;
};

TEST_F(IssuedCheck, LetsPassWhatWasAskedFor) {
  EXPECT_EQ(Check(first_ + rest_, leaf_), "nothing");
  EXPECT_EQ(Check(first_, leaf_), "nothing");
  EXPECT_EQ(Check(first_ + "\r\n\n" + rest_ + "\n", leaf_), "nothing");
  EXPECT_EQ(Check(first_ + rest_, leaf_, {"A.Example"}), "nothing");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(IssuedCheck, RefusesAnotherKey) {
  const MadeCertificate other = MakeCertificate(Wish());
  EXPECT_EQ(Check(first_ + rest_, other), "it has another key");
  EXPECT_THAT(syslog_.Texts(),
              ElementsAre("client_v2:# Issued certificate does not fit. [it has another key]"));
}

TEST_F(IssuedCheck, RefusesOtherNames) {
  EXPECT_EQ(CheckLeaf(Wish("DNS:a.example")), "it is not for *.a.example");
  EXPECT_EQ(CheckLeaf(Wish("DNS:*.a.example")), "it is not for a.example");
  EXPECT_EQ(CheckLeaf(Wish("DNS:b.example")), "it is not for a.example");
  EXPECT_EQ(CheckLeaf(Wish("")), "it is not for a.example");
  CertificateWish named = Wish("DNS:b.example");
  named.common_name = "a.example";  // does not count
  EXPECT_EQ(CheckLeaf(named), "it is not for a.example");
}

TEST_F(IssuedCheck, NamesAreTheSameInAnyCase) {
  EXPECT_EQ(CheckLeaf(Wish("DNS:A.Example,DNS:*.A.Example")), "nothing");
}

TEST_F(IssuedCheck, RefusesAnotherTime) {
  CertificateWish wish = Wish();
  wish.starts = 3600;
  wish.ends = 7200;
  EXPECT_EQ(CheckLeaf(wish), "it is not valid yet");
  wish.starts = -7200;
  wish.ends = -3600;
  EXPECT_EQ(CheckLeaf(wish), "it has expired");
}

TEST_F(IssuedCheck, RefusesAChainThatDoesNotHang) {
  const std::string intermediate = PemOf(*intermediate_.certificate);
  const std::string root = PemOf(*root_.certificate);
  const std::string second = "certificate 2 of the chain did not issue the one before";
  EXPECT_EQ(Check(first_ + root + intermediate, leaf_), second);
  EXPECT_EQ(Check(first_ + root, leaf_), second);
  const MadeCertificate elsewhere = MakeCertificate(Authority("root"));  // same name, another key
  EXPECT_EQ(Check(first_ + intermediate + PemOf(*elsewhere.certificate), leaf_),
            "certificate 3 of the chain did not issue the one before");
  EXPECT_EQ(Check(rest_ + first_, leaf_), "it has another key");
}

TEST_F(IssuedCheck, RefusesWhatIsNoChain) {
  const std::string garbage = "-----BEGIN CERTIFICATE-----\nYQ==\n-----END CERTIFICATE-----\n";
  for (const std::string& chain :
       {std::string(), std::string("<html>"), garbage, first_ + garbage, first_ + "garbage" + rest_,
        "garbage\n" + first_ + rest_, first_ + rest_ + "garbage",
        first_ + "-----BEGIN CERTIFICATE-----\nYQ==\n"}) {
    EXPECT_EQ(Check(chain, leaf_), "it is no chain of certificates") << chain;
  }
}

}  // namespace
}  // namespace kova::test
