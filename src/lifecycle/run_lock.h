// The lock of a run that many certificates depend on: one that renews (renewal_run.h), and a change
// of an account that they are renewed with. The only one that may be held while a CA, a hook or a
// reload script is waited for.
#pragma once

namespace kova {

inline constexpr char kRunLock[] = "/run/kova-renew-all.lock";

}  // namespace kova
