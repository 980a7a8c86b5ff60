// The weekly renewal job in the host's cron configuration.
#pragma once

namespace kova {

// True when the job exists afterwards. One that exists is never rewritten.
bool AddRenewalJob();

// True when the job does not exist afterwards.
bool RemoveRenewalJob();

}  // namespace kova
