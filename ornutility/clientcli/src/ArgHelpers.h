// SPDX-License-Identifier: Apache-2.0
// Argument scanning: options found by exact name anywhere in an argument list.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace ornwick {
namespace ornUtility {

// The argument after the first exact occurrence of name, or "" (also when name
// is last).
std::string findFlag(int argc, char** argv, const char* name);
bool hasFlag(int argc, char** argv, const char* name);
// The argument after every occurrence, in order; the value after a match is not
// skipped.
std::vector<std::string> findAllFlags(int argc, char** argv, const char* name);
// "a,,b" -> a,"",b; ",a" -> "",a; "a," -> a (a trailing comma adds nothing).
std::vector<std::string> splitByComma(const std::string& text);
// "ns:name" pieces split at their first ':'; pieces without one are dropped.
std::vector<std::pair<std::string, std::string>> parseEventPairs(const std::string& text);
// Whole-input base-10 integer after trimming blanks. Returns false with out =
// def when empty (silently) or when junk follows (after a warning on stdout).
// Saturates to int.
bool safeStoi(const std::string& input, int& out, int def);

}  // namespace ornUtility
}  // namespace ornwick
