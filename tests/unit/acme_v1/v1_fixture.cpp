#include "v1_fixture.h"

#include <openssl/evp.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "../crypto/known_keys.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/sl_error.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

std::string Base64UrlDecode(std::string text) {
  std::replace(text.begin(), text.end(), '-', '+');
  std::replace(text.begin(), text.end(), '_', '/');
  const size_t padding = (4 - text.size() % 4) % 4;
  text.append(padding, '=');
  std::string bytes(text.size() / 4 * 3, '\0');
  const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
  EXPECT_GE(length, 0) << text;
  bytes.resize(static_cast<size_t>(std::max(0, length)) - padding);
  return bytes;
}

bool IsOfTransport(const std::string& line) {
  for (const char* start : {"GET Request: ", "Post Request: ", "Failed to KLIBBoxinfo"}) {
    if (line.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

std::string ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const SLError& error) {
    EXPECT_GT(error.line, 0);
    return std::to_string(error.code) + " " + error.file + " " + error.message;
  } catch (const std::exception& error) {
    return std::string("std ") + error.what();
  }
  return "none";
}

std::vector<std::string> StepsOf(const std::function<void()>& work, int level) {
  SetDebugLevel(level);
  testing::internal::CaptureStdout();
  try {
    work();
  } catch (const SLError&) {
    // The messages on the way to it are what counts.
  }
  std::fflush(stdout);
  std::istringstream output(testing::internal::GetCapturedStdout());
  SetDebugLevel(0);
  std::vector<std::string> steps;
  for (std::string line; std::getline(output, line);) {
    const std::string prefix = "DEBUG: ";
    if (!line.starts_with(prefix)) continue;  // the rest of a message of several lines
    line.erase(0, prefix.size());
    if (!IsOfTransport(line)) steps.push_back(line);
  }
  return steps;
}

void WriteFile(const std::string& path, const std::string& content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << content;
}

std::string FileText(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

int ModeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

std::vector<std::string> FolderEntries(const std::string& path) {
  std::vector<std::string> entries;
  if (!fs::exists(path)) return entries;
  for (const auto& entry : fs::directory_iterator(path)) entries.push_back(entry.path());
  std::sort(entries.begin(), entries.end());
  return entries;
}

SignedBody::SignedBody(const HttpRequest& request) {
  EXPECT_TRUE(JsonFromText(request.body, document)) << request.body;
  protected_text = Base64UrlDecode(TextMember(document, "protected"));
  payload_text = Base64UrlDecode(TextMember(document, "payload"));
  EXPECT_TRUE(JsonFromText(payload_text, payload)) << payload_text;
}

V1Test::V1Test() {
  fs::remove_all("/usr/kova/etc/letsencrypt");
  fs::remove_all(kArchive);
  fs::create_directories(kArchive);
  fs::remove_all("/var/lib/letsencrypt");
  fs::remove_all("/usr/kova/libexec/platform.d");
  WriteFile("/usr/kova/etc/device.json", R"({"router": "none"})");
  WriteFile("/usr/kova/etc.defaults/letsencrypt/letsencrypt.default", "{}");
  SetDebugLevel(0);
}

V1Test::~V1Test() = default;

void V1Test::ServeDirectory() {
  Json::Value directory(Json::objectValue);
  for (const char* name : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
    directory[name] = server.Url(std::string("/") + name);
  }
  server.On("GET /directory", FreshJson(200, JsonToString(directory)));
}

void V1Test::MakeReady() {
  ServeDirectory();
  client.FetchDirectory();
  client.LoadAccountKey(StoreAccount("ready", AccountInfo()));
}

std::string V1Test::StoreAccount(const std::string& name, const Json::Value& info) {
  const std::string folder = std::string(kStore) + "/" + name;
  WriteFile(folder + "/info.json", JsonToString(info));
  WriteFile(folder + "/private_key.json", JsonToString(Rfc7515Key()));
  return folder;
}

Json::Value V1Test::AccountInfo(int version) const {
  Json::Value info(Json::objectValue);
  info["contact"] = kContact;
  info["directory"] = server.Url("/directory");
  info["version"] = version;
  return info;
}

HttpReply V1Test::Fresh(HttpReply reply) {
  reply.headers.insert(reply.headers.begin(), "Replay-Nonce: nonce" + std::to_string(++nonces_));
  return reply;
}

HttpReply V1Test::FreshJson(int status, const std::string& body, std::vector<std::string> headers) {
  return Fresh(HttpReply::Json(status, body, std::move(headers)));
}

std::vector<SignedBody> V1Test::Posts(const std::string& route) const {
  std::vector<SignedBody> posts;
  for (const HttpRequest& request : server.Requests()) {
    if (request.Route() == route) posts.emplace_back(request);
  }
  return posts;
}

}  // namespace kova::test
