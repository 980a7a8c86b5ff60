#include "net/connections.h"

#include <gtest/gtest.h>

#include <csignal>

namespace {

// What a write to a server that is gone would do while the connections are closed.
void (*on_a_broken_pipe)(int) = SIG_ERR;

}  // namespace

// The linker puts the second in the place of libcurl's own call, and keeps that as the first.
CURLMcode RealCleanup(CURLM* multi) asm("__real_curl_multi_cleanup");
CURLMcode WatchedCleanup(CURLM* multi) asm("__wrap_curl_multi_cleanup");

CURLMcode WatchedCleanup(CURLM* multi) {
  struct sigaction now {};
  sigaction(SIGPIPE, nullptr, &now);
  on_a_broken_pipe = now.sa_handler;
  return RealCleanup(multi);
}

namespace kova {
namespace {

TEST(Connections, AreClosedWithoutFearOfABrokenPipe) {
  ASSERT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
  on_a_broken_pipe = SIG_ERR;
  { const Connections connections; }
  EXPECT_EQ(on_a_broken_pipe, SIG_IGN);
  EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL) << "as it was before";
}

}  // namespace
}  // namespace kova
