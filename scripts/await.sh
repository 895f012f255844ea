#!/bin/bash
# Waiting for something in shell, to be sourced.

# await [-l LOG] COMMAND...: tries a command every 20 ms until it succeeds. After half a minute it is tried for the last
# time, and then what it says can be seen; await tells of it, shows the end of LOG, and fails.
#
# The command runs in this shell: a function may keep count.
await() {
  local log='' end=$((SECONDS + 30))
  [ "$1" != -l ] || { log=$2; shift 2; }
  while [ $SECONDS -lt $end ]; do
    "$@" >/dev/null 2>&1 && return
    sleep 0.02
  done
  "$@" >&2 && return
  echo "gave up after 30 s on: $*" >&2
  [ -z "$log" ] || tail -v -n 40 "$log" >&2
  return 1
}
