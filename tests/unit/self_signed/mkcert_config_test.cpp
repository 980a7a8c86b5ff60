#include "self_signed/mkcert_config.h"

#include "../archive/archive_fixture.h"
#include "self_signed/serial_file.h"

namespace kova::mkcert {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Mode;
using test::Read;
using test::Write;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr char kPath[] = "/usr/kova/etc/ssl/cfg.d/x.cfg";
constexpr char kTriple[] = R"(\[0x[0-9A-F]{4} [a-z_.]*:#\])";

constexpr char kServerLines[] =
    "extensions = x509v3\n"
    "[ x509v3 ]\n"
    "subjectAltName   = email:copy\n"
    "nsComment        = \"mod_ssl generated custom server certificate\"\n"
    "nsCertType       = server\n"
    "keyUsage         = critical, digitalSignature, keyEncipherment\n"
    "extendedKeyUsage = serverAuth, clientAuth\n";

class MkcertConfigTest : public ArchiveTest {
 protected:
  static std::string WithAliases(const std::string& aliases) {
    const KovaSzListPtr list = KLIBCSzListAlloc(512);
    EXPECT_GE(KLIBCStrSep(aliases, ";", *list), 0);
    EXPECT_TRUE(WriteServerExtensionFile(kPath, list.get()));
    return Read(kPath);
  }
};

TEST_F(MkcertConfigTest, KeepsTheAgreedPlaces) {
  EXPECT_STREQ(kCaRequestConfig, "/usr/kova/etc/ssl/cfg.d/ca.cfg");
  EXPECT_STREQ(kCaExtensionFile, "/usr/kova/etc/ssl/cfg.d/ca.crt.cfg");
  EXPECT_STREQ(kServerRequestConfig, "/usr/kova/etc/ssl/cfg.d/server.cfg");
  EXPECT_STREQ(kServerExtensionFile, "/usr/kova/etc/ssl/cfg.d/server.crt.cfg");
}

TEST_F(MkcertConfigTest, MakesParentFolders) {
  EXPECT_TRUE(MakeParentDirectory("/usr/kova/a/b/c.pem"));
  EXPECT_EQ(Mode("/usr/kova/a/b"), 0755U);
  EXPECT_FALSE(Exists("/usr/kova/a/b/c.pem"));
  EXPECT_TRUE(MakeParentDirectory("/usr/kova/a/b/c.pem"));
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MkcertConfigTest, LogsParentFoldersThatItCannotMake) {
  EXPECT_FALSE(MakeParentDirectory(""));
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(MakeParentDirectory("/usr/kova/a/b.pem"));
  EXPECT_THAT(Log(),
              ElementsAre("mkcert.cpp:# Failed to generate directory with invalid parameters",
                          "mkcert.cpp:# Exec mkdir failed"));
}

TEST_F(MkcertConfigTest, WritesTheCaExtensions) {
  Write(kPath,
        "something older that is longer than what follows it, by far. " + std::string(1000, 'x'));
  EXPECT_TRUE(WriteCaExtensionFile(kPath));
  EXPECT_EQ(Read(kPath),
            "extensions = x509v3\n"
            "[ x509v3 ]\n"
            "subjectAltName   = email:copy\n"
            "basicConstraints = CA:true,pathlen:0\n"
            "nsComment        = \"mod_ssl generated custom CA certificate\"\n"
            "nsCertType       = sslCA\n");
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(MkcertConfigTest, LogsCaExtensionsThatItCannotWrite) {
  EXPECT_FALSE(WriteCaExtensionFile(""));
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(WriteCaExtensionFile("/usr/kova/a/b"));
  test::MakeFolder(kPath);
  EXPECT_FALSE(WriteCaExtensionFile(kPath));
  EXPECT_THAT(
      Log(),
      ElementsAre(MatchesRegex("mkcert.cpp:# CA CNF name is null or empty." + std::string(kTriple)),
                  "mkcert.cpp:# Exec mkdir failed", "mkcert.cpp:# generate directory failed",
                  "mkcert.cpp:# fopen /usr/kova/etc/ssl/cfg.d/x.cfg failed"
                  "[0x0015 mkcert_config.cpp:#]"));
}

TEST_F(MkcertConfigTest, NamesTheAliasesOfAServer) {
  EXPECT_EQ(WithAliases("a.example;;10.0.0.1"),
            kServerLines + std::string("subjectAltName = \"DNS:a.example, IP:10.0.0.1\"\n"));
  EXPECT_EQ(WithAliases("kova"), kServerLines + std::string("subjectAltName = \"DNS:kova\"\n"));
  EXPECT_EQ(WithAliases("::1;*.b.example"),
            kServerLines + std::string("subjectAltName = \"IP:::1, DNS:*.b.example\"\n"));
}

TEST_F(MkcertConfigTest, HasOneAlternativeNameLineWithoutAliases) {
  EXPECT_EQ(WithAliases(""), kServerLines);
  EXPECT_EQ(WithAliases(";;;"), kServerLines);
}

TEST_F(MkcertConfigTest, LogsServerExtensionsThatItCannotWrite) {
  const KovaSzListPtr list = KLIBCSzListAlloc(1);
  EXPECT_FALSE(WriteServerExtensionFile("", nullptr));
  EXPECT_FALSE(WriteServerExtensionFile(kPath, nullptr));
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(WriteServerExtensionFile("/usr/kova/a/b", list.get()));
  test::MakeFolder(kPath);
  EXPECT_FALSE(WriteServerExtensionFile(kPath, list.get()));
  EXPECT_THAT(Log(),
              ElementsAre(MatchesRegex("mkcert.cpp:# Server CNF name is null or empty." +
                                       std::string(kTriple)),
                          "mkcert.cpp:# alias list is null", "mkcert.cpp:# Exec mkdir failed",
                          "mkcert.cpp:# generate directory failed",
                          "mkcert.cpp:# fopen /usr/kova/etc/ssl/cfg.d/x.cfg failed"
                          "[0x0015 mkcert_config.cpp:#]"));
}

TEST_F(MkcertConfigTest, WritesEverySubjectField) {
  const Subject subject{"ZZ", "State", "Tarvel", "Kova Inc.", "Unit", "kova", "a@b.example"};
  EXPECT_TRUE(WriteRequestConfig(kPath, &subject));
  EXPECT_EQ(Read(kPath),
            "[ req ]\n"
            "default_bits                    = 1024\n"
            "distinguished_name              = req_DN\n"
            "prompt                          = no\n"
            "[ req_DN ]\n"
            "countryName                     = 'ZZ'\n"
            "stateOrProvinceName             = 'State'\n"
            "localityName                    = 'Tarvel'\n"
            "0.organizationName              = 'Kova Inc.'\n"
            "organizationalUnitName          = 'Unit'\n"
            "commonName                      = 'kova'\n"
            "emailAddress                    = 'a@b.example'\n");
}

TEST_F(MkcertConfigTest, LeavesEmptySubjectFieldsOut) {
  Subject subject;
  subject.common_name = "kova";
  EXPECT_TRUE(WriteRequestConfig(kPath, &subject));
  EXPECT_EQ(Read(kPath),
            "[ req ]\n"
            "default_bits                    = 1024\n"
            "distinguished_name              = req_DN\n"
            "prompt                          = no\n"
            "[ req_DN ]\n"
            "commonName                      = 'kova'\n");
}

TEST_F(MkcertConfigTest, LogsRequestConfigurationsThatItCannotWrite) {
  const Subject subject;
  EXPECT_FALSE(WriteRequestConfig("", &subject));
  EXPECT_FALSE(WriteRequestConfig(kPath, nullptr));
  Write("/usr/kova/a", "a file");
  EXPECT_FALSE(WriteRequestConfig("/usr/kova/a/b", &subject));
  test::MakeFolder(kPath);
  EXPECT_FALSE(WriteRequestConfig(kPath, &subject));
  const std::string insane = "mkcert.cpp:# modifyCsrCfg sanity failed." + std::string(kTriple);
  EXPECT_THAT(
      Log(), ElementsAre(MatchesRegex(insane), MatchesRegex(insane),
                         "mkcert.cpp:# Exec mkdir failed", "mkcert.cpp:# generate directory failed",
                         "mkcert.cpp:# Open /usr/kova/etc/ssl/cfg.d/x.cfg failed"
                         "[0x0015 mkcert_config.cpp:#]"));
}

class SerialFileTest : public ArchiveTest {};

TEST_F(SerialFileTest, JoinsTheTimeAndTheEndOfTheMac) {
  EXPECT_EQ(FirstSerial(1700000000, "0011325a6b7c"), "17000000006b7c");
  EXPECT_EQ(FirstSerial(1700000000, "0011325a6b7c8"), "17000000006b7c81");
}

TEST_F(SerialFileTest, AShortMacContributesNothing) {
  EXPECT_EQ(FirstSerial(1700000000, "0011325a"), "1700000000");
  EXPECT_EQ(FirstSerial(1700000000, ""), "1700000000");
  EXPECT_EQ(FirstSerial(170000000, "0011"), "1700000001");
}

TEST_F(SerialFileTest, HoldsOnlyWhatTheToolCanRead) {
  EXPECT_EQ(FirstSerial(1700000000, "00:11:32:5a:6b:7c"), "17000000005a6b7c");
}

TEST_F(SerialFileTest, StaysWithinItsBuffer) {
  EXPECT_EQ(FirstSerial(1700000000, std::string(31, 'a')),
            "1700000000" + std::string(21, 'a') + "1");
}

TEST_F(SerialFileTest, IsMadeFromTheDeviceRecordOnAStockHost) {
  EXPECT_FALSE(HasSerialFile());
  Write("/usr/kova/etc/device.json", R"({"mac_address": "00:11:32:5a:6b:7c"})");
  EXPECT_TRUE(CreateSerialFile());
  EXPECT_THAT(Read(kSerialFile), MatchesRegex("[0-9]{10}6b7c"));
  EXPECT_TRUE(HasSerialFile());
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(SerialFileTest, AnEmptyFileDoesNotCount) {
  Write(kSerialFile, "");
  EXPECT_FALSE(HasSerialFile());
}

TEST_F(SerialFileTest, LogsAFileThatItCannotWrite) {
  test::MakeFolder(kSerialFile);
  EXPECT_FALSE(CreateSerialFile());
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Open /usr/kova/etc/ssl/.mkcert.serial failed"));
}

}  // namespace
}  // namespace kova::mkcert
