// Which of the stored accounts is taken: one that has a URL to be used with.
#include "client_fixture.h"

namespace kova::test {
namespace {

constexpr char kDirectory[] = "https://ca.example/directory";
constexpr char kContact[] = "a@b.example";

class FindAccountTest : public ::testing::Test {
 protected:
  FindAccountTest() { ResetHost(); }

  // Stores an account with that member of its record; the result is its folder.
  static std::string Put(const std::string& name, const Json::Value& url) {
    Json::Value info(Json::objectValue);
    info["version"] = 2;
    info["directory"] = kDirectory;
    info["contact"] = kContact;
    info["account_url"] = url;
    const std::string folder = std::string(kAccountStore) + "/" + name;
    WriteFile(folder + "/info.json", JsonStyledText(info));
    return folder;
  }
  static std::string Find() { return AcmeV2Client::FindAccount(kDirectory, kContact); }
};

TEST_F(FindAccountTest, TakesTheFirstOfThoseThatFit) {
  EXPECT_EQ(Find(), "");
  Put("b", "https://ca.example/account/2");
  const std::string first = Put("a", "https://ca.example/account/1");
  EXPECT_EQ(Find(), first);
  EXPECT_EQ(AcmeV2Client::FindAccount("https://other.example/directory", kContact), "");
  EXPECT_EQ(AcmeV2Client::FindAccount(kDirectory, "c@b.example"), "");
}

// Not as the listing sorts them, where "abc-old/" comes before "abc/".
TEST_F(FindAccountTest, SortsByNamesAlone) {
  for (const char* name : {"abc-old", "abc", "abc.old"}) Put(name, "https://ca.example/account/1");
  EXPECT_EQ(Find(), std::string(kAccountStore) + "/abc");
}

TEST_F(FindAccountTest, PassesOverAnAccountWithoutAUrlToUse) {
  for (const char* url : {"\"\"", "null", "5", "{}", "[]"}) {
    Put("one", Parsed(url));
    EXPECT_EQ(Find(), "") << url;
  }
}

}  // namespace
}  // namespace kova::test
