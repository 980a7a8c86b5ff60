#include "lifecycle/renewal_adviser.h"

#include <ctime>
#include <optional>

#include "base/log.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_history.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

void TellProblem(const std::string& id, const std::string& problem) {
  if (problem.empty()) return;
  LogError(kTag, "No renewal information for [%s]: %s", id.c_str(), OnOneLine(problem).c_str());
}

// Once: the advice remembers what was told.
void TellExplanation(const std::string& id, const RenewalAdvice& advice,
                     const RenewalAnswer& answer) {
  if (!answer.info || answer.info->explanation_url.empty()) return;
  if (answer.info->explanation_url == advice.explanation_url) return;
  LogWarning(kTag, "The CA explains when [%s] is to be renewed: %s", id.c_str(),
             answer.info->explanation_url.c_str());
}

RenewalAdvice KeptAdvice(const std::string& id, const std::string& identifier) {
  RenewalAdvice advice = ReadRenewalHistory(id).advice.value_or(RenewalAdvice());
  if (advice.certificate == identifier) return advice;
  advice = RenewalAdvice();
  advice.certificate = identifier;
  return advice;
}

// The rest of the history is read anew: the question may have taken a while.
void Keep(const std::string& id, const RenewalAdvice& advice) {
  TellUnusableHistory(id);
  RenewalHistory history = ReadRenewalHistory(id);
  history.advice = advice;
  WriteRenewalHistory(id, history);
}

}  // namespace

bool RenewalAdviser::Advises(const std::string& id, const std::string& directory,
                             const std::string& identifier) {
  RenewalAdvice advice = KeptAdvice(id, identifier);
  if (MayAskAgain(advice, std::time(nullptr))) {
    const std::optional<SLError> failure = Capture([&] { Ask(id, directory, advice); });
    if (failure) TellProblem(id, failure->message);
  }
  return IsAdvisedBefore(advice, std::time(nullptr) + TimeBetweenRuns(settings_));
}

void RenewalAdviser::Ask(const std::string& id, const std::string& directory,
                         RenewalAdvice& advice) {
  const std::optional<RenewalAnswer> answer = SourceOf(directory).Ask(advice.certificate);
  if (!answer) return;
  TellProblem(id, answer->problem);
  TellExplanation(id, advice, *answer);
  if (!answer->ask_again_in) return;
  TakeAnswer(advice, *answer, std::time(nullptr));
  Keep(id, advice);
}

RenewalInfoSource& RenewalAdviser::SourceOf(const std::string& directory) {
  return sources_.try_emplace(directory, directory, settings_).first->second;
}

}  // namespace kova
