#include "archive_fixture.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "base/json.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

// Everything that the code under test may have left outside the archive.
constexpr const char* kTraces[] = {
    "/usr/kova",
    "/usr/local/etc/certificate",
    "/usr/libexec/certificate.d",
    "/usr/local/libexec/certificate.d",
    "/tmp/kovacertificate_info.lock",
    "/run/kova-certificate-deploy.lock",
    "/run/kova-mkcert.lock",
    "/run/kova-certificate",
};

void AddOwner() {
  static bool added = false;
  if (added) return;
  std::ofstream("/etc/passwd", std::ios::app)
      << kOwner << ":x:" << kOwnerUid << ":" << kOwnerGid << "::/:/usr/sbin/nologin\n";
  added = true;
}

}  // namespace

ArchiveTest::ArchiveTest() {
  AddOwner();
  for (const char* trace : kTraces) RemoveAll(trace);
  MakeFolder(kRoot);
}

ArchiveTest::~ArchiveTest() {
  for (const char* trace : kTraces) RemoveAll(trace);
}

std::vector<std::string> ArchiveTest::Log() {
  static const std::regex triple(R"((\[0x[0-9A-F]{4} [\w.]*):\d+\])");
  std::vector<std::string> texts = syslog_.Texts();
  for (std::string& text : texts) text = std::regex_replace(text, triple, "$1:#]");
  return texts;
}

void ArchiveTest::AddFolder(const std::string& id) {
  for (const char* name : {"cert.pem", "privkey.pem", "fullchain.pem"}) {
    Write(Folder(id) + "/" + name, id + " " + name + "\n", 0400);
  }
}

void ArchiveTest::AddCertificate(const std::string& id, const Json::Value& services) {
  AddFolder(id);
  Json::Value info = Exists(kInfo) ? ReadInfo() : Json::Value(Json::objectValue);
  info[id]["services"] = services;
  WriteInfo(info);
}

void ArchiveTest::AddHook(const std::string& name, const std::string& script) {
  WriteProgram("/usr/kova/libexec/platform.d/" + name, script);
}

std::string Folder(const std::string& id) { return std::string(kRoot) + "/" + id; }

void MakeFolder(const std::string& path) { fs::create_directories(path); }

void RemoveAll(const std::string& path) { fs::remove_all(path); }

bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

void Write(const std::string& path, const std::string& content, mode_t mode) {
  MakeFolder(fs::path(path).parent_path());
  std::ofstream(path, std::ios::trunc) << content;
  if (chmod(path.c_str(), mode) != 0) ADD_FAILURE() << "cannot write " << path;
}

void WriteProgram(const std::string& path, const std::string& script) {
  Write(path, "#!/bin/sh\n" + script, 0755);
}

std::string Read(const std::string& path) {
  std::ifstream file(path);
  if (!file) ADD_FAILURE() << "cannot read " << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

mode_t Mode(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) ADD_FAILURE() << "no " << path;
  return status.st_mode & 07777;
}

std::vector<std::string> Names(const std::string& folder) {
  std::vector<std::string> names;
  if (!fs::is_directory(folder)) return names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void WriteInfo(const Json::Value& info) { Write(kInfo, JsonStyledText(info)); }

Json::Value ReadInfo() {
  Json::Value info;
  if (!JsonFromText(Read(kInfo), info)) ADD_FAILURE() << "INFO is not JSON";
  return info;
}

Json::Value Services(const std::string& id) { return ReadInfo()[id]["services"]; }

Json::Value ServiceObject(const std::string& subscriber, const std::string& service,
                          const std::string& owner) {
  Json::Value object;
  object["display_name"] = service + " of " + subscriber;
  object["subscriber"] = subscriber;
  object["service"] = service;
  object["isPkg"] = false;
  object["owner"] = owner;
  return object;
}

Json::Value List(const std::vector<Json::Value>& objects) {
  Json::Value list(Json::arrayValue);
  for (const Json::Value& object : objects) list.append(object);
  return list;
}

ReplacedTool::ReplacedTool(const std::string& name, const std::string& script)
    : path_("/usr/bin/" + name) {
  fs::rename(path_, path_ + ".real");
  WriteProgram(path_, "REAL=" + path_ + ".real\n" + script);
}

ReplacedTool::~ReplacedTool() { fs::rename(path_ + ".real", path_); }

namespace {

constexpr char kOpenssl[] = "/usr/bin/openssl";
constexpr char kGenuine[] = "/usr/bin/openssl.genuine";
constexpr int kDealt = 8;

void MakeKeysOnce() {
  if (Exists("/tmp/dealt")) return;
  MakeFolder("/tmp/dealt");
  for (int i = 0; i < kDealt; ++i) {
    const std::string make = std::string(kOpenssl) + " genrsa -out /tmp/dealt/" +
                             std::to_string(i) + " 2048 2>/dev/null";
    EXPECT_EQ(std::system(make.c_str()), 0);
  }
  Write("/tmp/dealt/next", "0\n");
}

constexpr char kDealer[] = R"(
if [ "$1" = genrsa ]; then
  for word; do [ "$before" = -out ] && out=$word; before=$word; done
  read -r next < /tmp/dealt/next
  echo $(( (next + 1) % 8 )) > /tmp/dealt/next
  [ "$word" = 2048 ] && exec /usr/bin/cat "/tmp/dealt/$next" > "$out"
fi
exec /usr/bin/openssl.genuine "$@"
)";

}  // namespace

DealtKeys::DealtKeys() {
  MakeKeysOnce();
  fs::rename(kOpenssl, kGenuine);
  WriteProgram(kOpenssl, kDealer);
}

DealtKeys::~DealtKeys() { fs::rename(kGenuine, kOpenssl); }

void NoteReplacement(const std::string& destination) {
  Write(std::string(kRoot) + "/SERVICE_MOVE", "{\"destination\": \"" + destination + "\"}");
}

}  // namespace kova::test
