// Draws machine ids and counts, minute by minute of the week, on how many of those hosts the
// renewal job runs, as the program itself would have it.
//
// usage: fleet HOSTS SEED
//
// Prints 10080 lines, Sunday 0:00 first: the hosts whose weekly job runs in that minute, and how
// many of them have a certificate that falls due in the next day, or in the day after it (as many
// as do when certificates live 90 days, are renewed at 60, and were issued on any day).
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "platform/crond.h"

namespace {

constexpr size_t kMinutesOfDay = 24 * 60;
constexpr size_t kMinutesOfWeek = 7 * kMinutesOfDay;
constexpr uint64_t kDaysBetweenRenewals = 60;
constexpr char kJob[] = "kova-letsencrypt";

struct Minute {
  uint64_t hosts = 0;
  std::array<uint64_t, 2> due{};
};

// 32 hexadecimal digits, as /etc/machine-id has them.
std::string MachineId(std::mt19937_64& random) {
  std::array<char, 33> text{};
  std::snprintf(text.data(), text.size(), "%016llx%016llx",
                static_cast<unsigned long long>(random()),
                static_cast<unsigned long long>(random()));
  return text.data();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::mt19937_64 random(std::strtoull(argv[2], nullptr, 10));
  std::vector<Minute> minutes(kMinutesOfWeek);
  for (uint64_t host = std::strtoull(argv[1], nullptr, 10); host > 0; --host) {
    const auto moment = kova::platform::MomentOfJob(MachineId(random), kJob);
    Minute& minute = minutes[moment.weekday * kMinutesOfDay + moment.hour * 60 + moment.minute];
    ++minute.hosts;
    const uint64_t day = random() % kDaysBetweenRenewals;
    if (day < minute.due.size()) ++minute.due[day];
  }
  for (const Minute& minute : minutes) {
    std::printf("%llu %llu %llu\n", static_cast<unsigned long long>(minute.hosts),
                static_cast<unsigned long long>(minute.due[0]),
                static_cast<unsigned long long>(minute.due[1]));
  }
  return 0;
}
