// Asks the CAs of one run for their advice, and keeps it.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "acme_v2/renewal_info.h"
#include "base/renewal_settings.h"
#include "lifecycle/renewal_advice.h"

namespace kova {

class RenewalAdviser {
 public:
  explicit RenewalAdviser(RenewalSettings settings) : settings_(std::move(settings)) {}

  // Whether the CA with that directory would like the certificate of that id (a plain name) and
  // identifier (renewal_info.h) to be renewed before the next run. The CA is asked unless it wants
  // to be left alone still, and the answer kept. What stands in the way is one line in the system
  // log, and no advice.
  bool Advises(const std::string& id, const std::string& directory, const std::string& identifier);

 private:
  void Ask(const std::string& id, const std::string& directory, RenewalAdvice& advice);
  RenewalInfoSource& SourceOf(const std::string& directory);

  RenewalSettings settings_;
  std::map<std::string, RenewalInfoSource> sources_;  // by directory
};

}  // namespace kova
