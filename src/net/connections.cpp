#include "net/connections.h"

#include "platform/signals.h"

namespace kova {
namespace {

constexpr int kLongestPauseMs = 1000;

// Until something moves, the run is to end, or for a second.
bool Wait(CURLM* multi) {
  curl_waitfd wake_up{platform::InterruptionFd(), CURL_WAIT_POLLIN, 0};
  const unsigned watched = wake_up.fd < 0 ? 0 : 1;
  return curl_multi_poll(multi, &wake_up, watched, kLongestPauseMs, nullptr) == CURLM_OK;
}

}  // namespace

Connections::Connections() : multi_(curl_multi_init()) {}

// The farewell to a server that is gone already must not end the process.
Connections::~Connections() {
  const SigpipeIgnored ignored;
  multi_.reset();
}

CURLcode Connections::Run(CURL* handle) {
  if (curl_multi_add_handle(multi_.get(), handle) != CURLM_OK) return CURLE_FAILED_INIT;
  const CURLcode result = Drive();
  // What was broken off may be looking for a name still: the search ends by itself.
  if (result != CURLE_OK) (curl_easy_setopt)(handle, CURLOPT_QUICK_EXIT, 1L);
  curl_multi_remove_handle(multi_.get(), handle);
  return result;
}

CURLcode Connections::Drive() {
  int running = 1;
  while (true) {
    if (curl_multi_perform(multi_.get(), &running) != CURLM_OK) return CURLE_FAILED_INIT;
    if (running == 0) break;
    if (platform::Interrupted()) return CURLE_ABORTED_BY_CALLBACK;
    if (!Wait(multi_.get())) return CURLE_FAILED_INIT;
  }
  int left = 0;
  const CURLMsg* message = curl_multi_info_read(multi_.get(), &left);
  return message == nullptr ? CURLE_FAILED_INIT : message->data.result;
}

}  // namespace kova
