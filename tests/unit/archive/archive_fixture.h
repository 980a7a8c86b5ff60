// A host with an empty archive, for tests of the archive and of what deploys from it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "syslog_capture.h"

namespace kova::test {

inline constexpr char kRoot[] = "/usr/kova/etc/certificate/_archive";
inline constexpr char kInfo[] = "/usr/kova/etc/certificate/_archive/INFO";

// The user that owns deployed files in these tests, as it stands in the host's /etc/passwd.
inline constexpr char kOwner[] = "certowner";
inline constexpr uid_t kOwnerUid = 4101;
inline constexpr gid_t kOwnerGid = 4102;

class ArchiveTest : public testing::Test {
 protected:
  ArchiveTest();
  ~ArchiveTest() override;

  // Syslog so far, lines of the product and of the platform's error triple as "#".
  std::vector<std::string> Log();

  // A certificate folder with the three required files, each holding "ID NAME".
  static void AddFolder(const std::string& id);
  // The same, entered in the index with those services.
  static void AddCertificate(const std::string& id,
                             const Json::Value& services = Json::Value(Json::arrayValue));
  // An executable in the folder of platform hooks.
  static void AddHook(const std::string& name, const std::string& script);

  SyslogCapture syslog_;
};

std::string Folder(const std::string& id);
void MakeFolder(const std::string& path);
void RemoveAll(const std::string& path);
bool Exists(const std::string& path);  // without following a link
void Write(const std::string& path, const std::string& content, mode_t mode = 0600);
void WriteProgram(const std::string& path, const std::string& script);
std::string Read(const std::string& path);  // fails the test when there is no such file
mode_t Mode(const std::string& path);
std::vector<std::string> Names(const std::string& folder);  // sorted

void WriteInfo(const Json::Value& info);
Json::Value ReadInfo();
Json::Value Services(const std::string& id);

// A valid ServiceObject of a system component.
Json::Value ServiceObject(const std::string& subscriber, const std::string& service,
                          const std::string& owner = kOwner);
Json::Value List(const std::vector<Json::Value>& objects);

// "Broken [INFO]." in the log, for an INFO that does not exist.
inline constexpr char kNoInfo[] =
    "utils.cpp:# Broken [/usr/kova/etc/certificate/_archive/INFO].[0x0002 files.cpp:#]";
// The same, for an INFO that is not what it should be.
inline constexpr char kBadInfo[] =
    "utils.cpp:# Broken [/usr/kova/etc/certificate/_archive/INFO].[0x004A index.cpp:#]";

// As long as it lives, /usr/bin/NAME is a shell script. In it, "$REAL" is the tool itself.
class ReplacedTool {
 public:
  ReplacedTool(const std::string& name, const std::string& script);
  ~ReplacedTool();
  ReplacedTool(const ReplacedTool&) = delete;
  ReplacedTool& operator=(const ReplacedTool&) = delete;

 private:
  std::string path_;
};

// As long as it lives, the openssl tool does not search for RSA keys of 2048 bits: it is dealt ones
// that were made once, a different one each time for a while. For tests that are not about the
// making of keys. A ReplacedTool may be put on top.
class DealtKeys {
 public:
  DealtKeys();
  ~DealtKeys();
  DealtKeys(const DealtKeys&) = delete;
  DealtKeys& operator=(const DealtKeys&) = delete;
};

// What the note of a service folder's replacement says while it lasts.
void NoteReplacement(const std::string& destination);

}  // namespace kova::test
