#include "acme/issued_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "error_text.h"
#include "host_files.h"
#include "small_disk.h"

namespace {

bool chmod_fails = false;

}  // namespace

extern "C" {
int __real_chmod(const char* path, mode_t mode);   // NOLINT
int __wrap_chmod(const char* path, mode_t mode) {  // NOLINT
  if (!chmod_fails) return __real_chmod(path, mode);
  errno = EPERM;
  return -1;
}
}

namespace kova::test {
namespace {

namespace fs = std::filesystem;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::string Pem(const std::string& content) {
  return "-----BEGIN CERTIFICATE-----\n" + content + "\n-----END CERTIFICATE-----";
}

CertificatePems Pems() { return {Pem("leaf"), Pem("issuer") + "\n", "the whole chain\n"}; }

class CertificateStore : public ::testing::Test {
 protected:
  CertificateStore() {
    ResetHost();
    record_.version = 2;
    record_.server = "https://ca.example/directory";
    record_.account = "/usr/kova/etc/letsencrypt/account/abcdef";
    record_.domains = "a.example;*.a.example";
  }
  ~CertificateStore() override {
    umask(022);
    chmod_fails = false;
  }

  std::string Store(const std::string& id = {}) const {
    return SaveCertificate("client_v2", id, Pems(), "the key\n", record_);
  }
  std::string ErrorOfStore(const std::string& id = {}) const {
    return ErrorOf([&] { Store(id); });
  }

  static std::string Existing(const std::string& id) {
    const std::string folder = std::string(kArchive) + "/" + id;
    fs::create_directories(folder);
    for (const char* name :
         {"cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"}) {
      WriteFile(folder + "/" + name, "old", 0400);
    }
    return folder;
  }

  RenewalRecord record_;
};

TEST_F(CertificateStore, MakesAFolderOfFiveFiles) {
  const std::string folder = Store();
  EXPECT_EQ(fs::path(folder).parent_path(), kArchive);
  EXPECT_EQ(fs::path(folder).filename().string().size(), 6U);
  EXPECT_THAT(ListFolder(folder),
              ElementsAre("cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"));
  EXPECT_EQ(ReadFile(folder + "/cert.pem"), Pem("leaf"));  // no line feed at the end
  EXPECT_EQ(ReadFile(folder + "/chain.pem"), Pem("issuer") + "\n");
  EXPECT_EQ(ReadFile(folder + "/fullchain.pem"), "the whole chain\n");
  EXPECT_EQ(ReadFile(folder + "/privkey.pem"), "the key\n");
  EXPECT_EQ(ReadFile(folder + "/renew.json"),
            "{\n"
            "   \"account\" : \"/usr/kova/etc/letsencrypt/account/abcdef\",\n"
            "   \"domains\" : \"a.example;*.a.example\",\n"
            "   \"server\" : \"https://ca.example/directory\",\n"
            "   \"version\" : 2\n"
            "}\n");
}

TEST_F(CertificateStore, RemovesFirstWhatKilledRunsLeft) {
  const std::string archive = kArchive;
  WriteFile(archive + "/.aaaaaa.unfinished", "");
  WriteFile(archive + "/aaaaaa/privkey.pem", "a key");
  const std::string name = fs::path(Store()).filename();
  EXPECT_THAT(ListFolder(archive), ElementsAre("." + name + ".unfinished", name));
}

TEST_F(CertificateStore, HasTheSameModesUnderEveryUmask) {
  for (const mode_t mask : {0022U, 0U, 0077U, 0777U}) {
    umask(mask);
    const std::string folder = Store();
    umask(022);
    EXPECT_EQ(ModeOf(folder), 0700U) << mask;
    for (const std::string& name : ListFolder(folder)) {
      EXPECT_EQ(ModeOf(folder + "/" + name), 0400U) << name << " " << mask;
    }
  }
}

TEST_F(CertificateStore, ReplacesTheFilesOfACertificateThatIsNamed) {
  const std::string folder = Existing("abc123");
  chmod(folder.c_str(), 0711);
  WriteFile(folder + "/more.txt", "kept");
  EXPECT_EQ(Store("abc123"), folder);
  EXPECT_THAT(ListFolder(kArchive), ElementsAre("abc123"));
  EXPECT_EQ(ReadFile(folder + "/privkey.pem"), "the key\n");
  EXPECT_EQ(ModeOf(folder + "/privkey.pem"), 0400U);
  EXPECT_EQ(ModeOf(folder), 0711U);
  EXPECT_EQ(ReadFile(folder + "/more.txt"), "kept");
}

TEST_F(CertificateStore, MakesNoFolderForACertificateThatIsNamed) {
  EXPECT_EQ(ErrorOfStore("abc123"), "202 client_v2: Failed to save pems");
  EXPECT_THAT(ListFolder(kArchive), IsEmpty());
}

TEST_F(CertificateStore, NeedsTheArchive) {
  fs::remove_all(kArchive);
  EXPECT_EQ(ErrorOfStore(), "202 client_v2: Failed to create folder for account item.");
  EXPECT_FALSE(Exists(kArchive));
}

TEST_F(CertificateStore, KeepsNoFolderWhoseModeCannotBeSet) {
  chmod_fails = true;
  EXPECT_EQ(ErrorOfStore(), "202 client_v2: Failed to chmod.");
  EXPECT_EQ(ErrorOf([&] { SaveCertificate("client_v1", "", Pems(), "key", record_); }),
            "202 client_v1: Failed to chmod.");
  EXPECT_THAT(ListFolder(kArchive), IsEmpty());
}

TEST_F(CertificateStore, NamesTheProtocolThatCouldNotStore) {
  EXPECT_EQ(ErrorOf([&] { SaveCertificate("client_v1", "x", Pems(), "key", record_); }),
            "202 client_v1: Failed to save pems");
  EXPECT_EQ(ErrorOf([&] { SaveCertificate("client_v1", "", std::nullopt, "key", record_); }),
            "202 client_v1: Failed to save pems");
  fs::remove_all(kArchive);
  EXPECT_EQ(ErrorOf([&] { SaveCertificate("client_v1", "", Pems(), "key", record_); }),
            "202 client_v1: Failed to create folder for account item.");
}

TEST_F(CertificateStore, KeepsNothingOfAChainThatCouldNotBeSplit) {
  EXPECT_EQ(ErrorOf([&] { SaveCertificate("client_v2", "", std::nullopt, "key", record_); }),
            "202 client_v2: Failed to save pems");
  EXPECT_THAT(ListFolder(kArchive), IsEmpty());
}

// Also of the certificate that was to be renewed: its five files go, what else is there stays.
TEST_F(CertificateStore, RemovesItsFilesWhenTheChainCouldNotBeSplit) {
  const auto store = [&] { SaveCertificate("client_v2", "abc123", std::nullopt, "k", record_); };
  std::string folder = Existing("abc123");
  EXPECT_EQ(ErrorOf(store), "202 client_v2: Failed to save pems");
  EXPECT_FALSE(Exists(folder));
  folder = Existing("abc123");
  WriteFile(folder + "/more.txt", "kept");
  EXPECT_EQ(ErrorOf(store), "202 client_v2: Failed to save pems");
  EXPECT_THAT(ListFolder(folder), ElementsAre("more.txt"));
}

TEST_F(CertificateStore, KeepsNothingWhenAFileCannotBeWritten) {
  for (const char* name : {"cert.pem", "chain.pem", "fullchain.pem", "privkey.pem", "renew.json"}) {
    ResetHost();
    const std::string folder = std::string(kArchive) + "/abc123";
    fs::create_directories(folder + "/" + name);  // a folder where the file should be
    EXPECT_EQ(ErrorOfStore("abc123"), "202 client_v2: Failed to save pems") << name;
    EXPECT_THAT(ListFolder(folder), ElementsAre(name));
  }
}

TEST_F(CertificateStore, KeepsNothingWhenTheDiskIsFull) {
  for (const char* room : {"size=4k", "size=8k", "size=16k"}) {  // a page per file
    const SmallDisk disk(kArchive, room);
    EXPECT_EQ(ErrorOfStore(), "202 client_v2: Failed to save pems") << room;
    EXPECT_THAT(ListFolder(kArchive), IsEmpty()) << room;
  }
  const SmallDisk disk(kArchive, "size=20k");
  EXPECT_EQ(ErrorOfStore(), "nothing");
}

TEST(SplitChain, EndsTheLeafAtItsEndMarker) {
  const auto pems = SplitChain(Pem("leaf") + "\n" + Pem("issuer") + "\n");
  ASSERT_TRUE(pems);
  EXPECT_EQ(pems->cert, Pem("leaf"));
  EXPECT_EQ(pems->chain, Pem("issuer") + "\n");
  EXPECT_EQ(pems->fullchain, Pem("leaf") + "\n" + Pem("issuer") + "\n");
}

TEST(SplitChain, TakesAllTheRestForTheChain) {
  const std::string rest = Pem("second") + "\n" + Pem("third") + "\nafter";
  const auto pems = SplitChain("before\n" + Pem("leaf") + "\r\n\r\n between \n" + rest);
  ASSERT_TRUE(pems);
  EXPECT_EQ(pems->cert, Pem("leaf"));
  EXPECT_EQ(pems->chain, rest);
  EXPECT_EQ(pems->fullchain, "before\n" + Pem("leaf") + "\r\n\r\n between \n" + rest);
}

TEST(SplitChain, NeedsNoEndOfTheSecondCertificate) {
  const auto pems = SplitChain(Pem("leaf") + "-----BEGIN CERTIFICATE-----");
  ASSERT_TRUE(pems);
  EXPECT_EQ(pems->chain, "-----BEGIN CERTIFICATE-----");
}

TEST(SplitChain, NeedsTwoCertificates) {
  for (const std::string& text :
       {std::string(), std::string("<html>"), Pem("leaf"), Pem("leaf") + "\n",
        std::string("-----BEGIN CERTIFICATE-----\nleaf"), std::string("-----END CERTIFICATE-----"),
        "-----END CERTIFICATE-----\n" + Pem("leaf") + Pem("issuer"),
        std::string("-----BEGIN CERTIFICATE-----\n-----BEGIN CERTIFICATE-----\n")}) {
    EXPECT_FALSE(SplitChain(text)) << text;
  }
}

TEST(SplitChain, TakesBytesOfAnyKind) {
  const std::string odd = std::string("a\0b", 3) + "\xff";
  const auto pems = SplitChain(Pem(odd) + Pem(odd));
  ASSERT_TRUE(pems);
  EXPECT_EQ(pems->cert, Pem(odd));
}

TEST(JoinNames, PutsTheSeparatorBetweenNames) {
  EXPECT_EQ(JoinNames({"a.example"}, ";"), "a.example");
  EXPECT_EQ(JoinNames({"a.example", "*.a.example"}, ";"), "a.example;*.a.example");
  EXPECT_EQ(JoinNames({"b", "a", "b"}, ";"), "b;a;b");
  EXPECT_EQ(JoinNames({}, ";"), "");
}

}  // namespace
}  // namespace kova::test
