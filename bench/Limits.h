// SPDX-License-Identifier: Apache-2.0
// ornbench's rows for ornsim's limits: idle peers at the connection cap, a stderr nobody reads,
// and the memory of delayed answers.
#pragma once

#include <string>

namespace ornbench {

// Prints the rows; false when ornsim could not be driven at all.
bool runLimits(const std::string& ornsimPath);

}  // namespace ornbench
