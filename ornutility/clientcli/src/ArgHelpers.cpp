// SPDX-License-Identifier: Apache-2.0
// Argument scanning helpers: exact, case-sensitive names; no option table.
#include "ArgHelpers.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {
constexpr char kBlanks[] = " \t\n\r\f\v";
}  // namespace

std::string findFlag(int argc, char** argv, const char* name) {
  // A flag standing last has no value and so is not found; deliberate.
  for (int i = 0; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) {
      return argv[i + 1];
    }
  }
  return "";
}

bool hasFlag(int argc, char** argv, const char* name) {
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) {
      return true;
    }
  }
  return false;
}

std::vector<std::string> findAllFlags(int argc, char** argv, const char* name) {
  std::vector<std::string> values;
  // The value after a match is not skipped, so "-f -f x" gives "-f" and "x";
  // deliberate.
  for (int i = 0; i + 1 < argc; ++i) {
    if (std::strcmp(argv[i], name) == 0) {
      values.emplace_back(argv[i + 1]);
    }
  }
  return values;
}

std::vector<std::string> splitByComma(const std::string& text) {
  std::vector<std::string> pieces;
  size_t start = 0;
  // Inner and leading empty pieces are kept, a trailing comma adds none;
  // deliberate.
  while (start < text.size()) {
    size_t comma = text.find(',', start);
    if (comma == std::string::npos) {
      pieces.push_back(text.substr(start));
      break;
    }
    pieces.push_back(text.substr(start, comma - start));
    start = comma + 1;
  }
  return pieces;
}

std::vector<std::pair<std::string, std::string>> parseEventPairs(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const std::string& piece : splitByComma(text)) {
    size_t colon = piece.find(':');
    if (colon != std::string::npos) {
      pairs.emplace_back(piece.substr(0, colon), piece.substr(colon + 1));
    }
  }
  return pairs;
}

bool safeStoi(const std::string& input, int& out, int def) {
  size_t first = input.find_first_not_of(kBlanks);
  if (first == std::string::npos) {
    out = def;
    return false;
  }
  size_t last = input.find_last_not_of(kBlanks);
  std::string trimmed = input.substr(first, last - first + 1);

  char* end = nullptr;
  long value = std::strtol(trimmed.c_str(), &end, 10);
  if (end != trimmed.c_str() + trimmed.size()) {
    writeLine("Warning: Invalid characters in input, using default value");
    out = def;
    return false;
  }
  // The device's long is 32 bits, so out-of-range values saturate there; keep
  // that here.
  if (value > INT_MAX) {
    value = INT_MAX;
  } else if (value < INT_MIN) {
    value = INT_MIN;
  }
  out = static_cast<int>(value);
  return true;
}

}  // namespace ornUtility
}  // namespace ornwick
