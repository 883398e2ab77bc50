// SPDX-License-Identifier: Apache-2.0
// LivePage: live/page.html, embedded at build time (embed.cmake writes the
// definitions).
#pragma once

#include <cstddef>

namespace ornsim {

extern const unsigned char kLivePage[];
extern const size_t kLivePageSize;

}  // namespace ornsim
