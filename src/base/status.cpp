#include "base/status.h"

#include <cstring>
#include <utility>

#include "platform/error.h"

namespace kova {

Status Status::Failed(std::string attempt, std::string object, std::string why) {
  Status status;
  status.failure_ = Failure{std::move(attempt), std::move(object), std::move(why)};
  return status;
}

Status Status::FailedCall(std::string attempt, std::string object) {
  return Failed(std::move(attempt), std::move(object), ErrorWords(KLIBCErrGet()));
}

std::string Status::Text() const {
  if (!failure_) return {};
  std::string text = failure_->attempt;
  if (!failure_->object.empty()) text += (text.empty() ? "" : " ") + failure_->object;
  if (!failure_->why.empty()) text += (text.empty() ? "" : ": ") + failure_->why;
  return text;
}

std::string ErrorWords(int error) { return error == 0 ? std::string() : std::strerror(error); }

}  // namespace kova
