#include "certificate/log_tag.h"

#include <cstdio>

namespace kova {

std::string ErrorTriple() {
  char text[512];
  (void)std::snprintf(text, sizeof text, "[0x%04X %s:%d]", static_cast<unsigned>(KLIBCErrGet()),
                      KLIBCErrorGetFile(), KLIBCErrorGetLine());
  return text;
}

}  // namespace kova
