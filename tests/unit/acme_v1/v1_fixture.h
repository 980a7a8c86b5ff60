// What every test of the early protocol's client starts from: an empty account store and archive, a
// scripted CA on loopback, waits that are counted instead of waited for.
#pragma once

#include <gtest/gtest.h>
#include <json/value.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "acme_v1/client_v1.h"
#include "error_text.h"
#include "host_files.h"
#include "jws_reader.h"
#include "loopback_server.h"
#include "sleep_counter.h"

namespace kova::test {

inline constexpr char kContact[] = "me@mail.example";
inline constexpr char kDomain[] = "host.example.net";

// The progress messages of `work` at that level, without those of the transport. An SLError ends
// the work, nothing more: the messages on the way to it are what counts.
std::vector<std::string> StepsOf(const std::function<void()>& work, int level = 1);

// A signed request, taken apart; its signature is the caller's to check.
struct SignedBody {
  explicit SignedBody(const HttpRequest& request);

  Json::Value document;  // the whole body
  Jws jws;
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
  // A ready client with these settings in the place of the one that was ready.
  void UseSettings(const std::string& settings);
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

 private:
  int nonces_ = 0;
  std::optional<AcmeV1Client> client_;

 protected:
  AcmeV1Client& client;
};

}  // namespace kova::test
