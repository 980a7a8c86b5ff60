#include "curl_watch.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <utility>

namespace {

std::vector<std::string> calls;
std::set<CURLoption> refused;
bool refuse_all = false;
bool give_no_handle = false;
kova::test::CurlReceiver header_receiver;
kova::test::CurlReceiver body_receiver;
kova::test::CurlWatch::Perform replaced_perform;
CURLMsg performed;
int steps = 0;

void NoteReceiver(CURLoption option, void* value) {
  if (option == CURLOPT_HEADERFUNCTION) {
    header_receiver.function = reinterpret_cast<curl_write_callback>(value);
  }
  if (option == CURLOPT_HEADERDATA) header_receiver.data = value;
  if (option == CURLOPT_WRITEFUNCTION) {
    body_receiver.function = reinterpret_cast<curl_write_callback>(value);
  }
  if (option == CURLOPT_WRITEDATA) body_receiver.data = value;
}

std::string Describe(CURLoption option, void* value) {
  const curl_easyoption* known = curl_easy_option_by_id(option);
  const std::string name = known == nullptr ? std::to_string(option) : known->name;
  switch (known == nullptr ? CURLOT_OBJECT : known->type) {
    case CURLOT_LONG:
    case CURLOT_VALUES:
      return name + "=" + std::to_string(reinterpret_cast<intptr_t>(value));
    case CURLOT_STRING:
      return name + "=" + static_cast<const char*>(value);
    case CURLOT_SLIST: {
      std::string text = name + "=";
      for (auto* entry = static_cast<curl_slist*>(value); entry != nullptr; entry = entry->next) {
        text += "[" + std::string(entry->data) + "]";
      }
      return text;
    }
    default:
      return name;
  }
}

}  // namespace

// The linker's names for the real functions and their replacements.
extern "C" {
CURL* __real_curl_easy_init();                             // NOLINT
CURLcode __real_curl_easy_setopt(CURL*, CURLoption, ...);  // NOLINT
CURLMcode __real_curl_multi_perform(CURLM*, int*);         // NOLINT
CURLMsg* __real_curl_multi_info_read(CURLM*, int*);        // NOLINT
void __real_curl_easy_cleanup(CURL*);                      // NOLINT
void __real_curl_slist_free_all(curl_slist*);              // NOLINT
CURLcode __real_curl_global_init(long);                    // NOLINT
void __real_curl_global_cleanup();                         // NOLINT

CURL* __wrap_curl_easy_init() {  // NOLINT
  return give_no_handle ? nullptr : __real_curl_easy_init();
}

CURLcode __wrap_curl_easy_setopt(CURL* handle, unsigned number, ...) {  // NOLINT
  std::va_list args;
  va_start(args, number);
  void* value = va_arg(args, void*);  // a long is passed the same way
  va_end(args);
  const auto option = static_cast<CURLoption>(number);
  calls.push_back(Describe(option, value));
  NoteReceiver(option, value);
  if (refuse_all || refused.count(option) != 0) return CURLE_UNKNOWN_OPTION;
  return __real_curl_easy_setopt(handle, option, value);
}

CURLMcode __wrap_curl_multi_perform(CURLM* multi, int* running) {  // NOLINT
  ++steps;
  if (!replaced_perform) return __real_curl_multi_perform(multi, running);
  performed = CURLMsg();
  performed.msg = CURLMSG_DONE;
  performed.data.result = replaced_perform(header_receiver, body_receiver);
  *running = 0;
  return CURLM_OK;
}

CURLMsg* __wrap_curl_multi_info_read(CURLM* multi, int* left) {  // NOLINT
  return replaced_perform ? &performed : __real_curl_multi_info_read(multi, left);
}

void __wrap_curl_easy_cleanup(CURL* handle) {  // NOLINT
  calls.emplace_back("cleanup");
  __real_curl_easy_cleanup(handle);
}

void __wrap_curl_slist_free_all(curl_slist* list) {  // NOLINT
  calls.emplace_back("free list");
  __real_curl_slist_free_all(list);
}

CURLcode __wrap_curl_global_init(long flags) {  // NOLINT
  calls.push_back("global init " + std::to_string(flags));
  return __real_curl_global_init(flags);
}

void __wrap_curl_global_cleanup() {  // NOLINT
  calls.emplace_back("global cleanup");
  __real_curl_global_cleanup();
}
}

namespace kova::test {

CurlWatch::CurlWatch() {
  calls.clear();
  steps = 0;
}

CurlWatch::~CurlWatch() {
  refused.clear();
  refuse_all = false;
  give_no_handle = false;
  replaced_perform = nullptr;
}

std::vector<std::string> CurlWatch::Calls() const { return calls; }
int CurlWatch::Steps() const { return steps; }
void CurlWatch::Refuse(std::set<CURLoption> options) { refused = std::move(options); }
void CurlWatch::RefuseAll() { refuse_all = true; }
void CurlWatch::GiveNoHandle() { give_no_handle = true; }
void CurlWatch::PerformBy(Perform perform) { replaced_perform = std::move(perform); }

}  // namespace kova::test
