// SPDX-License-Identifier: Apache-2.0
// ByteBudget: a byte limit several holders share, and ByteClaim, one holder's
// part of it. A claim gives its bytes back when it shrinks or goes, so the
// budget's total is always the sum of its claims.
#pragma once

#include <cstddef>
#include <limits>

namespace ornsim {

class ByteBudget {
 public:
  explicit ByteBudget(size_t limit) : limit_(limit) {}
  ByteBudget(const ByteBudget&) = delete;
  ByteBudget& operator=(const ByteBudget&) = delete;

  size_t used() const { return used_; }

 private:
  friend class ByteClaim;
  size_t used_ = 0;
  const size_t limit_;
};

class ByteClaim {
 public:
  // Why a claim could not grow.
  enum class Room { kFits, kOverOwnLimit, kOverSharedLimit };

  // `ownLimit` bounds this claim alone, on top of the shared budget's limit.
  explicit ByteClaim(ByteBudget& budget, size_t ownLimit = std::numeric_limits<size_t>::max())
      : budget_(budget), ownLimit_(ownLimit) {}
  ~ByteClaim() { release(); }
  ByteClaim(const ByteClaim&) = delete;
  ByteClaim& operator=(const ByteClaim&) = delete;

  size_t bytes() const { return bytes_; }

  // Makes this claim `n` bytes; unchanged unless the answer is kFits. Own
  // limit first: a holder over its own share is told so whatever the others hold.
  Room resize(size_t n) {
    if (n > bytes_ && n > ownLimit_)
      return Room::kOverOwnLimit;
    if (n > bytes_ && budget_.used_ - bytes_ + n > budget_.limit_)
      return Room::kOverSharedLimit;
    budget_.used_ = budget_.used_ - bytes_ + n;
    bytes_ = n;
    return Room::kFits;
  }
  Room grow(size_t n) { return resize(bytes_ + n); }
  void shrink(size_t n) { resize(bytes_ - n); }  // always fits
  void release() {
    if (bytes_ != 0)
      resize(0);
  }

 private:
  ByteBudget& budget_;
  const size_t ownLimit_;
  size_t bytes_ = 0;
};

}  // namespace ornsim
