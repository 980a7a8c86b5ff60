#include "scripted_ca.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <sstream>
#include <utility>

namespace kova::test {
namespace {

constexpr char kUrn[] = "urn:ietf:params:acme:error:";

std::string Text(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  std::istringstream stream(text);
  stream >> value;
  return value;
}

bool HasNonce(const HttpReply& reply) {
  return std::any_of(reply.headers.begin(), reply.headers.end(), [](const std::string& line) {
    return line.starts_with("Replay-Nonce:") || line.starts_with("replay-nonce:");
  });
}

std::string Certificate(char fill) {
  return "-----BEGIN CERTIFICATE-----\n" + std::string(64, fill) + "\n-----END CERTIFICATE-----";
}

}  // namespace

ScriptedCa::ScriptedCa() {
  server_.Otherwise([this](const HttpRequest& request) { return Answer(request); });
}

void ScriptedCa::Once(const std::string& route, const HttpReply& reply, int times) {
  const std::scoped_lock lock(mutex_);
  for (int i = 0; i < times; ++i) once_[route].push_back(reply);
}

void ScriptedCa::Always(const std::string& route, const HttpReply& reply) {
  const std::scoped_lock lock(mutex_);
  always_[route] = reply;
}

void ScriptedCa::Reset() {
  const std::scoped_lock lock(mutex_);
  once_.clear();
  always_.clear();
  server_.ClearRequests();
}

void ScriptedCa::Before(const std::string& route, std::function<void()> look) {
  const std::scoped_lock lock(mutex_);
  before_[route] = std::move(look);
}

void ScriptedCa::StopNonces() {
  const std::scoped_lock lock(mutex_);
  gives_nonces_ = false;
}

void ScriptedCa::GiveRenewalInfo(const HttpReply& reply) {
  const std::scoped_lock lock(mutex_);
  renewal_info_ = reply;
}

std::string ScriptedCa::Window(const std::string& start, const std::string& end) {
  Json::Value answer(Json::objectValue);
  answer["suggestedWindow"]["start"] = start;
  answer["suggestedWindow"]["end"] = end;
  return Text(answer);
}

void ScriptedCa::Offer(const std::vector<std::string>& types) {
  const std::scoped_lock lock(mutex_);
  types_ = types;
}

std::vector<HttpRequest> ScriptedCa::Requests(const std::string& route) const {
  std::vector<HttpRequest> matching;
  for (const HttpRequest& request : server_.Requests()) {
    if (request.Route() == route) matching.push_back(request);
  }
  return matching;
}

std::vector<Jws> ScriptedCa::Signed(const std::string& route) const {
  std::vector<Jws> requests;
  for (const HttpRequest& request : server_.Requests()) {
    if (request.method != "POST" || (!route.empty() && request.Route() != route)) continue;
    requests.push_back(ReadJws(request.body));
  }
  return requests;
}

std::string ScriptedCa::Directory() const {
  Json::Value directory(Json::objectValue);
  directory["newNonce"] = Url("/new-nonce");
  directory["newAccount"] = Url("/new-account");
  directory["newOrder"] = Url("/new-order");
  directory["revokeCert"] = Url("/revoke");
  directory["keyChange"] = Url("/key-change");
  if (renewal_info_) directory["renewalInfo"] = Url("/renewal-info");
  directory["meta"]["termsOfService"] = "https://ca.example/terms";
  return Text(directory);
}

std::string ScriptedCa::Order(const std::string& status, bool with_certificate) const {
  Json::Value order(Json::objectValue);
  order["status"] = status;
  order["authorizations"] = Json::Value(Json::arrayValue);
  for (size_t i = 0; i < names_.size(); ++i) {
    order["authorizations"].append(Url("/authz/" + std::to_string(i)));
  }
  order["finalize"] = Url("/order/1/finalize");
  if (with_certificate) order["certificate"] = Url("/certificate/1");
  return Text(order);
}

std::string ScriptedCa::Authorization(const std::string& name, const std::string& status) const {
  return AuthorizationOf(0, {name, status});
}

std::string ScriptedCa::AuthorizationOf(size_t index, const Name& name) const {
  Json::Value document(Json::objectValue);
  document["identifier"]["type"] = "dns";
  document["identifier"]["value"] = name.name;
  document["status"] = name.status;
  document["challenges"] = Json::Value(Json::arrayValue);
  for (const std::string& type : types_) {
    Json::Value challenge(Json::objectValue);
    challenge["type"] = type;
    challenge["url"] = Url("/challenge/" + std::to_string(index) + "/" + type);
    challenge["token"] = Token(name.name);
    challenge["status"] = name.status;
    document["challenges"].append(challenge);
  }
  return Text(document);
}

std::string ScriptedCa::FailedAuthorization(const std::string& name, const std::string& type,
                                            const std::string& problem,
                                            const std::string& detail) const {
  Json::Value document = Parsed(Authorization(name, "invalid"));
  for (Json::Value& challenge : document["challenges"]) {
    if (challenge["type"] != type) continue;
    challenge["error"]["type"] = kUrn + problem;
    challenge["error"]["detail"] = detail;
  }
  return Text(document);
}

HttpReply ScriptedCa::Problem(int status, const std::string& type, const std::string& detail) {
  Json::Value problem(Json::objectValue);
  problem["type"] = kUrn + type;
  problem["detail"] = detail;
  return HttpReply::Json(status, Text(problem));
}

std::string ScriptedCa::Leaf() { return Certificate('L'); }
std::string ScriptedCa::Issuer() { return Certificate('I') + "\n"; }

HttpReply ScriptedCa::Answer(const HttpRequest& request) {
  const std::scoped_lock lock(mutex_);
  if (const auto look = before_.find(request.Route()); look != before_.end()) look->second();
  HttpReply reply = Scripted(request);
  if (gives_nonces_ && !HasNonce(reply)) {
    reply.headers.push_back("Replay-Nonce: nonce-" + std::to_string(next_nonce_++));
  }
  return reply;
}

HttpReply ScriptedCa::Scripted(const HttpRequest& request) {
  std::deque<HttpReply>& queue = once_[request.Route()];
  if (!queue.empty()) {
    HttpReply reply = queue.front();
    queue.pop_front();
    return reply;
  }
  const auto always = always_.find(request.Route());
  return always == always_.end() ? Usual(request) : always->second;
}

HttpReply ScriptedCa::Usual(const HttpRequest& request) {
  const std::string route = request.Route();
  if (route == "GET /directory") return HttpReply::Json(200, Directory());
  if (route == "GET /new-nonce") return HttpReply::Text(204, "");
  if (route == "POST /new-account") {
    return HttpReply::Json(201, R"({"status":"valid"})", {"Location: " + AccountUrl()});
  }
  if (route == "POST /new-order") return NewOrder(request);
  if (route == "POST /order/1") return HttpReply::Json(200, Order("valid", true));
  if (route == "POST /order/1/finalize") return HttpReply::Json(200, Order("valid", true));
  if (route == "POST /certificate/1") return HttpReply::Text(200, Chain());
  if (route == "POST /revoke") return HttpReply::Text(200, "");
  if (renewal_info_ && route.starts_with("GET /renewal-info/")) return *renewal_info_;
  return OfName(request);
}

HttpReply ScriptedCa::NewOrder(const HttpRequest& request) {
  names_.clear();
  const Json::Value payload = Parsed(ReadJws(request.body).payload);
  for (const Json::Value& identifier : payload["identifiers"]) {
    const std::string name = identifier["value"].asString();
    names_.push_back({name.starts_with("*.") ? name.substr(2) : name, "pending"});
  }
  return HttpReply::Json(201, Order("pending", false), {"Location: " + Url("/order/1")});
}

// "/authz/N" and "/challenge/N/TYPE".
HttpReply ScriptedCa::OfName(const HttpRequest& request) {
  const bool is_challenge = request.path.starts_with("/challenge/");
  if (!is_challenge && !request.path.starts_with("/authz/")) return HttpReply::Text(404, "");
  const size_t index = std::stoul(request.path.substr(request.path.find('/', 1) + 1));
  if (index >= names_.size()) return HttpReply::Text(404, "");
  if (!is_challenge) return HttpReply::Json(200, AuthorizationOf(index, names_[index]));
  names_[index].status = "valid";
  return HttpReply::Json(200, "{}");
}

}  // namespace kova::test
