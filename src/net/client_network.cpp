#include "net/client_network.h"

#include <curl/curl.h>

#include <utility>

#include "base/debug.h"
#include "base/json.h"
#include "base/settings.h"
#include "base/sl_error.h"
#include "net/connections.h"
#include "net/curl_request.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_network";

}  // namespace

HttpOptions HttpOptionsOf(const Settings& settings) {
  HttpOptions options;
  options.keep_connections = settings.keep_connections;
  if (settings.transfer_timeout > 0) {
    options.transfer_timeout = std::chrono::seconds(settings.transfer_timeout);
  }
  return options;
}

HttpGlobal::HttpGlobal() { curl_global_init(CURL_GLOBAL_ALL); }
HttpGlobal::~HttpGlobal() { curl_global_cleanup(); }

HttpClient::HttpClient(HttpOptions options)
    : options_(options),
      kept_(options.keep_connections ? std::make_unique<Connections>() : nullptr) {}

HttpClient::~HttpClient() = default;

HttpResponse HttpClient::Perform(CurlRequest& request) {
  if (kept_) return request.Perform(*kept_);
  Connections own;
  return request.Perform(own);
}

HttpResponse HttpClient::Get(const std::string& url) {
  CurlRequest request(url, options_);
  DebugStep("GET Request: %s", url.c_str());
  return Perform(request);
}

HttpResponse HttpClient::GetUnredirected(const std::string& url) {
  CurlRequest request(url, options_);
  request.RefuseRedirects();
  DebugStep("GET Request: %s", url.c_str());
  return Perform(request);
}

HttpResponse HttpClient::Post(const std::string& url, const Json::Value& json) {
  CurlRequest request(url, options_);
  std::string text = JsonToString(json);
  DebugStep("Post Request: %s", url.c_str());
  if (DebugLevel() >= 2) DebugDetail("Post value: %s", JsonStyledText(json).c_str());
  request.SetPost(std::move(text));
  return Perform(request);
}

std::string TrustStorePath() {
  const std::unique_ptr<CURL, CurlFree<curl_easy_cleanup>> handle(curl_easy_init());
  const char* path = nullptr;
  if (!handle || curl_easy_getinfo(handle.get(), CURLINFO_CAINFO, &path) != CURLE_OK) return {};
  return path == nullptr ? std::string() : std::string(path);
}

std::string GetBody(const HttpResponse& response) {
  if (!response.ok) throw Error(code::kProtocol, kTag, "request not sucess.");
  return response.body;
}

Json::Value GetJsonBody(const HttpResponse& response) {
  Json::Value value;
  if (!JsonFromText(GetBody(response), value)) {
    throw Error(code::kProtocol, kTag, "body is not json.");
  }
  return value;
}

}  // namespace kova
