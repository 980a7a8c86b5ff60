#include "self_signed/default_set.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <optional>

#include "../archive/archive_fixture.h"
#include "../archive/test_certificates.h"
#include "crypto/certificate.h"
#include "platform/process.h"
#include "self_signed/mkcert.h"
#include "self_signed/serial_file.h"

namespace kova::mkcert {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::MatchOf;
using test::Mode;
using test::Names;
using test::Read;
using test::ReplacedTool;
using test::Write;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kSet[] = "/usr/kova/set";

class DefaultSetTest : public ArchiveTest {
 protected:
  static std::string File(const std::string& name) { return std::string(kSet) + "/" + name; }

  static std::string Openssl(KovaArgs args) {
    std::string output;
    EXPECT_EQ(
        platform::RunWithin({platform::kNoTimeLimit, 65536}, "/usr/bin/openssl", args, &output), 0);
    return output;
  }
  std::optional<test::DealtKeys> keys_{std::in_place};

  static std::string Serial() {
    return Openssl({"x509", "-noout", "-serial", "-in", File("cert.pem")});
  }

  // What the log holds besides the platform's own word on a failed tool.
  std::vector<std::string> Reasons() {
    std::vector<std::string> reasons;
    for (const std::string& line : Log()) {
      if (!line.starts_with("process:#")) reasons.push_back(line);
    }
    return reasons;
  }
};

TEST_F(DefaultSetTest, IsACaAndAServerCertificate) {
  keys_.reset();  // this one with keys that the tool finds itself
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_THAT(Names(kSet), ElementsAre("cert.pem", "fullchain.pem", "is_default_cert",
                                       "kova-ca-cert.pem", "kova-ca-privkey.pem", "privkey.pem"));
  EXPECT_THAT(Log(), IsEmpty());
  EXPECT_EQ(
      KLIBCExec("/usr/bin/openssl", {"verify", "-CAfile", File("kova-ca-cert.pem"), "-purpose",
                                     "sslserver", "-verify_hostname", "kova", File("cert.pem")}),
      0);
  EXPECT_EQ(MatchOf(File("cert.pem"), File("privkey.pem")), "yes");
  EXPECT_EQ(MatchOf(File("kova-ca-cert.pem"), File("kova-ca-privkey.pem")), "yes");
  EXPECT_EQ(MatchOf(File("cert.pem"), File("kova-ca-privkey.pem")), "no");
  EXPECT_EQ(Read(File("fullchain.pem")), Read(File("cert.pem")));
  EXPECT_EQ(Read(File("is_default_cert")), "");
}

TEST_F(DefaultSetTest, ShowsItsFilesToTheirOwnerAlone) {
  umask(0);
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  umask(022);
  for (const char* name :
       {"cert.pem", "fullchain.pem", "kova-ca-cert.pem", "kova-ca-privkey.pem", "privkey.pem"}) {
    EXPECT_EQ(Mode(File(name)), 0400U) << name;
  }
  EXPECT_EQ(Mode(kCaRequest), 0400U);
  EXPECT_EQ(Mode(kServerRequest), 0400U);
  EXPECT_EQ(Mode(kSet), 0755U);
}

TEST_F(DefaultSetTest, HasTheFixedSubjectsNamesAndTimes) {
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_EQ(Openssl({"x509", "-noout", "-subject", "-issuer", "-in", File("cert.pem")}),
            "subject=C = ZZ, L = Tarvel, O = Kova Inc., CN = kova\n"
            "issuer=C = ZZ, L = Tarvel, O = Kova Inc., CN = Kova Inc. CA\n");
  EXPECT_EQ(Openssl({"x509", "-noout", "-subject", "-issuer", "-in", File("kova-ca-cert.pem")}),
            "subject=C = ZZ, L = Tarvel, O = Kova Inc., CN = Kova Inc. CA\n"
            "issuer=C = ZZ, L = Tarvel, O = Kova Inc., CN = Kova Inc. CA\n");
  EXPECT_THAT(Openssl({"x509", "-noout", "-text", "-in", File("cert.pem")}),
              AllOf(HasSubstr("(2048 bit)"), HasSubstr("DNS:kova\n"),
                    HasSubstr("TLS Web Server Authentication, TLS Web Client Authentication")));
  EXPECT_THAT(Openssl({"x509", "-noout", "-text", "-in", File("kova-ca-cert.pem")}),
              AllOf(HasSubstr("(2048 bit)"), HasSubstr("CA:TRUE, pathlen:0")));
  for (const char* name : {"cert.pem", "kova-ca-cert.pem"}) {
    const auto certificate = Certificate::FromFile(File(name));
    ASSERT_TRUE(certificate.has_value());
    EXPECT_EQ(*certificate->NotAfter() - *certificate->NotBefore(), 366 * 86400L) << name;
  }
}

TEST_F(DefaultSetTest, IsFlushedToTheDisk) {
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  test::RemoveAll(File("fullchain.pem"));
  // A file that is not there when all are flushed is a failure, not a success.
  const ReplacedTool cp("cp", "exit 0");
  EXPECT_EQ(GenerateDefaultSet(kSet).Text(),
            "Failed to flush /usr/kova/set/fullchain.pem: No such file or directory");
  EXPECT_THAT(Reasons(), ElementsAre("mkcert.cpp:# Failed to flush /usr/kova/set/fullchain.pem "
                                     "(No such file or directory)"));
}

TEST_F(DefaultSetTest, NoToolMayOpenAFileToOthers) {
  const ReplacedTool openssl("openssl", "umask >> /usr/kova/umasks; exec $REAL \"$@\"");
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_EQ(Read("/usr/kova/umasks"), "0077\n0077\n0077\n0077\n0077\n0077\n");
}

TEST_F(DefaultSetTest, HalfAChainDoesNotStay) {
  const ReplacedTool cp("cp", "echo half > \"$3\"; exit 1");
  EXPECT_EQ(GenerateDefaultSet(kSet).Text(), "Failed to copy crt to chain crt.");
  EXPECT_TRUE(Exists(File("cert.pem")));
  EXPECT_FALSE(Exists(File("fullchain.pem")));
}

TEST_F(DefaultSetTest, ASerialThatIsFineIsNotBlamed) {
  Write(kSerialFile, "0A\n");
  const ReplacedTool openssl("openssl",
                             "case \" $* \" in *' -CA '*) echo 'no room' >&2; exit 1;; esac\n"
                             "exec $REAL \"$@\"");
  EXPECT_THAT(GenerateDefaultSet(kSet).Text(), testing::EndsWith(": no room"));
}

TEST_F(DefaultSetTest, SaysThatTheSerialFileIsDamaged) {
  Write(kSerialFile, "no number");
  EXPECT_EQ(GenerateDefaultSet(kSet).Text(),
            "Failed to generate cert: [/usr/kova/etc/ssl/.mkcert.serial]: holds no serial number");
  EXPECT_THAT(Reasons(), testing::Contains("mkcert.cpp:# Failed to generate cert"));
}

TEST_F(DefaultSetTest, TellsWhatTheToolComplainedAbout) {
  const ReplacedTool openssl("openssl", "echo 'first' >&2; echo 'no room' >&2; exit 1");
  EXPECT_EQ(GenerateDefaultSet(kSet).Text(), "Error when execute /usr/bin/openssl: no room");
}

TEST_F(DefaultSetTest, MakesNothingWithoutItsLock) {
  test::MakeFolder("/run/kova-mkcert.lock");
  EXPECT_EQ(GenerateDefaultSet(kSet).Text(),
            "cannot lock [/run/kova-mkcert.lock]: Invalid argument");
  EXPECT_FALSE(Exists(kSet));
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Lock list file [/run/kova-mkcert.lock] failed"));
}

TEST_F(DefaultSetTest, LeavesItsWorkingFiles) {
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_THAT(Names("/usr/kova/etc/ssl"),
              ElementsAre(".gen", ".mkcert.serial", "cfg.d", "ssl.csr"));
  EXPECT_THAT(Names("/usr/kova/etc/ssl/cfg.d"),
              ElementsAre("ca.cfg", "ca.crt.cfg", "server.cfg", "server.crt.cfg"));
  EXPECT_THAT(Read(kCaRequestConfig),
              AllOf(HasSubstr("commonName                      = 'Kova Inc. CA'\n"),
                    Not(HasSubstr("organizationalUnitName")), Not(HasSubstr("emailAddress"))));
  EXPECT_THAT(Read(kServerRequestConfig), HasSubstr("commonName                      = 'kova'\n"));
  EXPECT_THAT(Read(kServerExtensionFile), testing::EndsWith("subjectAltName = \"DNS:kova\"\n"));
}

TEST_F(DefaultSetTest, ASecondRunReplacesTheSetUnderTheNextSerial) {
  Write(kSerialFile, "1700000000abcd");
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_EQ(Serial(), "serial=1700000000ABCE\n");
  const std::string key = Read(File("privkey.pem"));
  const std::string ca = Read(File("kova-ca-cert.pem"));
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_EQ(Serial(), "serial=1700000000ABCF\n");
  EXPECT_NE(Read(File("privkey.pem")), key);
  EXPECT_NE(Read(File("kova-ca-cert.pem")), ca);
  EXPECT_EQ(Read(File("fullchain.pem")), Read(File("cert.pem")));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(DefaultSetTest, StartsASerialFileOfItsOwn) {
  Write("/usr/kova/etc/device.json", R"({"mac_address": "0011325a6b7c"})");
  ASSERT_TRUE(GenerateDefaultSet(kSet));
  EXPECT_THAT(Read(kSerialFile), testing::MatchesRegex("[0-9]{10}6[bB]7[dD]\n?"));
}

TEST_F(DefaultSetTest, RecoversFromAnEmptySerialFile) {
  Write(kSerialFile, "");
  EXPECT_TRUE(GenerateDefaultSet(kSet));
}

TEST_F(DefaultSetTest, RefusesAnEmptyFolderAtOnce) {
  EXPECT_FALSE(GenerateDefaultSet(""));
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Invalid paramter []",
                                 "mkcert.cpp:# Generate CA key & crt failed"));
  EXPECT_FALSE(Exists("/usr/kova/etc/ssl"));
  EXPECT_FALSE(Exists("/privkey.pem"));
  EXPECT_FALSE(Exists("/run/kova-mkcert.lock"));
}

TEST_F(DefaultSetTest, RefusesAnEmptyFolderWithoutWaitingForTheLock) {
  const GenerationLock held;
  ASSERT_TRUE(held.Held());
  EXPECT_FALSE(GenerateDefaultSet(""));
  EXPECT_FALSE(GenerateDefaultSet("", held));
  EXPECT_THAT(
      Log(),
      ElementsAre("mkcert.cpp:# Invalid paramter []", "mkcert.cpp:# Generate CA key & crt failed",
                  "mkcert.cpp:# Invalid paramter []", "mkcert.cpp:# Generate CA key & crt failed"));
}

// Runs the generation with a tool that fails, or does otherwise harm, when its arguments contain a
// text.
struct Failure {
  const char* description;
  const char* tool;
  const char* argument;
  const char* harm;
  std::vector<std::string> messages;
};

class DefaultSetFailureTest : public DefaultSetTest, public testing::WithParamInterface<Failure> {};

TEST_P(DefaultSetFailureTest, EndsWithItsMessages) {
  {
    const ReplacedTool tool(GetParam().tool, "case \"$*\" in *" + std::string(GetParam().argument) +
                                                 "*) " + GetParam().harm +
                                                 ";; esac\nexec $REAL \"$@\"");
    EXPECT_FALSE(GenerateDefaultSet(kSet));
  }
  std::vector<std::string> expected;
  for (const std::string& message : GetParam().messages) {
    expected.push_back("mkcert.cpp:# " + message);
  }
  EXPECT_EQ(Reasons(), expected);
  EXPECT_FALSE(Exists(File("is_default_cert")));
  EXPECT_FALSE(Exists(File("fullchain.pem"))) << "an unfinished set looks complete";
}

constexpr char kNoCa[] = "Generate CA key & crt failed";
constexpr char kNoServer[] = "Failed to generate cert set";
// Makes the tool write a key of its own where the right one was.
constexpr char kForeignCaKey[] =
    "$REAL \"$@\"; $REAL genrsa -out /usr/kova/set/kova-ca-privkey.pem 2048; exit 0";
constexpr char kForeignKey[] =
    "$REAL \"$@\"; $REAL genrsa -out /usr/kova/set/privkey.pem 2048; exit 0";

INSTANTIATE_TEST_SUITE_P(
    Steps, DefaultSetFailureTest,
    testing::Values(Failure{"CaKey",
                            "openssl",
                            "kova-ca-privkey.pem\\ 2048",
                            "exit 1",
                            {"Error when execute", "genCAKey() failed", kNoCa}},
                    Failure{"CaRequest",
                            "openssl",
                            "ca.csr",
                            "exit 1",
                            {"Create CSR failed, command", "genCACsr() failed", kNoCa}},
                    Failure{"CaCertificate",
                            "openssl",
                            "-signkey",
                            "exit 1",
                            {"Error when execute", "genCACrt() failed", kNoCa}},
                    Failure{"CaMatch",
                            "openssl",
                            "-signkey",
                            kForeignCaKey,
                            {"Root certificate and key is not matching", kNoCa}},
                    Failure{"Key",
                            "openssl",
                            "/privkey.pem\\ 2048",
                            "exit 1",
                            {"Error when execute", "Failed to generate key", kNoServer}},
                    Failure{"Request",
                            "openssl",
                            "server.csr",
                            "case $1 in req) exit 1;; esac",
                            {"Create CSR failed, command", "Failed to generate csr", kNoServer}},
                    Failure{"Certificate",
                            "openssl",
                            "-CAserial",
                            "exit 1",
                            {"Error when execute", "Failed to generate cert", kNoServer}},
                    Failure{"Match",
                            "openssl",
                            "-CAserial",
                            kForeignKey,
                            {"cert and key is not matching.", kNoServer}},
                    Failure{"Copy",
                            "cp",
                            "fullchain.pem",
                            "exit 1",
                            {"Failed to copy crt to chain crt.", kNoServer}}),
    [](const auto& failure) { return std::string(failure.param.description); });

TEST_F(DefaultSetTest, AFailedRunLeavesNoSetThatLooksComplete) {
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) Write(File(name), "old");
  const ReplacedTool openssl("openssl",
                             "case \"$*\" in *-CAserial*) exit 1;; esac\nexec $REAL \"$@\"");
  EXPECT_FALSE(GenerateDefaultSet(kSet));
  EXPECT_NE(Read(File("privkey.pem")), "old");
  EXPECT_FALSE(Exists(File("fullchain.pem")));
}

TEST_F(DefaultSetTest, FailsWithoutASerialFile) {
  test::MakeFolder(kSerialFile);  // neither to be read nor to be replaced
  EXPECT_FALSE(GenerateDefaultSet(kSet));
  EXPECT_THAT(Reasons(), testing::Contains("mkcert.cpp:# Failed to generate cert"));
}

TEST_F(DefaultSetTest, FailsWithoutItsMarker) {
  test::MakeFolder(kSet);
  ASSERT_EQ(symlink("/usr/kova/none/none", File("is_default_cert").c_str()), 0);
  EXPECT_FALSE(GenerateDefaultSet(kSet));
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Failed to touch default cert"));
}

}  // namespace
}  // namespace kova::mkcert
