#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The man pages: free of lint, and complete: every subcommand, action and flag of orncli's
# usage text, every option of ornsim's, and every environment variable the connector library
# reads appear in them. Usage: man_test.sh SOURCE_DIR ORNCLI ORNSIM
set -uo pipefail
src=$1 ORNCLI=$2 ORNSIM=$3
. "$(dirname "$0")/common.sh"
man=$src/docs/man

for page in "$man"/orncli.1 "$man"/ornsim.1; do
  if command -v mandoc > /dev/null; then
    out=$(mandoc -T lint -W warning "$page" 2>&1) || fail "mandoc -T lint: $out"
  else
    out=$(groff -man -ww -z "$page" 2>&1) && [ -z "$out" ] || fail "groff -ww: $out"
  fi
done

# has PAGE WORD: WORD stands on its own in PAGE (not inside a longer flag or name), read as a
# reader sees it: escapes for "-" and fonts undone.
has() {
  local text
  text=$(sed -e 's/\\-/-/g' -e 's/\\f[BIRP]//g' "$1")
  grep -qE -- "(^|[^A-Za-z0-9_-])$2([^A-Za-z0-9_-]|$)" <<< "$text"
}

usage=$("$ORNCLI" --help)
# Subcommands are the two-space-indented words of SUBCOMMANDS, actions their lists and the
# single actions written after them ("color set").
words=$(sed -n '/^SUBCOMMANDS:/,/^CONNECTION/p' <<< "$usage" |
  sed -nE -e 's/^  ([a-z]+)( ([a-z]+))?( .*)?$/\1 \3/p' -e 's/^ +Actions: //p' | tr ', ' '\n\n' | sort -u)
flags=$(grep -oE -- '--[a-z][a-z-]*' <<< "$usage" | sort -u)
for w in $words $flags; do
  has "$man/orncli.1" "$w" || fail "orncli.1 does not mention $w"
done
[ "$(wc -w <<< "$words $flags")" -gt 30 ] || fail "too few words read from orncli --help"

usage=$("$ORNSIM" --help)
options=$(grep -oE -- '(^|[ ,])--?[a-z][a-z-]*' <<< "$usage" | tr -d ' ,' | sort -u)
for o in $options; do
  has "$man/ornsim.1" "$o" || fail "ornsim.1 does not mention $o"
done
[ "$(wc -w <<< "$options")" -gt 15 ] || fail "too few options read from ornsim --help"

for v in $(grep -rhoE 'getenv\("[A-Z_]+"\)' "$src/connector" | sed -E 's/getenv\("(.*)"\)/\1/' | sort -u); do
  has "$man/orncli.1" "$v" || fail "orncli.1 does not document $v"
done

[ "$failures" -eq 0 ] && echo "man pages: lint-free, every command, option and variable there"
exit $((failures > 0))
