// SPDX-License-Identifier: Apache-2.0
// ORNCLI: the two line readers of the interactive mode.
#include "ORNCLI.h"

#include <cstdio>

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

// One line without its newline. A last line with no newline is returned as
// read; a read that got nothing gives "" and leaves the stream usable for the
// next prompt.
std::string readLine(const std::string& prompt) {
  writeOut(prompt);
  std::string line;
  int c = 0;
  while ((c = std::getc(stdin)) != EOF && c != '\n') {
    line.push_back(static_cast<char>(c));
  }
  if (c == EOF && line.empty()) {
    // glibc keeps stdin's end-of-file flag, so after Ctrl-D at a terminal every
    // later read would end at once; a pipe at its end simply ends again.
    std::clearerr(stdin);
  }
  return line;
}

}  // namespace

void writeOut(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void writeErr(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

void writeLine(const std::string& text) {
  writeOut(text + "\n");
}

std::string ORNCLI::nextOption(const std::string& prompt) {
  return readLine(prompt + "> ");
}

// Deliberate: despite the name an empty answer is accepted; the caller decides.
std::string ORNCLI::nextArgRequired(const std::string& prompt) {
  return readLine(prompt + " : ");
}

}  // namespace ornUtility
}  // namespace ornwick
