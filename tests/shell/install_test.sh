#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# cmake --install into a staging prefix: what lands where, and a program built against the
# installed library. Usage: install_test.sh CMAKE BUILD_DIR LIBDIR CXX FLAGS
set -uo pipefail
cmake=$1 build=$2 libdir=$3 cxx=$4 flags=$5
. "$(dirname "$0")/common.sh"
stage=$work/stage

"$cmake" --install "$build" --prefix "$stage" > "$work/install.log" ||
  { cat "$work/install.log"; exit 1; }
for f in bin/orncli bin/ornsim "$libdir"/libornconnector.a "$libdir"/liborn_qipc.a \
  "$libdir"/pkgconfig/ornconnector.pc include/ornconnector/ORNClient.h \
  share/bash-completion/completions/orncli share/zsh/site-functions/_orncli \
  share/man/man1/orncli.1 share/man/man1/ornsim.1; do
  [ -f "$stage/$f" ] || fail "not installed: $f"
done
# A cross build runs what it built under the emulator (ORN_EMULATOR, empty on the host).
run=${ORN_EMULATOR:-}
[ "$($run "$stage/bin/orncli" --help | head -n 1)" = "ORNCLI - Ornwick Command Line Interface" ] ||
  fail "installed orncli --help"
$run "$stage/bin/ornsim" --help > /dev/null || fail "installed ornsim --help"

# The headers and archives are complete: a client builds from them through pkg-config alone.
cat > "$work/client.cpp" << 'CPP'
#include <ORNClient.h>
int main() { return ornwick::ornConnector::ORNClient().generateRequestId().empty(); }
CPP
# shellcheck disable=SC2046,SC2086
PKG_CONFIG_PATH=$stage/$libdir/pkgconfig "$cxx" $flags -std=c++17 "$work/client.cpp" \
  $(PKG_CONFIG_PATH=$stage/$libdir/pkgconfig pkg-config --cflags --libs ornconnector) \
  -o "$work/client" && $run "$work/client" || fail "a client of the installed library"

[ "$failures" -eq 0 ] && echo "install: all files in place, a client builds against them"
exit $((failures > 0))
