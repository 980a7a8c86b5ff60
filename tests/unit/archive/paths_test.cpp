#include "archive/paths.h"

#include <unistd.h>

#include <filesystem>

#include "archive_fixture.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Folder;
using test::MakeFolder;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;

class PathsTest : public ArchiveTest {};

TEST_F(PathsTest, KeepsTheAgreedPlaces) {
  EXPECT_STREQ(kArchiveRoot, "/usr/kova/etc/certificate/_archive");
  EXPECT_STREQ(kIndexPath, "/usr/kova/etc/certificate/_archive/INFO");
  EXPECT_STREQ(kIndexStagingPath, "/usr/kova/etc/certificate/_archive/INFO.temp");
  EXPECT_STREQ(kDefaultPath, "/usr/kova/etc/certificate/_archive/DEFAULT");
  EXPECT_EQ(CertificateFolder("abc"), "/usr/kova/etc/certificate/_archive/abc");
}

TEST_F(PathsTest, PlainNamesAreOneComponent) {
  for (const char* name : {"a", "abc", "...", ".hidden", "a b", "%s", "-rf"}) {
    EXPECT_TRUE(IsPlainName(name)) << name;
  }
  for (const char* name : {"", ".", "..", "/", "a/b", "../a", "a/", "/a"}) {
    EXPECT_FALSE(IsPlainName(name)) << name;
  }
  EXPECT_FALSE(IsPlainName(std::string("a\0b", 3)));
}

TEST_F(PathsTest, FindsTheCertificateOfAFolder) {
  MakeFolder(Folder("abc/deep/er"));
  Write(Folder("abc/cert.pem"), "x");
  EXPECT_EQ(CertificateIdOfPath(Folder("abc")), "abc");
  EXPECT_EQ(CertificateIdOfPath(Folder("abc/")), "abc");
  EXPECT_EQ(CertificateIdOfPath(Folder("abc/deep")), "abc");
  EXPECT_EQ(CertificateIdOfPath(Folder("abc/deep/er")), "abc");
  EXPECT_EQ(CertificateIdOfPath(Folder("abc/cert.pem")), "");
  EXPECT_EQ(CertificateIdOfPath(Folder("missing")), "");
  EXPECT_EQ(CertificateIdOfPath(""), "");
  EXPECT_EQ(CertificateIdOfPath("/usr/kova/etc"), "");
  EXPECT_EQ(CertificateIdOfPath(test::kRoot), "");
  EXPECT_EQ(CertificateIdOfPath(Folder("")), "");
}

TEST_F(PathsTest, CutsAnIdOnlyAtALaterSlash) {
  MakeFolder(Folder("abc"));
  // The search begins one character into the name, so a doubled slash becomes part of it.
  EXPECT_EQ(CertificateIdOfPath(Folder("/abc")), "/abc");
  EXPECT_EQ(CertificateIdOfPath(Folder("/abc/")), "/abc");
  EXPECT_EQ(CertificateIdOfPath("/usr/kova/etc/certificate/_archivist/abc"), "");
}

TEST_F(PathsTest, ReadsTheDefaultCertificate) {
  MakeFolder(Folder("abc"));
  Write(kDefaultPath, "abc\n");
  EXPECT_EQ(DefaultCertificateId(), "abc");
  Write(kDefaultPath, "abc");
  EXPECT_EQ(DefaultCertificateId(), "abc");
  Write(kDefaultPath, "abc\nother\n");
  EXPECT_EQ(DefaultCertificateId(), "abc");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PathsTest, CutsALongDefaultIdAtFifteenCharacters) {
  MakeFolder(Folder("abcdefghijklmno"));
  Write(kDefaultPath, "abcdefghijklmnopqrstuvwxyz\n");
  EXPECT_EQ(DefaultCertificateId(), "abcdefghijklmno");
  Write(kDefaultPath, "abcdefghijklmno\n");
  EXPECT_EQ(DefaultCertificateId(), "abcdefghijklmno");
}

TEST_F(PathsTest, HasNoDefaultSilentlyWithoutADefaultFile) {
  EXPECT_EQ(DefaultCertificateId(), "");
  Write(kDefaultPath, "");
  EXPECT_EQ(DefaultCertificateId(), "");
  Write(kDefaultPath, "\nabc\n");
  EXPECT_EQ(DefaultCertificateId(), "");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PathsTest, LogsADefaultThatHasNoFolder) {
  Write(kDefaultPath, "gone\n");
  EXPECT_EQ(DefaultCertificateId(), "");
  EXPECT_THAT(Log(), ElementsAre("utils.cpp:# [/usr/kova/etc/certificate/_archive/gone] doesn't "
                                 "exist.[0x0002 files.cpp:#]"));
}

TEST_F(PathsTest, TellsADefaultThatCannotBeReadFromNone) {
  std::string id = "x";
  EXPECT_TRUE(ReadDefaultCertificate(id));
  EXPECT_EQ(id, "");
  Write(kDefaultPath, "");
  EXPECT_TRUE(ReadDefaultCertificate(id));
  std::filesystem::remove(kDefaultPath);
  MakeFolder(kDefaultPath);
  EXPECT_EQ(ReadDefaultCertificate(id).Text(),
            std::string("cannot read ") + kDefaultPath + ": Is a directory");
  std::filesystem::remove(kDefaultPath);
  ASSERT_EQ(symlink("DEFAULT", kDefaultPath), 0);
  EXPECT_EQ(ReadDefaultCertificate(id).Text(),
            std::string("cannot read ") + kDefaultPath + ": Too many levels of symbolic links");
  EXPECT_EQ(DefaultCertificateId(), "");
  EXPECT_THAT(Log(), IsEmpty());
  std::filesystem::remove(kDefaultPath);
  Write(kDefaultPath, "gone\n");
  EXPECT_FALSE(ReadDefaultCertificate(id));
  EXPECT_TRUE(ReadDefaultCertificate(id, GoneDefault::kIsNone));
  EXPECT_EQ(id, "");
}

TEST_F(PathsTest, AcceptsOnlyCanonicalFolders) {
  MakeFolder(Folder("abc"));
  EXPECT_TRUE(IsSafeFolder(Folder("abc")));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PathsTest, LogsPathsThatLeadElsewhere) {
  MakeFolder(Folder("abc"));
  ASSERT_EQ(symlink("abc", Folder("link").c_str()), 0);
  for (const char* path : {"abc/", "link", "../_archive/abc", "/abc", "./abc"}) {
    syslog_.Clear();
    EXPECT_FALSE(IsSafeFolder(Folder(path))) << path;
    EXPECT_THAT(Log(), ElementsAre("utils.cpp:# Path not match, maybe bugs or attacked")) << path;
  }
}

TEST_F(PathsTest, RejectsSilentlyWhatIsNoFolder) {
  Write(Folder("file"), "x");
  EXPECT_FALSE(IsSafeFolder(Folder("file")));
  EXPECT_FALSE(IsSafeFolder(Folder("missing")));
  EXPECT_FALSE(IsSafeFolder(""));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(PathsTest, RequiresThreeFiles) {
  AddFolder("abc");
  EXPECT_TRUE(HoldsRequiredFiles(Folder("abc")));
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    AddFolder("abc");
    std::filesystem::remove(Folder("abc") + "/" + name);
    EXPECT_FALSE(HoldsRequiredFiles(Folder("abc"))) << name;
  }
}

}  // namespace
}  // namespace kova::cert_archive
