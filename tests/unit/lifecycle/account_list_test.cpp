#include "lifecycle/account_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "acme/renewal_record.h"
#include "error_text.h"
#include "host_files.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

const std::string kStore = kAccountStore;

class AccountListTest : public testing::Test {
 protected:
  AccountListTest() { ResetHost(); }

  static void Put(const std::string& id, const std::string& info, const std::string& key = "{}") {
    WriteFile(kStore + "/" + id + "/info.json", info);
    WriteFile(kStore + "/" + id + "/private_key.json", key);
  }
  static void Certificate(const std::string& id, const std::string& account) {
    const std::string folder = std::string(kArchive) + "/" + id;
    WriteFile(folder + "/cert.pem", "");
    WriteRenewalRecord(folder, {"https://ca.example/", "a.example", account, 2});
  }
};

TEST_F(AccountListTest, WithoutAStoreThereIsNone) { EXPECT_THAT(StoredAccounts(), IsEmpty()); }

TEST_F(AccountListTest, AnAccountHasWhatItsRecordSays) {
  Put("one", R"({"version": 2, "directory": "https://ca.example/", "contact": "me@host.example",
                 "account_url": "https://ca.example/1"})");
  const StoredAccount account = StoredAccountOf("one");
  EXPECT_EQ(account.id, "one");
  EXPECT_EQ(account.folder, kStore + "/one");
  EXPECT_TRUE(account.readable);
  EXPECT_TRUE(account.has_key);
  EXPECT_FALSE(account.rollover_unfinished);
  EXPECT_EQ(account.version, 2);
  EXPECT_EQ(account.directory, "https://ca.example/");
  EXPECT_EQ(account.contact, "me@host.example");
  EXPECT_EQ(account.url, "https://ca.example/1");
}

TEST_F(AccountListTest, MembersOfAnotherTypeAreNone) {
  Put("odd", R"({"version": "2", "directory": 7, "contact": [], "account_url": null})", "[]");
  const StoredAccount account = StoredAccountOf("odd");
  EXPECT_TRUE(account.readable);
  EXPECT_FALSE(account.has_key);
  EXPECT_EQ(account.version, 0);
  EXPECT_EQ(account.directory + account.contact + account.url, "");
}

TEST_F(AccountListTest, ADamagedRecordIsListed) {
  Put("bad", "{");
  ASSERT_EQ(StoredAccounts().size(), 1U);
  EXPECT_FALSE(StoredAccounts()[0].readable);
}

TEST_F(AccountListTest, TheyComeInTheOrderOfTheirIds) {
  for (const char* id : {"abc-d", "abc", "Z"}) Put(id, "{}");
  WriteFile(kStore + "/file", "no account");
  EXPECT_THAT(StoredAccounts(),
              ElementsAre(Field(&StoredAccount::id, "Z"), Field(&StoredAccount::id, "abc"),
                          Field(&StoredAccount::id, "abc-d")));
}

TEST_F(AccountListTest, CertificatesAreThoseWhoseRecordsNameTheFolder) {
  Put("one", "{}");
  Put("other", "{}");
  Certificate("b", kStore + "/one");
  Certificate("a", kStore + "/one/");
  Certificate("c", kStore + "/other");
  Certificate("d", kStore + "/gone");
  WriteFile(std::string(kArchive) + "/e/renew.json", "{");
  EXPECT_THAT(StoredAccountOf("one").certificates, ElementsAre("a", "b"));
  EXPECT_THAT(StoredAccountOf("other").certificates, ElementsAre("c"));
}

TEST_F(AccountListTest, AKeyThatIsToComeIsTold) {
  Put("one", "{}");
  WriteFile(kStore + "/one/next_key.json", "{}");
  EXPECT_TRUE(StoredAccountOf("one").rollover_unfinished);
}

TEST_F(AccountListTest, OneThatIsNotThereIsAnError) {
  WriteFile(kStore + "/file", "no account");
  for (const char* id : {"nosuch", "file", "", "..", "a/b"}) {
    EXPECT_EQ(ErrorOf([&] { (void)StoredAccountOf(id); }),
              std::string("202 kova-letsencrypt: there is no account [") + id + "]");
  }
}

}  // namespace
}  // namespace kova::test
