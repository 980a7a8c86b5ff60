// What each deployment action does to the index and to the services.
#pragma once

#include <cstdint>
#include <span>

namespace kova::cert_archive {

// The layout and the values are shared with other programs of the archive.
struct CRTActionInfo {
  std::int32_t action;       // equals the row's index
  std::int32_t skip_add;     // 1: the target certificate does not list the service afterwards
  std::int32_t skip_remove;  // 1: the source certificate goes on listing it
  std::int32_t reload;       // true: the subscriber's reload script is run
};

// NOLINTNEXTLINE(readability-identifier-naming): known by that name
extern const CRTActionInfo rgCRTActionInfo[4];

inline constexpr int kActionMove = 0;       // from the source certificate to the target
inline constexpr int kActionMoveAlias = 1;  // another number of the same
inline constexpr int kActionRedeploy = 2;   // the index stays as it is
// Adds the service to the target and leaves the source and the running service alone. A service
// that has its three files keeps them and is only refreshed in the index.
inline constexpr int kActionAdd = 3;

// The row of that action, or none when the table has no such row or the row bears another number.
[[nodiscard]] const CRTActionInfo* FindAction(std::span<const CRTActionInfo> table, int action);

}  // namespace kova::cert_archive
