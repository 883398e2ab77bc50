// SPDX-License-Identifier: Apache-2.0
// parseLong: whole decimal text only, the one number reader of ornsim's
// command line and fault specs; ornsim is a test tool and rejects typos loudly.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <string>

namespace ornsim {

// False unless text is a decimal number from lo to hi and nothing else.
inline bool parseLong(const std::string& text, long lo, long hi, long* out) {
  if (text.empty())
    return false;
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || v < lo || v > hi)
    return false;
  *out = v;
  return true;
}

}  // namespace ornsim
