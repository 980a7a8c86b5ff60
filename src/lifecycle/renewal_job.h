// The renewal job in the host's cron configuration: weekly, or as often as the settings'
// `cronperiod` says.
#pragma once

#include <string>

#include "base/renewal_settings.h"

namespace kova {

// True when the job exists afterwards; false with a message. One that exists is only rewritten by
// CorrectRenewalJob.
bool AddRenewalJob(const RenewalSettings& settings);

// With a `cronperiod` in the settings: gives a job of ours that stands with another period that
// one. An edited job is left as it is.
void CorrectRenewalJob(const RenewalSettings& settings);

// True when the job does not exist afterwards; false with a message.
bool RemoveRenewalJob();

// "daily", "weekly" or "monthly" when the job stands as this program writes it; empty when there is
// none, or an edited one.
std::string StandingPeriod();

// Adds the job when a certificate of the archive has a renewal record.
void AddRenewalJobWhenNeeded(const RenewalSettings& settings);

// Removes the job when none has.
void RemoveRenewalJobWhenUnused();

}  // namespace kova
