// The weekly renewal job in the host's cron configuration.
#pragma once

namespace kova {

// True when the job exists afterwards; false with a message. One that exists is never rewritten.
bool AddRenewalJob();

// True when the job does not exist afterwards; false with a message.
bool RemoveRenewalJob();

// Adds the job when a certificate of the archive has a renewal record.
void AddRenewalJobWhenNeeded();

// Removes the job when none has.
void RemoveRenewalJobWhenUnused();

}  // namespace kova
