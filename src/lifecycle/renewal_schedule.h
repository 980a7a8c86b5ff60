// Who renews on this host, and when.
#pragma once

#include <string>

namespace kova {

inline constexpr char kRenewalJobPath[] = "/etc/cron.d/kova-letsencrypt";

struct RenewalSchedule {
  bool is_started = false;  // by a cron daemon or systemd, as things are now
  std::string starter;      // kRenewalJobPath or "kova-letsencrypt.timer", whichever it is
  std::string period;       // of our job: "daily", "weekly", "monthly"; empty for one that was
                            // edited, and for the timer
  std::string moment;       // with it: "04:17", "Tuesday 04:17" or "1st 04:17", in local time
};

RenewalSchedule ReadRenewalSchedule();

}  // namespace kova
