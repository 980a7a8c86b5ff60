#include "lifecycle/failure.h"

#include <cstdio>
#include <exception>

#include "base/json.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

}  // namespace

std::string ErrorToJson(const SLError& error) {
  Json::Value document(Json::objectValue);
  document["error"] = error.code;
  document["msg"] = error.message;
  document["file"] = error.file;
  return JsonFastText(document);
}

void PrintFailure(const SLError& error) { std::fputs(ErrorToJson(error).c_str(), stdout); }

void PrintSuccess(const char* name, const std::string& value) {
  Json::Value document(Json::objectValue);
  document["error"] = 0;
  document[name] = value;
  std::fputs(JsonStyledText(document).c_str(), stdout);
}

std::optional<SLError> Capture(const std::function<void()>& work) {
  try {
    work();
    return std::nullopt;
  } catch (const SLError& error) {
    return error;
  } catch (const std::exception& error) {
    return Error(code::kLocal, kTag, error.what());
  } catch (...) {
    return Error(code::kLocal, kTag, "Catch unknow exepction.");
  }
}

}  // namespace kova
