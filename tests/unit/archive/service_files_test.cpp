// Whether a service has its certificate's files.
#include "archive/service_files.h"

#include "archive_fixture.h"

namespace kova::cert_archive {
namespace {

using test::Folder;
using test::Write;

class ServiceFilesTest : public test::ArchiveTest {
 protected:
  ServiceFilesTest() {
    AddFolder("abc");
    EXPECT_TRUE(InstallServiceFiles("abc", service_, test::kOwnerUid, test::kOwnerGid));
  }

  [[nodiscard]] std::string Differing() const { return DifferingServiceFile("abc", service_); }

  Service service_{"nginx", "web", test::kOwner, false};
};

TEST_F(ServiceFilesTest, WhatWasInstalledDoesNotDiffer) { EXPECT_EQ(Differing(), ""); }

TEST_F(ServiceFilesTest, AFileOfOtherContentIsNamed) {
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    const std::string kept = test::Read(Folder("abc") + "/" + name);
    Write(Folder("abc") + "/" + name, kept + "x");
    EXPECT_EQ(Differing(), name);
    Write(Folder("abc") + "/" + name, kept);
  }
  EXPECT_EQ(Differing(), "");
}

TEST_F(ServiceFilesTest, TheFirstOfSeveralIsNamed) {
  Write(Folder("abc") + "/fullchain.pem", "x");
  Write(Folder("abc") + "/privkey.pem", "x");
  EXPECT_EQ(Differing(), "privkey.pem");
}

TEST_F(ServiceFilesTest, ARequiredFileHasToBeThereOnBothSides) {
  test::RemoveAll(service_.Folder() + "/cert.pem");
  EXPECT_EQ(Differing(), "cert.pem");
  test::RemoveAll(Folder("abc") + "/cert.pem");
  EXPECT_EQ(Differing(), "cert.pem");
}

TEST_F(ServiceFilesTest, AnOptionalFileIsThereOnBothSidesOrOnNone) {
  for (const char* name : {"chain.pem", "kova-ca-cert.pem"}) {
    Write(Folder("abc") + "/" + name, "one");
    EXPECT_EQ(Differing(), name);
    Write(service_.Folder() + "/" + name, "one");
    EXPECT_EQ(Differing(), "");
    Write(service_.Folder() + "/" + name, "two");
    EXPECT_EQ(Differing(), name);
    test::RemoveAll(Folder("abc") + "/" + name);
    EXPECT_EQ(Differing(), name);
    test::RemoveAll(service_.Folder() + "/" + name);
    EXPECT_EQ(Differing(), "");
    Write(Folder("abc") + "/" + name, "");
    EXPECT_EQ(Differing(), name) << "an empty file is not none";
    test::RemoveAll(Folder("abc") + "/" + name);
  }
}

}  // namespace
}  // namespace kova::cert_archive
