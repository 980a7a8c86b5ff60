#include "v1_fixture.h"

#include "../crypto/known_keys.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "output_capture.h"

namespace kova::test {
namespace {

bool IsOfTransport(const std::string& line) {
  for (const char* start : {"GET Request: ", "Post Request: ", "Failed to KLIBBoxinfo"}) {
    if (line.starts_with(start)) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> StepsOf(const std::function<void()>& work, int level) {
  OutputCapture output(level);
  try {
    work();
  } catch (const SLError&) {
  }
  std::vector<std::string> steps = output.Debug();
  std::erase_if(steps, IsOfTransport);
  return steps;
}

SignedBody::SignedBody(const HttpRequest& request) {
  EXPECT_TRUE(JsonFromText(request.body, document)) << request.body;
  // What is left without the unprotected header is what today's protocol sends.
  Json::Value rest = document;
  rest.removeMember("header");
  jws = ReadJws(JsonToString(rest));
  protected_text = jws.header_text;
  payload_text = jws.payload;
  EXPECT_TRUE(JsonFromText(payload_text, payload)) << payload_text;
}

V1Test::V1Test() : client(client_.emplace(server.Url("/directory"), Settings())) {
  ResetHost();
  WriteFile(kSettingsFile, "{}");
}

V1Test::~V1Test() = default;

void V1Test::ServeDirectory() {
  Json::Value directory(Json::objectValue);
  for (const char* name : {"new-authz", "new-cert", "new-reg", "revoke-cert"}) {
    directory[name] = server.Url(std::string("/") + name);
  }
  server.On("GET /directory", FreshJson(200, JsonToString(directory)));
}

void V1Test::UseSettings(const std::string& settings) {
  WriteFile(kSettingsFile, settings);
  client_.emplace(server.Url("/directory"), Settings::Read());  // in place: `client` stays
  client.FetchDirectory();
  client.LoadAccountKey(std::string(kAccountStore) + "/ready");
}

void V1Test::MakeReady() {
  ServeDirectory();
  client.FetchDirectory();
  client.LoadAccountKey(StoreAccount("ready", AccountInfo()));
}

std::string V1Test::StoreAccount(const std::string& name, const Json::Value& info) {
  const std::string folder = std::string(kAccountStore) + "/" + name;
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
