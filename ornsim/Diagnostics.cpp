// SPDX-License-Identifier: Apache-2.0
// Diagnostics: a non-blocking writer for stderr with a bounded buffer and a
// count of the lines it had to drop.
#include "Diagnostics.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <asio.hpp>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>

namespace ornsim {
namespace {

class Writer {
 public:
  void say(const std::string& line) {
    // The bound applies to lines waiting behind others: one line alone is
    // always tried, so a long one is not lost while stderr is being read.
    if (!held_.empty() && held_.size() + line.size() > kDiagnosticsHeld) {
      ++dropped_;
      return;
    }
    held_ += line;
    if (!waiting_)
      flush();
  }

  void attach(asio::io_context& io) {
    asio::error_code ec;
    const int fd = dup(output());
    if (fd < 0)
      return;
    watch_ = std::make_unique<asio::posix::stream_descriptor>(io);
    watch_->assign(fd, ec);
    if (ec)
      watch_.reset();
    flush();
  }

  void detach() {
    flush();
    watch_.reset();
    waiting_ = false;
  }

 private:
  // The descriptor written to: never one that blocks the caller. A pipe, FIFO
  // or terminal is opened anew, non-blocking, so the flag touches no other
  // process sharing stderr; a socket is written with MSG_DONTWAIT; a file
  // never makes a writer wait on a reader, so it is written as it is.
  int output() {
    if (fd_ != -1)
      return fd_;
    fd_ = STDERR_FILENO;
    struct stat st;
    if (fstat(STDERR_FILENO, &st) != 0 || S_ISREG(st.st_mode) || S_ISBLK(st.st_mode))
      return fd_;
    if (S_ISSOCK(st.st_mode)) {
      socket_ = true;
      return fd_;
    }
    const int fd = open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0)
      fd_ = fd;
    else
      fcntl(STDERR_FILENO, F_SETFL, fcntl(STDERR_FILENO, F_GETFL) | O_NONBLOCK);
    return fd_;
  }

  // Writes as much as stderr takes now; what is left waits for writability.
  void flush() {
    for (;;) {
      while (!held_.empty()) {
        const ssize_t n =
            socket_ ? send(output(), held_.data(), held_.size(), MSG_DONTWAIT | MSG_NOSIGNAL)
                    : write(output(), held_.data(), held_.size());
        if (n > 0) {
          held_.erase(0, static_cast<size_t>(n));
        } else if (n < 0 && errno == EINTR) {
          continue;
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
          wait();
          return;
        } else {
          held_.clear();  // stderr is gone (closed, or its reader left): nothing to wait for
        }
      }
      if (dropped_ == 0)
        return;
      held_ = "ornsim: " + std::to_string(dropped_) +
              " lines of diagnostics dropped: stderr could not take them\n";
      dropped_ = 0;
    }
  }

  void wait() {
    if (!watch_ || waiting_)
      return;
    waiting_ = true;
    watch_->async_wait(asio::posix::stream_descriptor::wait_write,
                       [this](const asio::error_code& ec) {
                         waiting_ = false;
                         if (!ec)
                           flush();
                       });
  }

  int fd_ = -1;
  bool socket_ = false;
  std::string held_;    // whole lines, the first perhaps partly written
  size_t dropped_ = 0;  // lines dropped since stderr last took everything
  std::unique_ptr<asio::posix::stream_descriptor> watch_;
  bool waiting_ = false;
};

Writer& writer() {
  static Writer w;
  return w;
}

}  // namespace

void diag(const char* format, ...) {
  char small[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int n = vsnprintf(small, sizeof(small), format, args);
  va_end(args);
  std::string line;
  if (n >= 0 && static_cast<size_t>(n) < sizeof(small)) {
    line.assign(small, static_cast<size_t>(n));
  } else if (n > 0) {
    line.resize(static_cast<size_t>(n) + 1);
    vsnprintf(&line[0], line.size(), format, again);
    line.resize(static_cast<size_t>(n));
  }
  va_end(again);
  writer().say(line);
}

DiagnosticsOnLoop::DiagnosticsOnLoop(asio::io_context& io) {
  writer().attach(io);
}

DiagnosticsOnLoop::~DiagnosticsOnLoop() {
  writer().detach();
}

}  // namespace ornsim
