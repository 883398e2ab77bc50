// SPDX-License-Identifier: Apache-2.0
// Diagnostics: ornsim's lines on stderr (the -v traffic log, refusals, protocol
// errors) written without ever blocking the event loop. A line stderr cannot
// take at once waits in a bounded buffer, flushed when stderr becomes
// writable; a line that does not fit there is dropped and counted, and the
// count is said once stderr takes lines again.
#pragma once

#include <cstddef>

namespace asio {
class io_context;
}  // namespace asio

namespace ornsim {

// printf-style; `format` ends in a newline. Never blocks.
void diag(const char* format, ...) __attribute__((format(printf, 1, 2)));

// While it lives, held lines are flushed through `io` as stderr becomes
// writable; without one they wait for the next diag. Destroy it before `io`:
// it makes a last attempt to write what is held.
class DiagnosticsOnLoop {
 public:
  explicit DiagnosticsOnLoop(asio::io_context& io);
  ~DiagnosticsOnLoop();
  DiagnosticsOnLoop(const DiagnosticsOnLoop&) = delete;
  DiagnosticsOnLoop& operator=(const DiagnosticsOnLoop&) = delete;
};

// Bytes a full stderr may hold back before lines are dropped.
constexpr size_t kDiagnosticsHeld = 64u << 10;

}  // namespace ornsim
