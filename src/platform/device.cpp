#include "platform/device.h"

#include <json/value.h>
#include <sys/utsname.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/version.h"

namespace kova::platform {
namespace {

constexpr char kTag[] = "device";
constexpr char kMachineIdPath[] = "/etc/machine-id";
constexpr char kProductSerialPath[] = "/sys/class/dmi/id/product_serial";
constexpr char kDefaultNameServer[] = "ns1.ddns.kova.example";
constexpr char kBlanks[] = " \t\r\n";

// The record is asked for a dozen times in one run; one line about its fault is enough.
void ReportOnce(int error) {
  static bool reported = false;
  if (reported) return;
  reported = true;
  PlatformLog(LOG_ERR, kTag, __LINE__, "Unusable device record [%s]: %s", kDeviceRecordPath,
              error == 0 ? "not a JSON object" : std::strerror(error));
}

// The record, or an empty object. It is read anew each time: a run can last longer than an edit.
Json::Value Record() {
  Json::Value record;
  if (ReadJsonObject(kDeviceRecordPath, record)) return record;
  if (errno != ENOENT) ReportOnce(errno);
  return {Json::objectValue};
}

bool IsControl(unsigned char c) { return c < 0x20 || c == 0x7f; }

std::string TextOf(const Json::Value& object, const char* key) {
  const Json::Value& value = object[key];
  if (!value.isString()) return {};
  std::string text = value.asString();
  if (std::any_of(text.begin(), text.end(), IsControl)) return {};
  return text;
}

std::string RecordText(const char* key) { return TextOf(Record(), key); }

std::string FirstLine(const char* path) {
  std::string text;
  if (!ReadWholeFile(path, text)) return {};
  text.erase(std::min(text.find('\n'), text.size()));
  text.erase(text.find_last_not_of(kBlanks) + 1);
  text.erase(0, std::min(text.find_first_not_of(kBlanks), text.size()));
  return text;
}

std::string HexDigits(const std::string& text) {
  static constexpr char kDigits[] = "0123456789abcdefABCDEF";
  std::string digits;
  std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
               [](char c) { return c != '\0' && std::strchr(kDigits, c) != nullptr; });
  return digits;
}

// 0, or the errno of the failure.
int Fill(const std::string& text, char* buffer, size_t size) {
  if (text.empty()) return ENOENT;
  if (text.size() >= size) return ENOBUFS;
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  return 0;
}

int Answer(const std::string& text, char* buffer, int size, int line = __builtin_LINE()) {
  const int error = size > 0 ? Fill(text, buffer, static_cast<size_t>(size)) : EINVAL;
  if (error == 0) return 0;
  RecordError(error, __builtin_FILE(), line);
  return -1;
}

std::string DefaultUserAgent(const std::string& service_tag) {
  utsname host{};
  uname(&host);
  return std::string(KOVA_PROGRAM_NAME "/" KOVA_PROGRAM_VERSION " (") + service_tag + "; Linux " +
         host.machine + ")";
}

}  // namespace

std::string DdnsNameServer() {
  const std::string configured = RecordText("ddns_name_server");
  return configured.empty() ? kDefaultNameServer : configured;
}

std::string MacAddressText() {
  std::string digits = HexDigits(RecordText("mac_address"));
  if (digits.empty()) digits = HexDigits(FirstMacAddress());
  if (digits.empty()) digits = HexDigits(MachineId());
  return digits;
}

bool RouterUsesUpnp() { return RecordText("router") != "none"; }

std::string WebFrontendUnit() { return RecordText("web_frontend"); }

std::string MachineId() { return FirstLine(kMachineIdPath); }

}  // namespace kova::platform

using namespace kova::platform;

int KLIBBoxinfoUserAgentGet(const char* service_tag, char* buffer, int size) {
  const std::string configured = RecordText("user_agent");
  return Answer(configured.empty() ? DefaultUserAgent(service_tag) : configured, buffer, size);
}

int KLIBGetSerialNumber(char* buffer, int size) {
  const std::string configured = RecordText("serial_number");
  return Answer(configured.empty() ? FirstLine(kProductSerialPath) : configured, buffer, size);
}

int KOVADDNSGetKovaHostname(char* buffer, int size) {
  return Answer(RecordText("ddns_hostname"), buffer, size);
}

int KOVATOLUAccountGet(KOVA_TOLU_ACCOUNT* account) {
  const Json::Value record = Record();
  const Json::Value& stored = record["account"];
  KOVA_TOLU_ACCOUNT found{};
  if (!stored.isObject()) return Answer({}, found.id, sizeof found.id);
  if (Answer(TextOf(stored, "id"), found.id, sizeof found.id) != 0) return -1;
  if (Answer(TextOf(stored, "auth_key"), found.auth_key, sizeof found.auth_key) != 0) return -1;
  *account = found;
  return 0;
}
