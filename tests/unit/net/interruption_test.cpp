#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <future>

#include "base/sl_error.h"
#include "curl_watch.h"
#include "loopback_server.h"
#include "net/client_network.h"
#include "platform/signals.h"

namespace kova {
namespace {

using test::CurlWatch;
using test::HttpReply;
using test::HttpRequest;
using test::LoopbackServer;

enum End { kReplied = 1, kFailed, kInterrupted, kInterruptedHavingTried };

// How a request ends in a process whose signals are taken.
int EndOfRequest(const std::string& url) {
  const CurlWatch watch;
  try {
    HttpClient().Get(url);
    return kReplied;
  } catch (const SLError&) {
    return kFailed;
  } catch (const platform::Interruption&) {
    return watch.Steps() == 0 ? kInterrupted : kInterruptedHavingTried;
  }
}

pid_t InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child != 0) return child;
  platform::RunInterruptibly("tag", [&]() -> int { _exit(body()); });
  _exit(0);
}

int EndOf(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(InterruptedRequest, IsNotBegunAfterTheSignal) {
  const LoopbackServer server;
  EXPECT_EQ(EndOf(InChild([&] {
              std::raise(SIGTERM);
              return EndOfRequest(server.Url());
            })),
            kInterrupted);
}

TEST(InterruptedRequest, IsBrokenOffAndNotCalledAFailure) {
  std::atomic<pid_t> child = 0;
  std::promise<void> ended;
  std::future<void> end = ended.get_future();
  LoopbackServer server;
  server.On("GET /", [&](const HttpRequest&) {
    while (child == 0) usleep(1000);
    kill(child, SIGTERM);
    end.wait_for(std::chrono::seconds(5));  // who waits for the reply gets one
    return HttpReply::Text(200, "late");
  });
  child = InChild([&] { return EndOfRequest(server.Url()); });
  EXPECT_EQ(EndOf(child), kInterruptedHavingTried);
  ended.set_value();
}

TEST(FailedRequest, DoesNotWaitForTheSearchOfItsServersName) {
  const CurlWatch watch;
  EXPECT_THROW(HttpClient().Get("http://nowhere.invalid/"), SLError);
  EXPECT_THAT(watch.Calls(), testing::Contains("QUICK_EXIT=1"));
}

}  // namespace
}  // namespace kova
