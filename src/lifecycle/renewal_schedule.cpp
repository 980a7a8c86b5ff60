#include "lifecycle/renewal_schedule.h"

#include <array>
#include <cstdio>

#include "lifecycle/renewal_job.h"
#include "platform/crond.h"
#include "platform/schedulers.h"

namespace kova {
namespace {

constexpr char kName[] = "kova-letsencrypt";
constexpr std::array kWeekdays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};

std::string Clock(const platform::JobMoment& moment) {
  std::array<char, 8> text{};
  (void)std::snprintf(text.data(), text.size(), "%02u:%02u", static_cast<unsigned>(moment.hour),
                      static_cast<unsigned>(moment.minute));
  return text.data();
}

std::string MomentOf(const std::string& period, const platform::JobMoment& moment) {
  if (period == "weekly") return kWeekdays.at(moment.weekday) + (" " + Clock(moment));
  if (period == "monthly") return "1st " + Clock(moment);
  return Clock(moment);
}

}  // namespace

RenewalSchedule ReadRenewalSchedule() {
  const KOVA::KOVACrond::ConfigManager job(kName, false);
  RenewalSchedule schedule;
  const bool has_cron = platform::LookForCronDaemon() == platform::CronDaemon::kRunning;
  const bool has_timer = platform::IsTimerEnabled(kName) && platform::RunsSystemd();
  schedule.is_started = (job.Exist() && has_cron) || has_timer;
  if (has_timer && !(job.Exist() && has_cron)) {
    schedule.starter = std::string(kName) + ".timer";
    return schedule;
  }
  if (!job.Exist()) return schedule;
  schedule.starter = kRenewalJobPath;
  schedule.period = StandingPeriod();
  if (!schedule.period.empty()) schedule.moment = MomentOf(schedule.period, job.Moment());
  return schedule;
}

}  // namespace kova
