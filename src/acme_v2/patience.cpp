#include "acme_v2/patience.h"

#include <algorithm>
#include <utility>

#include "base/progress.h"
#include "base/sl_error.h"
#include "net/headers.h"

namespace kova {
namespace {

using std::chrono::milliseconds;

constexpr char kTag[] = "client_v2";
constexpr milliseconds kLongestPause{2000};
constexpr std::chrono::seconds kLimit{60};

}  // namespace

void Patience::PauseAfter(const HttpResponse& reply) {
  const milliseconds pause = PauseOf(reply);
  const auto spent = std::max<Clock::duration>(paused_, Clock::now() - start_);
  if (spent + pause > kLimit) throw Error(code::kRefused, kTag, timeout_);
  WaitVisibly(pause);
  paused_ += pause;
}

milliseconds Patience::PauseOf(const HttpResponse& reply) {
  if (const auto asked = RetryAfter(reply)) return *asked;
  return std::exchange(next_, std::min(2 * next_, kLongestPause));
}

}  // namespace kova
