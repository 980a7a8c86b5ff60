#include "lifecycle/failure.h"

#include <exception>

#include "base/json.h"
#include "base/log.h"
#include "platform/signals.h"

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

std::string ErrorToLine(const SLError& error) {
  std::string text = ErrorToJson(error);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

void LogFailure(const char* what, const std::string& subject, const SLError& error) {
  LogError(kTag, "%s failed. [%s][%d][%s]", what, OnOneLine(subject).c_str(), error.code,
           OnOneLine(error.message).c_str());
}

std::optional<SLError> Capture(const std::function<void()>& work) {
  try {
    work();
    return std::nullopt;
  } catch (const platform::Interruption&) {
    throw;  // no failure of this work alone
  } catch (const SLError& error) {
    return error;
  } catch (const std::exception& error) {
    return Error(code::kLocal, kTag, error.what());
  } catch (...) {
    return Error(code::kLocal, kTag, "Catch unknow exepction.");
  }
}

}  // namespace kova
