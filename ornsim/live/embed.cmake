# SPDX-License-Identifier: Apache-2.0
# Writes the live page into a C++ source as bytes: cmake -DIN=page.html -DOUT=LivePage.cpp -P embed.cmake
file(READ "${IN}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
file(WRITE "${OUT}.tmp"
     "// Generated from ${IN} by embed.cmake.\n#include \"LivePage.h\"\n\nnamespace ornsim {\n\n"
     "const unsigned char kLivePage[] = {${bytes}0};\nconst size_t kLivePageSize = ${size};\n\n}  // namespace ornsim\n")
file(RENAME "${OUT}.tmp" "${OUT}")
