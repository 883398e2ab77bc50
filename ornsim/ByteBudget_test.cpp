// SPDX-License-Identifier: Apache-2.0
// ByteBudget and ByteClaim: claims share one limit, each may have its own, and every byte
// comes back when a claim shrinks, is released or goes.
#include "ByteBudget.h"

#include <gtest/gtest.h>

namespace ornsim {
namespace {

using Room = ByteClaim::Room;

TEST(ByteBudget, ClaimsShareTheLimitAndGiveBytesBack) {
  ByteBudget budget(100);
  ByteClaim own(budget, 60);
  ByteClaim shared(budget);
  // A refused growth changes nothing; the claim's own limit is told first.
  EXPECT_EQ(own.grow(60), Room::kFits);
  EXPECT_EQ(own.grow(1), Room::kOverOwnLimit);
  EXPECT_EQ(shared.grow(41), Room::kOverSharedLimit);
  EXPECT_EQ(shared.grow(40), Room::kFits);
  EXPECT_EQ(budget.used(), 100u);
  EXPECT_EQ(own.bytes(), 60u);
  own.shrink(10);
  EXPECT_EQ(shared.resize(50), Room::kFits);
  {
    ByteClaim gone(budget);
    EXPECT_EQ(gone.grow(1), Room::kOverSharedLimit);
    own.release();
    EXPECT_EQ(gone.grow(50), Room::kFits);
  }
  EXPECT_EQ(budget.used(), 50u);
  EXPECT_EQ(shared.resize(0), Room::kFits);
  EXPECT_EQ(budget.used(), 0u);
}

}  // namespace
}  // namespace ornsim
