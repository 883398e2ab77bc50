#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The completion in one shell (bash or zsh): its tables against `orncli --help`, and what
# it offers against a private ornsim. Usage: completion_test.sh SHELL COMPLETION ORNCLI ORNSIM
set -uo pipefail
shell=$1 COMPLETION=$2 ORNCLI=$3 ORNSIM=$4
command -v "$shell" > /dev/null || { echo "$shell not installed: skipped"; exit 77; }
. "$(dirname "$0")/common.sh"

# Runs sh code in the shell under test with the completion loaded.
in_shell() {
  if [ "$shell" = zsh ]; then
    zsh -f -c 'source "$0"; emulate sh; eval "$1"' "$COMPLETION" "$1"
  else
    bash -c 'source "$0"; eval "$1"' "$COMPLETION" "$1"
  fi
}

# "subcommand action: flags..." lines from "subcommand action [flag]" lines ("-": no action).
table() {
  sort -u | awk '{ key = $1 " " $2 ":"; if (!(key in line)) { order[++n] = key; line[key] = key }
                   if ($3 != "") line[key] = line[key] " " $3 }
                 END { for (i = 1; i <= n; i++) print line[order[i]] }' | sort
}

usage_table() {
  "$ORNCLI" --help | awk '
    function known(list,   n, w, i) {
      n = split(list, w, "/")
      for (i = 1; i <= n; i++) if ((" " actions " ") !~ (" " w[i] " ")) return 0
      return 1
    }
    function emit(flag,   n, w, i) {
      n = split(flag == "" ? actions : applies, w, /[\/ ]/)
      for (i = 1; i <= n; i++) if (w[i] != "") print sc, w[i], flag
    }
    /^  orncli --/ || (global && $1 ~ /^--/) { print "global", "-", ($1 == "orncli" ? $2 : $1) }
    /^GLOBAL FLAGS:/ { global = 1 }
    /^$/ { global = 0 }
    /^SUBCOMMANDS:/ { subs = 1; next }
    /^CONNECTION LIFECYCLE/ { subs = 0 }
    !subs { next }
    /^  [a-z]/ { sc = $1; group = ""; actions = ($2 ~ /^[a-z]/ ? $2 : ($2 ~ /^</ ? "" : "-")); emit(""); next }
    /^    Actions:/ { actions = substr($0, index($0, ":") + 2); gsub(/,/, "", actions); emit(""); next }
    /^    Options:/ { group = ""; next }
    /^    Options \(/ { group = $2; gsub(/[():]/, "", group); next }
    /^    [a-z\/]+ options:/ { group = $1; next }
    /^      --/ {
      applies = group == "" ? actions : group
      if (match($0, /\([A-Za-z\/]+\)$/) && known(substr($0, RSTART + 1, RLENGTH - 2)))
        applies = substr($0, RSTART + 1, RLENGTH - 2)
      emit($1)
    }' | table
}

completion_table() {
  in_shell '
    for f in $(_orncli_global_flags); do echo "global - $f"; done
    for s in $(_orncli_subcommands); do
      actions=$(_orncli_actions "$s")
      for a in ${actions:--}; do
        echo "$s $a"
        for f in $(_orncli_flags "$s" "$a"); do echo "$s $a $f"; done
      done
    done' | table
}

diff <(usage_table) <(completion_table) > "$work/table.diff" ||
  fail "completion tables differ from orncli --help (< usage, > completion):
$(cat "$work/table.diff")"

# expect "CANDIDATES" WORD...: the candidates for the last word, joined by blanks.
expect() {
  local want=$1 got
  shift
  got=$(in_shell "$(printf '%q ' _orncli_candidates "$@")" | tr '\n' ' ')
  [ "$got" = "$want${want:+ }" ] || fail "$* -> [$got], want [$want]"
}

start_ornsim "$work" || exit 1
o=$ORNCLI
pairs="Corva.Endpoint.Feature.Power:Property.PowerState.Change Corva.Endpoint.Feature.Brightness:Property.Brightness.Change Corva.Endpoint.Feature.Color:Property.Color.Change Corva.Endpoint.Feature.ColorTemperature:Property.ColorTemperature.Change"
expect "devices power brightness color colortemp state dfi qfi subscribe" "$o" --timeout 5 ""
expect "" "$o" --connect-timeout ""
expect "--sync --timeout --connect-timeout --help" "$o" -
expect "create delete list listen" "$o" subscribe ""
expect "--value" "$o" brightness set --endpoints ep-desk ""
expect "--entity --endpoint --friendly-name --sync --timeout --connect-timeout --help" "$o" state report --
expect "HIGH LOW" "$o" state get --latency ""
expect "ep-kitchen ep-living ep-bedroom ep-desk ep-kettle" "$o" power get --endpoint ""
expect "ep-desk,ep-kitchen ep-desk,ep-living ep-desk,ep-bedroom ep-desk,ep-desk ep-desk,ep-kettle" \
  "$o" power turnOn --endpoints ep-desk,
expect "light-kitchen light-living light-bedroom strip-desk plug-kettle" "$o" subscribe delete --endpoint ""
expect "light-kitchen: light-living: light-bedroom: strip-desk: plug-kettle:" "$o" subscribe listen --create ""
expect "$(for p in $pairs; do printf 'x:%s ' "$p"; done | sed 's/ $//')" "$o" subscribe listen --create x:C
expect "$(for p in $pairs; do printf 'a,%s ' "$p"; done | sed 's/ $//')" "$o" subscribe create --events a,

if [ "$shell" = bash ]; then
  # bash replaces only the text after the last ":" of the word.
  got=$(bash -c 'source "$0"; COMP_LINE="$1"; COMP_POINT=${#COMP_LINE}; _orncli_bash
                 echo "${COMPREPLY[*]}"' "$COMPLETION" "$o subscribe listen --create lamp:Corva.Endpoint.Feature.Po")
  [ "$got" = "Corva.Endpoint.Feature.Power:Property.PowerState.Change" ] || fail "bash colon word: [$got]"
  # A service that never answers, or an orncli that ignores SIGTERM, never holds up the shell.
  printf '#!/bin/sh\ntrap "" TERM\nexec sleep 600\n' > "$work/orncli" && chmod +x "$work/orncli"
  expect "" "$work/orncli" power get --endpoint ""
  stop_ornsim
  expect "" "$o" power get --endpoint ""
else
  # The widget itself, with compadd stubbed: words up to CURRENT, no blank after "entity:".
  got=$(zsh -f -c 'source "$0"; compadd() { print -rn -- "[$*]"; }
                   words=("$1" subscribe listen --create pl x); CURRENT=5; _orncli' "$COMPLETION" "$o")
  [ "$got" = "[--][-S  -- light-kitchen: light-living: light-bedroom: strip-desk: plug-kettle:]" ] ||
    fail "zsh widget: [$got]"
  # compinit finds the file by its first line (only the completion system's own folder is
  # scanned besides, which keeps this quick).
  mkdir "$work/fpath" && cp "$COMPLETION" "$work/fpath/_orncli"
  got=$(zsh -f -c 'fpath=("$0" ${(M)fpath:#*/Completion}); autoload -Uz compinit; compinit -D -u
                   print -r -- $_comps[orncli]' "$work/fpath")
  [ "$got" = _orncli ] || fail "zsh compinit: orncli completed by [$got]"
fi

[ "$failures" -eq 0 ] && echo "completion ($shell): all rows passed"
exit $((failures > 0))
