// Text that claims to be JSON: of files, of CAs, of the dynamic-DNS service.
#include <cstdint>
#include <string>

#include "acme/reply.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "property.h"

namespace {

// What was parsed is written and read again without a change.
void RoundTrip(const Json::Value& value) {
  if (!value.isObject() && !value.isArray()) return;
  for (const std::string& text : {kova::JsonFastText(value), kova::JsonStyledText(value)}) {
    Json::Value again;
    // A number beyond all bounds is written as a text or as one that no reader takes.
    if (kova::JsonFromText(text, again)) (void)kova::JsonToString(again);
  }
}

void AskForMembers(const Json::Value& value) {
  for (const char* name : {"", "type", "detail", "status", "services"}) {
    KOVA_REQUIRE(kova::HasMember(value, name) == (value.isObject() && value.isMember(name)));
    KOVA_REQUIRE(kova::TextMember(value, name).empty() || kova::Member(value, name).isString());
  }
  (void)kova::IsProblem(value, kova::kBadNonceProblem);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kova::HttpResponse response;
  response.ok = true;
  response.body.assign(reinterpret_cast<const char*>(data), size);
  Json::Value value;
  const bool parsed = kova::JsonFromText(response.body, value);
  KOVA_REQUIRE(parsed || value.isNull());
  RoundTrip(value);
  AskForMembers(value);
  try {
    KOVA_REQUIRE(kova::ObjectBody("client_v2", response).isObject() && parsed);
    (void)kova::ProblemDetail(response);
  } catch (const kova::SLError& error) {
    KOVA_REQUIRE(error.code == kova::code::kProtocol && !value.isObject());
  }
  return 0;
}
