#include "platform/router_answer.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "platform/strings.h"

namespace kova::platform {
namespace {

constexpr std::string_view kDone = "ok";
constexpr std::string_view kGone = "gone";
constexpr std::string_view kRefused = "refused ";
constexpr std::string_view kGateway = "gateway";
constexpr std::string_view kNone = "none";

std::string ResultText(int result) {
  if (result == 0) return std::string(kDone);
  if (result == kGatewayUnreachable) return std::string(kGone);
  return std::string(kRefused) + std::to_string(result);
}

bool ReadResult(std::string_view text, int& result) {
  if (text == kDone) result = 0;
  if (text == kGone) result = kGatewayUnreachable;
  if (text == kDone || text == kGone) return true;
  if (!text.starts_with(kRefused)) return false;
  const std::string_view number = text.substr(kRefused.size());
  (void)std::from_chars(number.begin(), number.end(), result);
  // Written as this program writes it, so without leading zeros and the like.
  return result > 0 && result <= upnp_error::kHighest && ResultText(result) == text;
}

bool ReadGrants(std::string_view text, size_t rules, std::vector<bool>& granted) {
  if (text.size() != rules || text.find_first_not_of("01") != std::string_view::npos) return false;
  for (const char c : text) granted.push_back(c == '1');
  return true;
}

// One word without blanks or controls.
bool IsWord(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](unsigned char c) { return c > 0x20 && c < 0x7f; });
}

// The next line, without its end, taken off the text. Nothing when there is no whole one.
std::optional<std::string_view> NextLine(std::string_view& text) {
  const size_t end = text.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end + 1);
  return line;
}

bool ReadGateway(std::string_view& text, std::optional<Gateway>& gateway) {
  const auto kind = NextLine(text);
  if (kind == kNone) return true;
  if (kind != kGateway) return false;
  gateway.emplace();
  for (std::string* member :
       {&gateway->control_url, &gateway->service_type, &gateway->host_address}) {
    const auto line = NextLine(text);
    if (!line || !IsWord(*line)) return false;
    *member = *line;
  }
  return BlKLIBIsIpAddr(gateway->host_address);
}

}  // namespace

std::string RouterAnswerText(const RouterAnswer& answer) {
  std::string text = ResultText(answer.result) + "\n";
  for (const bool granted : answer.granted) text += granted ? '1' : '0';
  text += '\n';
  if (!answer.gateway) return text + std::string(kNone) + "\n";
  return text + std::string(kGateway) + "\n" + answer.gateway->control_url + "\n" +
         answer.gateway->service_type + "\n" + answer.gateway->host_address + "\n";
}

std::optional<RouterAnswer> ReadRouterAnswer(const std::string& text, size_t rules) {
  std::string_view rest = text;
  RouterAnswer answer;
  const auto result = NextLine(rest);
  if (!result || !ReadResult(*result, answer.result)) return std::nullopt;
  const auto grants = NextLine(rest);
  if (!grants || !ReadGrants(*grants, rules, answer.granted)) return std::nullopt;
  if (!ReadGateway(rest, answer.gateway) || !rest.empty()) return std::nullopt;
  return answer;
}

}  // namespace kova::platform
