# SPDX-License-Identifier: Apache-2.0
# Shared by the shell tests: a temporary folder and a private ornsim in it, stopped by pid.
# Needs ORNSIM set to the ornsim binary.

work=$(mktemp -d)
sim_pid=
trap 'stop_ornsim; rm -rf "$work"' EXIT

# start_ornsim DIR [OPTION...]: ornsim on DIR/orn.sock with its built-in home, once it has
# printed its ready line; exports ORN_QIPC_SOCKET.
start_ornsim() {
  local dir=$1 ready
  shift
  rm -f "$dir/ready.fifo" && mkfifo "$dir/ready.fifo"
  (cd "$dir" && exec "$ORNSIM" --socket "$dir/orn.sock" "$@" > ready.fifo 2> ornsim.err) &
  sim_pid=$!
  exec {sim_fd}< "$dir/ready.fifo"
  if ! read -r ready <&"$sim_fd" || [[ $ready != "ready "* ]]; then
    echo "ornsim did not start: $(cat "$dir/ornsim.err")" >&2
    return 1
  fi
  export ORN_QIPC_SOCKET=$dir/orn.sock
}

stop_ornsim() {
  if [ -n "$sim_pid" ]; then
    kill "$sim_pid" 2> /dev/null
    wait "$sim_pid"
    exec {sim_fd}<&-
    sim_pid=
  fi
}

failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}
