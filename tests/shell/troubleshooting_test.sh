#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every example of a document: each ```sh block, with the ```text block after it as its
# expected output (stdout and stderr together; "..." matches any text). Each runs in its own
# folder against its own ornsim (built-in home; a first line "# ornsim OPTIONS" adds options,
# "# no service" starts none). Usage: troubleshooting_test.sh DOC ORNCLI ORNSIM
set -uo pipefail
doc=$1 ORNCLI=$2 ORNSIM=$3
. "$(dirname "$0")/common.sh"
export PATH=$(dirname "$ORNCLI"):$(dirname "$ORNSIM"):$PATH
unset ORN_QIPC_DEBUG

count=0
run_example() {
  local script=$1 expected=$2 dir=$work/$count first pattern actual options=()
  mkdir -m 700 "$dir"
  first=${script%%$'\n'*}
  unset ORN_QIPC_SOCKET
  if [ "$first" != "# no service" ]; then
    [[ $first == "# ornsim "* ]] && read -r -a options <<< "${first#\# ornsim }"
    start_ornsim "$dir" "${options[@]}" || { fail "example $count: no ornsim"; return; }
  fi
  actual=$(cd "$dir" && XDG_RUNTIME_DIR=$dir bash -c "$script" < /dev/null 2>&1)
  stop_ornsim
  # The expected text as a pattern: everything literal but "...".
  pattern=${expected//\\/\\\\}
  pattern=${pattern//\*/\\*}
  pattern=${pattern//\?/\\?}
  pattern=${pattern//\[/\\[}
  pattern=${pattern//.../*}
  # shellcheck disable=SC2053
  [[ $actual == $pattern ]] ||
    fail "example $count of $doc:
$script
$(diff <(echo "$expected") <(echo "$actual") | sed 's/^/  /')"
}

# Fenced blocks may be indented (inside list items); the fence's indent is stripped.
block='' kind='' indent='' script='' pending=''
while IFS= read -r line; do
  if [ -z "$kind" ]; then
    [[ $line =~ ^(\ *)\`\`\`(sh|text)$ ]] || continue
    kind=${BASH_REMATCH[2]} indent=${#BASH_REMATCH[1]} block=
    if [ "$kind" = sh ] && [ -n "$pending" ]; then
      fail "an example has no output block: $script"
    fi
  elif [[ $line =~ ^\ *\`\`\`$ ]]; then
    if [ "$kind" = sh ]; then
      script=$block pending=1
    elif [ -n "$pending" ]; then
      count=$((count + 1))
      run_example "$script" "$block"
      pending=
    fi
    kind=
  else
    block+=${block:+$'\n'}${line:$indent}
  fi
done < "$doc"
[ -z "$pending" ] || fail "the last example has no output block"
[ "$count" -gt 0 ] || fail "no examples in $doc"

[ "$failures" -eq 0 ] && echo "$doc: $count examples ran as documented"
exit $((failures > 0))
