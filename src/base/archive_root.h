// The certificate archive: one folder per certificate below this one (docs/formats.md).
#pragma once

namespace kova {

inline constexpr char kArchiveRoot[] = "/usr/kova/etc/certificate/_archive";

}  // namespace kova
