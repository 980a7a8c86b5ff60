// What the confined process that talks to the router has to say: few bytes in a fixed form.
//
// Three lines, the fourth to sixth only with a gateway: "ok", "gone" or "refused CODE"; one "1" or
// "0" for each rule; "gateway" or "none"; its control URL, service type and the host's address.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/upnp.h"

namespace kova::platform {

struct RouterAnswer {
  int result = kGatewayUnreachable;  // as of the calls in upnp.h
  std::vector<bool> granted;         // rule by rule
  std::optional<Gateway> gateway;    // that later calls may begin with
};

inline constexpr size_t kLongestRouterAnswer = 4096;

std::string RouterAnswerText(const RouterAnswer& answer);

// Nothing for a text that is not of that form to the letter, with `rules` rules.
std::optional<RouterAnswer> ReadRouterAnswer(const std::string& text, size_t rules);

}  // namespace kova::platform
