// What stands in front of this module's log lines. The tags are interface (people filter the system
// log by them) and older than the present files, hence they name none of them.
#pragma once

namespace kova {

namespace cert_archive {
inline constexpr char kTag[] = "utils.cpp";
}

namespace mkcert {
inline constexpr char kTag[] = "mkcert.cpp";
}

}  // namespace kova
