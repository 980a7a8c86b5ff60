// The home network's router, as this program sees it: every word with it is a confined child's.
//
// Any host of the network may answer in its place. What does not come in time, or not in the form
// that was agreed, is no router: for this call and for the rest of the process.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/portmap_record.h"
#include "platform/router_answer.h"

namespace kova::platform {

class Router {
 public:
  struct Times {
    std::chrono::milliseconds search{
        5000};  // the description included, and whether it is connected
    std::chrono::milliseconds rule_set{20000};  // a search included
  };

  Router() = default;
  explicit Router(const Times& times) : times_(times) {}

  // True when there is one. Later calls begin with what was found, or fail at once.
  bool Search();

  // As RemoveRuleSet and ReplaceRuleSet (rule_set.h). A gateway that no longer answers is searched
  // for once more: after a restart it may be found at another address.
  int Remove(const std::string& set, const std::vector<int>& ports);
  int Replace(const std::string& set, std::span<const KOVA_PORTMAP_RULE> rules,
              std::span<KOVA_RULE_SET_RESULT> results);

 private:
  using Work = std::function<RouterAnswer(std::optional<Gateway> known)>;
  RouterAnswer Ask(std::chrono::milliseconds time, size_t rules, const Work& work);

  Times times_;
  bool searched_ = false;
  std::optional<Gateway> gateway_;
};

}  // namespace kova::platform
