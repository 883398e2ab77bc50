// ORNCLI: the two line readers of the interactive mode.
#include "ORNCLI.h"

#include <cstdio>
#include <iostream>

#include "ORNCLIInternal.h"

namespace ornwick {
namespace ornUtility {

namespace {

constexpr std::streamsize kDiscardLimit = 2147483647;

// One line without its newline. A last line with no newline is returned as
// read; a read that got nothing gives "" and leaves the stream usable for the
// next prompt.
std::string readLine(const std::string& prompt) {
  std::cout << prompt << std::flush;
  std::string line;
  if (!std::getline(std::cin, line)) {
    std::cin.clear();
    std::cin.ignore(kDiscardLimit, '\n');
    // glibc keeps stdin's end-of-file flag, so after Ctrl-D at a terminal every
    // later read would end at once; a pipe at its end simply ends again.
    std::cin.clear();
    std::clearerr(stdin);
    return std::string();
  }
  return line;
}

}  // namespace

void writeLine(const std::string& text) {
  std::cout << text + "\n" << std::flush;
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
