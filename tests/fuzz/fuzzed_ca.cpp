#include "fuzzed_ca.h"

#include <utility>

#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "host_files.h"
#include "platform/clock.h"
#include "property.h"

namespace kova::fuzz {
namespace {

FuzzedCa* current = nullptr;

enum class Change { kNone, kStatus, kSplice, kBody, kHeader, kDrop, kMaxValue = kDrop };

// Replaces a piece of the text by bytes of the fuzzer.
void Splice(FuzzedDataProvider& data, std::string& text) {
  const auto begin = data.ConsumeIntegralInRange<size_t>(0, text.size());
  const auto length = data.ConsumeIntegralInRange<size_t>(0, text.size() - begin);
  text.replace(begin, length, data.ConsumeRandomLengthString(200));
}

}  // namespace

FuzzedCa::FuzzedCa(FuzzedDataProvider& data,
                   std::function<HttpResponse(const std::string& url)> good)
    : data_(data), good_(std::move(good)) {
  current = this;
}

FuzzedCa::~FuzzedCa() { current = nullptr; }

HttpResponse FuzzedCa::Answer(const std::string& url) {
  HttpResponse reply = good_(url);
  switch (data_.ConsumeEnum<Change>()) {
    case Change::kNone:
      break;
    case Change::kStatus:
      reply.status = data_.PickValueInArray({200, 201, 202, 204, 400, 403, 404, 409, 429, 500, 0});
      break;
    case Change::kSplice:
      Splice(data_, reply.body);
      break;
    case Change::kBody:
      reply.body = data_.ConsumeRandomLengthString(2000);
      break;
    case Change::kHeader:
      Splice(data_, reply.header);
      break;
    case Change::kDrop:
      throw SLError(code::kUnreachable, "client_network", 0, "Server is not reachable.");
  }
  return reply;
}

HttpResponse Reply(long status, const std::string& body, const std::string& header) {
  HttpResponse reply;
  reply.ok = true;
  reply.status = status;
  reply.header = "HTTP/1.1 " + std::to_string(status) + " S\r\nReplay-Nonce: nonce\r\n" + header;
  reply.body = body;
  return reply;
}

void PrepareHost() {
  test::ResetHost();
  test::WriteFile(test::kSettingsFile,
                  R"({"skipdns01": true, "asyncfinalize": true, "quickvalidation": true,
                      "noncerefill": true, "strictencoding": true})");
  platform::SetSleeper([](std::chrono::milliseconds) {});
}

void CheckIssuance(const std::function<void()>& issue) {
  bool issued = true;
  try {
    issue();
  } catch (const SLError&) {
    issued = false;
  }
  KOVA_REQUIRE(test::ListFolder(test::kTokenFolder).empty());
  auto entries = test::ListFolder(test::kArchive);
  if (!issued) {
    KOVA_REQUIRE(entries.empty());
    return;
  }
  // The mark that says whose folder it is, until its issuance is through, comes before it.
  KOVA_REQUIRE(entries.size() == 2 && entries[0] == "." + entries[1] + ".unfinished");
  const std::string folder = std::string(test::kArchive) + "/" + entries[1];
  KOVA_REQUIRE(KeepUnfinished(folder));
  KOVA_REQUIRE(test::ListFolder(test::kArchive).size() == 1);
  KOVA_REQUIRE(test::ListFolder(folder).size() == 5);
  KOVA_REQUIRE(test::ModeOf(folder + "/privkey.pem") == 0400);
}

}  // namespace kova::fuzz

// The linker sends the clients' requests here.
#define TEXT_SYMBOL "RKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"
kova::HttpResponse FuzzedGet(kova::HttpClient* self, const std::string& url) __asm__(
    "__wrap__ZN4kova10HttpClient3GetE" TEXT_SYMBOL);
kova::HttpResponse FuzzedPost(
    kova::HttpClient* self, const std::string& url,
    const Json::Value& json) __asm__("__wrap__ZN4kova10HttpClient4PostE" TEXT_SYMBOL
                                     "RKN4Json5ValueE");

kova::HttpResponse FuzzedGet(kova::HttpClient* /*self*/, const std::string& url) {
  return kova::fuzz::current->Answer(url);
}

kova::HttpResponse FuzzedPost(kova::HttpClient* /*self*/, const std::string& url,
                              const Json::Value& /*json*/) {
  return kova::fuzz::current->Answer(url);
}
