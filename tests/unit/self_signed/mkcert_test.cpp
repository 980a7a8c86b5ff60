#include "self_signed/mkcert.h"

#include <openssl/err.h>
#include <pty.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sstream>

#include "../archive/archive_fixture.h"
#include "../archive/test_certificates.h"
#include "crypto/pem.h"
#include "platform/process.h"
#include "self_signed/serial_file.h"

namespace {

bool list_fails = false;
std::string unopenable;  // a path

}  // namespace

// The linker sends the product's calls of these here.
KovaSzListPtr RealListAlloc(int) __asm__("__real__Z16KLIBCSzListAlloci");
KovaSzListPtr WrappedListAlloc(int) __asm__("__wrap__Z16KLIBCSzListAlloci");
KovaSzListPtr WrappedListAlloc(int entries) {
  return list_fails ? nullptr : RealListAlloc(entries);
}
kova::BioPtr RealOpenPem(const std::string& path) __asm__(
    "__real__ZN4kova7OpenPemERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
kova::BioPtr WrappedOpenPem(const std::string& path) __asm__(
    "__wrap__ZN4kova7OpenPemERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
kova::BioPtr WrappedOpenPem(const std::string& path) {
  return path == unopenable ? nullptr : RealOpenPem(path);
}

namespace kova::mkcert {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::MakePemPair;
using test::MatchOf;
using test::Mode;
using test::Read;
using test::ReplacedTool;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kKey[] = "/usr/kova/k/key.pem";
constexpr char kRequest[] = "/usr/kova/r/x.csr";
constexpr char kConfig[] = "/usr/kova/c/x.cfg";

// Stands in for the tool: keeps its arguments, one per line, and makes its output file.
constexpr char kRecorder[] =
    "for a; do echo \"$a\"; done > /usr/kova/args\n"
    "while [ $# -gt 1 ]; do [ \"$1\" = -out ] && echo made > \"$2\"; shift; done\nexit 0";

std::vector<std::string> Args() {
  std::vector<std::string> args;
  std::istringstream lines(Read("/usr/kova/args"));
  for (std::string line; std::getline(lines, line);) args.push_back(line);
  return args;
}

Subject SomeSubject() {
  Subject subject;
  subject.common_name = "kova";
  return subject;
}

class MkcertTest : public ArchiveTest {};

TEST_F(MkcertTest, KeepsTheAgreedPlaces) {
  EXPECT_STREQ(kOpenssl, "/usr/bin/openssl");
  EXPECT_STREQ(kCaRequest, "/usr/kova/etc/ssl/ssl.csr/ca.csr");
  EXPECT_STREQ(kServerRequest, "/usr/kova/etc/ssl/.gen/server.csr");
  EXPECT_STREQ(kSerialFile, "/usr/kova/etc/ssl/.mkcert.serial");
}

class GenerateKeyTest : public MkcertTest {
 protected:
  // The files that the key generation may take randomness from exist exactly as listed here.
  static constexpr const char* kMissing[] = {"/var/log/messages", "/var/run/dmesg.boot",
                                             "/var/log/system.log"};
  GenerateKeyTest() {
    for (const char* path : kMissing) test::RemoveAll(path);
  }
};

TEST_F(GenerateKeyTest, MakesAKeyForItsOwnerAlone) {
  umask(0);
  EXPECT_TRUE(GenerateKey(kKey, 2048));
  EXPECT_EQ(umask(022), 0U);
  EXPECT_EQ(Mode(kKey), 0400U);
  EXPECT_THAT(Read(kKey), StartsWith("-----BEGIN "));
  EXPECT_EQ(Mode("/usr/kova/k"), 0755U);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(GenerateKeyTest, TheToolNeverOpensTheKeyToOthers) {
  // The mode of the file at the moment the tool is done, for a new and for an older, open file.
  const ReplacedTool openssl(
      "openssl", "$REAL \"$@\" && stat -c %a " + std::string(kKey) + " >> /usr/kova/modes");
  umask(0);
  EXPECT_TRUE(GenerateKey(kKey, 2048));
  chmod(kKey, 0666);
  EXPECT_TRUE(GenerateKey(kKey, 2048));
  umask(022);
  EXPECT_EQ(Read("/usr/kova/modes"), "600\n400\n");
  EXPECT_EQ(Mode(kKey), 0400U);
}

TEST_F(GenerateKeyTest, NamesOnlyTheRandomFilesThatCanBeRead) {
  const ReplacedTool openssl("openssl", kRecorder);
  Write("/var/log/system.log", "x");
  EXPECT_TRUE(GenerateKey(kKey, 1234));
  EXPECT_THAT(Args(), ElementsAre("genrsa", "-rand",
                                  "/var/log/system.log:/etc/hosts:/etc/group:"
                                  "/etc/resolv.conf:/bin/ls",
                                  "-out", kKey, "1234"));
  test::MakeFolder("/var/log/messages");
  EXPECT_TRUE(GenerateKey(kKey, 1234));
  EXPECT_THAT(Args()[2], StartsWith("/var/log/system.log:")) << "a folder is no file";
  test::RemoveAll("/var/log/messages");
  Write("/var/log/messages", "x");
  Write("/run/dmesg.boot", "x");
  EXPECT_TRUE(GenerateKey(kKey, 2048));
  EXPECT_THAT(Args(), ElementsAre("genrsa", "-rand",
                                  "/var/log/messages:/var/run/dmesg.boot:/var/log/system.log:"
                                  "/etc/hosts:/etc/group:/etc/resolv.conf:/bin/ls",
                                  "-out", kKey, "2048"));
}

TEST_F(GenerateKeyTest, NamesNoRandomFilesWhenThereAreNone) {
  const ReplacedTool openssl("openssl", kRecorder);
  const std::vector<std::string> files = {"/etc/hosts", "/etc/group", "/etc/resolv.conf",
                                          "/usr/bin/ls"};
  // Hidden below a folder's mount would do as well; a rename is simpler.
  for (const std::string& file : files) {
    ASSERT_EQ(KLIBCExec("/bin/mv", {file, file + ".away"}), 0) << file;
  }
  EXPECT_TRUE(GenerateKey(kKey, 2048));
  for (const std::string& file : files) KLIBCExec("/bin/mv", {file + ".away", file});
  EXPECT_THAT(Args(), ElementsAre("genrsa", "-out", kKey, "2048"));
}

TEST_F(GenerateKeyTest, LogsItsFailures) {
  EXPECT_FALSE(GenerateKey("", 2048));
  EXPECT_FALSE(GenerateKey(kKey, 0));
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(GenerateKey("/usr/kova/a/key.pem", 2048));
  {
    const ReplacedTool openssl("openssl", "exit 1");
    EXPECT_FALSE(GenerateKey(kKey, 2048));
  }
  {
    const ReplacedTool openssl("openssl", "exit 0");
    EXPECT_FALSE(GenerateKey(kKey, 2048));
  }
  EXPECT_THAT(Log(),
              ElementsAre("mkcert.cpp:# Failed to genKey with invalid parameters",
                          "mkcert.cpp:# Failed to genKey with invalid parameters",
                          "mkcert.cpp:# Exec mkdir failed",
                          "mkcert.cpp:# Failed to generate directory for /usr/kova/a/key.pem",
                          StartsWith("process:# /usr/bin/openssl failed [1]"),
                          "mkcert.cpp:# Error when execute",
                          "mkcert.cpp:# Failed to chmod /usr/kova/k/key.pem "
                          "(No such file or directory)"));
}

class GenerateRequestTest : public MkcertTest {
 protected:
  GenerateRequestTest() { Write(kKey, MakePemPair(60).key); }
  const Subject subject_ = SomeSubject();
};

TEST_F(GenerateRequestTest, MakesARequest) {
  EXPECT_TRUE(GenerateRequest(kConfig, kKey, kRequest, &subject_));
  EXPECT_EQ(Mode(kRequest), 0400U);
  EXPECT_EQ(KLIBCExec("/usr/bin/openssl", {"req", "-verify", "-noout", "-in", kRequest}), 0);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(GenerateRequestTest, RunsTheToolWithTheseArguments) {
  const ReplacedTool openssl("openssl", kRecorder);
  EXPECT_TRUE(GenerateRequest(kConfig, kKey, kRequest, &subject_));
  EXPECT_THAT(Args(), ElementsAre("req", "-config", kConfig, "-new", "-sha256", "-key", kKey,
                                  "-out", kRequest));
}

TEST_F(GenerateRequestTest, LogsMissingInput) {
  EXPECT_FALSE(GenerateRequest("", kKey, kRequest, &subject_));
  EXPECT_FALSE(GenerateRequest(kConfig, "", kRequest, &subject_));
  EXPECT_FALSE(GenerateRequest(kConfig, kKey, "", &subject_));
  EXPECT_FALSE(GenerateRequest(kConfig, kKey, kRequest, nullptr));
  EXPECT_FALSE(GenerateRequest(kConfig, "/usr/kova/none", kRequest, &subject_));
  const std::string invalid = "mkcert.cpp:# Failed to generate csr with invalid paramters";
  EXPECT_THAT(Log(),
              ElementsAre(invalid, invalid, invalid, invalid, "mkcert.cpp:# Key is not existed"));
  EXPECT_FALSE(Exists(kConfig));
}

TEST_F(GenerateRequestTest, LogsWhatCannotBeMade) {
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(GenerateRequest(kConfig, kKey, "/usr/kova/a/x.csr", &subject_));
  EXPECT_FALSE(GenerateRequest("/usr/kova/a/x.cfg", kKey, kRequest, &subject_));
  {
    const ReplacedTool openssl("openssl", "exit 1");
    EXPECT_FALSE(GenerateRequest(kConfig, kKey, kRequest, &subject_));
  }
  {
    const ReplacedTool openssl("openssl", "exit 0");
    EXPECT_FALSE(GenerateRequest(kConfig, kKey, kRequest, &subject_));
  }
  EXPECT_THAT(
      Log(), ElementsAre("mkcert.cpp:# Exec mkdir failed",
                         "mkcert.cpp:# Failed to generate directory for /usr/kova/a/x.csr",
                         "mkcert.cpp:# Exec mkdir failed", "mkcert.cpp:# generate directory failed",
                         "mkcert.cpp:# Failed to generate csr config file",
                         StartsWith("process:# /usr/bin/openssl failed [1]"),
                         "mkcert.cpp:# Create CSR failed, command",
                         "mkcert.cpp:# Failed to chmod /usr/kova/r/x.csr "
                         "(No such file or directory)"));
}

class SignTest : public MkcertTest {
 protected:
  SignTest() {
    Write(kKey, "key");
    Write(kRequest, "request");
    Write(kSerialFile, "01");
    ca_.extension_file = kConfig;
    ca_.request = kRequest;
    ca_.certificate = "/usr/kova/o/ca.pem";
    ca_.key = kKey;
    ca_.self_signed = true;
    ca_.days = 366;
    server_ = ca_;
    server_.self_signed = false;
    server_.serial_file = kSerialFile;
    server_.output = "/usr/kova/o/cert.pem";
    server_.aliases = "a.example;10.0.0.1";
  }

  SigningOrder ca_;
  SigningOrder server_;
};

TEST_F(SignTest, SignsForItselfWithTheseArguments) {
  const ReplacedTool openssl("openssl", kRecorder);
  EXPECT_TRUE(SignCertificate(ca_));
  EXPECT_THAT(Args(),
              ElementsAre("x509", "-extfile", kConfig, "-days", "366", "-in", kRequest, "-req",
                          "-sha256", "-out", "/usr/kova/o/ca.pem", "-signkey", kKey));
  EXPECT_EQ(Mode("/usr/kova/o/ca.pem"), 0400U);
  EXPECT_THAT(Read(kConfig), testing::HasSubstr("sslCA"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(SignTest, SignsForOthersWithTheseArguments) {
  const ReplacedTool openssl("openssl", kRecorder);
  EXPECT_TRUE(SignCertificate(server_));
  EXPECT_THAT(Args(), ElementsAre("x509", "-extfile", kConfig, "-days", "366", "-in", kRequest,
                                  "-req", "-sha256", "-out", "/usr/kova/o/cert.pem", "-CAserial",
                                  kSerialFile, "-CA", "/usr/kova/o/ca.pem", "-CAkey", kKey));
  EXPECT_EQ(Mode("/usr/kova/o/cert.pem"), 0400U);
  EXPECT_THAT(Read(kConfig),
              testing::HasSubstr("subjectAltName = \"DNS:a.example, IP:10.0.0.1\"\n"));
}

TEST_F(SignTest, LogsMissingInput) {
  const auto fails = [&](auto change, bool self_signed, const std::string& message) {
    SigningOrder order = self_signed ? ca_ : server_;
    change(order);
    syslog_.Clear();
    EXPECT_FALSE(SignCertificate(order));
    EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# " + message));
  };
  const ReplacedTool openssl("openssl", kRecorder);
  const std::string invalid = "genCrt params invalid";
  for (const bool self_signed : {true, false}) {
    fails([](auto& order) { order.extension_file = ""; }, self_signed, invalid);
    fails([](auto& order) { order.request = ""; }, self_signed, invalid);
    fails([](auto& order) { order.certificate = ""; }, self_signed, invalid);
    fails([](auto& order) { order.key = ""; }, self_signed, invalid);
    fails([](auto& order) { order.days = 0; }, self_signed, invalid);
    fails([](auto& order) { order.days = -1; }, self_signed, invalid);
    fails([](auto& order) { order.request = "/none"; }, self_signed, "Csr is not existed");
    fails([](auto& order) { order.key = "/none"; }, self_signed, "Key is not existed");
  }
  fails([](auto& order) { order.serial_file = ""; }, false, invalid);
  fails([](auto& order) { order.output = ""; }, false, invalid);
  fails([](auto& order) { order.serial_file = "/none"; }, false, "Serial file is not existed");
  EXPECT_FALSE(Exists("/usr/kova/args"));
}

TEST_F(SignTest, GoesOnWithTheExtensionsOnDiskWhenTheAliasesAreTooMany) {
  const ReplacedTool openssl("openssl", kRecorder);
  Write(kConfig, "as it was");
  server_.aliases = std::string(600, ';');
  EXPECT_TRUE(SignCertificate(server_));
  EXPECT_EQ(Read(kConfig), "as it was");
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# String separate failed."));
}

TEST_F(SignTest, GoesOnWithTheExtensionsOnDiskWhenThereIsNoMemoryForTheAliases) {
  const ReplacedTool openssl("openssl", kRecorder);
  Write(kConfig, "as it was");
  list_fails = true;
  EXPECT_TRUE(SignCertificate(server_));
  list_fails = false;
  EXPECT_EQ(Read(kConfig), "as it was");
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Out of memory!! size=512"));
}

TEST_F(SignTest, GoesOnWhenTheExtensionsCannotBeWritten) {
  const ReplacedTool openssl("openssl", kRecorder);
  test::MakeFolder(kConfig);
  EXPECT_TRUE(SignCertificate(ca_));
  EXPECT_TRUE(SignCertificate(server_));
  EXPECT_THAT(Log(),
              ElementsAre(StartsWith("mkcert.cpp:# fopen "), StartsWith("mkcert.cpp:# fopen ")));
}

TEST_F(SignTest, LogsWhatCannotBeMade) {
  Write("/usr/kova/a", "a file");
  server_.output = "/usr/kova/a/cert.pem";
  EXPECT_FALSE(SignCertificate(server_));
  {
    const ReplacedTool openssl("openssl", "exit 1");
    EXPECT_FALSE(SignCertificate(ca_));
  }
  {
    const ReplacedTool openssl("openssl", "exit 0");
    EXPECT_FALSE(SignCertificate(ca_));
  }
  EXPECT_THAT(
      Log(), ElementsAre("mkcert.cpp:# Exec mkdir failed", "mkcert.cpp:# generate directory failed",
                         StartsWith("process:# /usr/bin/openssl failed [1]"),
                         "mkcert.cpp:# Error when execute",
                         "mkcert.cpp:# Failed to chmod /usr/kova/o/ca.pem "
                         "(No such file or directory)"));
}

class MatchKeyTest : public MkcertTest {
 protected:
  MatchKeyTest() {
    Write(kCert, pair_.certificate, 0400);
    Write(kKey, pair_.key, 0400);
  }
  static constexpr char kCert[] = "/usr/kova/k/cert.pem";
  const test::PemPair pair_ = MakePemPair(60);
};

TEST_F(MatchKeyTest, TellsWhetherTheyBelongTogether) {
  EXPECT_EQ(MatchOf(kCert, kKey), "yes");
  Write(kKey, MakePemPair(60).key);
  EXPECT_EQ(MatchOf(kCert, kKey), "no");
  EXPECT_EQ(ERR_peek_error(), 0U) << "the mismatch's reason is left for whoever asks next";
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MatchKeyTest, StripsAByteOrderMark) {
  Write(kCert, "\xEF\xBB\xBF" + pair_.certificate, 0400);
  Write(kKey, "\xEF\xBB\xBF" + pair_.key, 0400);
  EXPECT_EQ(MatchOf(kCert, kKey), "yes");
  EXPECT_EQ(Read(kCert), pair_.certificate);
  EXPECT_EQ(Read(kKey), pair_.key);
  EXPECT_EQ(Mode(kKey), 0400U);
}

TEST_F(MatchKeyTest, CannotTellWhenAFileCannotBeOpened) {
  for (const std::string& path : {std::string(kCert), std::string(kKey)}) {
    syslog_.Clear();
    unopenable = path;
    EXPECT_EQ(MatchOf(kCert, kKey), "unknown");
    EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Failed to BIO_new_file. [" + path + "]"));
  }
  unopenable.clear();
}

TEST_F(MatchKeyTest, CannotTellWithoutBoth) {
  EXPECT_EQ(MatchOf("/usr/kova/none", kKey), "unknown");
  EXPECT_EQ(MatchOf(kCert, "/usr/kova/none"), "unknown");
  Write(kCert, "nonsense");
  EXPECT_EQ(MatchOf(kCert, kKey), "unknown");
  Write(kCert, pair_.certificate);
  Write(kKey, "nonsense");
  EXPECT_EQ(MatchOf(kCert, kKey), "unknown");
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Failed to strip utf8 BOM",
                                 "mkcert.cpp:# Failed to strip utf8 BOM",
                                 "mkcert.cpp:# Failed to read cert from /usr/kova/k/cert.pem",
                                 "mkcert.cpp:# Failed to read private key from "
                                 "/usr/kova/k/key.pem"));
}

TEST_F(MatchKeyTest, AsksNobodyForAPassPhrase) {
  ASSERT_EQ(KLIBCExec("/usr/bin/openssl", {"pkcs8", "-topk8", "-in", kKey, "-out",
                                           "/usr/kova/k/enc.pem", "-passout", "pass:secret"}),
            0);
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) _exit(MatchOf(kCert, "/usr/kova/k/enc.pem") == "unknown" ? 0 : 1);
  char question[64] = {};
  const ssize_t asked = read(terminal, question, sizeof question - 1);  // ends with the child
  close(terminal);
  kill(child, SIGKILL);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_LE(asked, 0) << question;
  EXPECT_EQ(status, 0);
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Failed to read private key from "
                                 "/usr/kova/k/enc.pem"));
}

}  // namespace
}  // namespace kova::mkcert
