// What every test of the early protocol's client starts from: an empty account store and archive, a
// scripted CA on loopback, waits that are counted instead of waited for.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "acme_v1/client_v1.h"
#include "loopback_server.h"
#include "sleep_counter.h"

namespace kova::test {

inline constexpr char kStore[] = "/usr/kova/etc/letsencrypt/account";
inline constexpr char kArchive[] = "/usr/kova/etc/certificate/_archive";
inline constexpr char kContact[] = "me@mail.example";
inline constexpr char kDomain[] = "host.example.net";

// "CODE FILE MESSAGE" of the SLError that `work` throws, "std WHAT" of another standard exception,
// "none" when it throws nothing.
std::string ErrorOf(const std::function<void()>& work);

// The progress messages of `work` at that level, without those of the transport.
std::vector<std::string> StepsOf(const std::function<void()>& work, int level = 1);

void WriteFile(const std::string& path, const std::string& content);
std::string FileText(const std::string& path);
int ModeOf(const std::string& path);
std::vector<std::string> FolderEntries(const std::string& path);  // full paths, sorted

// A signed request, taken apart.
struct SignedBody {
  explicit SignedBody(const HttpRequest& request);

  Json::Value document;        // the whole body
  std::string protected_text;  // decoded
  std::string payload_text;
  Json::Value payload;
};

class V1Test : public testing::Test {
 protected:
  V1Test();
  ~V1Test() override;

  // The directory, with a nonce, at the client's URL.
  void ServeDirectory();
  // Serves the directory and fetches it, with the known account key loaded.
  void MakeReady();
  // A stored account with the known key; returns its folder.
  std::string StoreAccount(const std::string& name, const Json::Value& info);
  Json::Value AccountInfo(int version = 1) const;

  // The reply with a nonce of its own in front of its headers.
  HttpReply Fresh(HttpReply reply);
  HttpReply FreshJson(int status, const std::string& body, std::vector<std::string> headers = {});

  // The signed requests of that route, taken apart.
  std::vector<SignedBody> Posts(const std::string& route) const;

  LoopbackServer server;
  SleepCounter sleeps;
  AcmeV1Client client{server.Url("/directory")};

 private:
  int nonces_ = 0;
};

}  // namespace kova::test
