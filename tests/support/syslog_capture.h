// Listens on /dev/log, so that tests can assert what the program says. Only usable inside the
// sandbox, where /dev is private.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kova::test {

struct SyslogMessage {
  int priority;      // LOG_ERR, LOG_DEBUG, ...
  std::string text;  // without time and program name
};

class SyslogCapture {
 public:
  SyslogCapture();
  ~SyslogCapture();
  SyslogCapture(const SyslogCapture&) = delete;
  SyslogCapture& operator=(const SyslogCapture&) = delete;

  // Everything received so far, oldest first.
  std::vector<SyslogMessage> Messages();

  // The same as texts, with the line number of a leading "TAG:LINE " replaced by "#", so that
  // "utils.cpp:57 Invalid cert id: [x]" reads "utils.cpp:# Invalid cert id: [x]".
  std::vector<std::string> Texts();

  // Forgets what was received.
  void Clear();

  // Stops listening, as a system log that ends: who is connected finds out with its next message.
  void HangUp();

 private:
  void Drain();  // mutex_ held

  int socket_;
  std::atomic<bool> stopping_ = false;
  std::mutex mutex_;
  std::thread reader_;  // senders would block on a full queue otherwise
  std::vector<SyslogMessage> messages_;
};

}  // namespace kova::test
