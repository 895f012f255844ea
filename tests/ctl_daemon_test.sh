#!/bin/bash
# Drives a daemon with the tool as operators and their scripts do: ctl_daemon_test.sh DAEMON CTL, both absolute paths.
#
# Most of it is transcripts, ctl_session/*.txt. The daemon's fixed paths and an interface 'uplink' have to be its own;
# scripts/test sees to that.
set -u
export LC_ALL=C
# shellcheck source=scripts/await.sh
. "$(dirname "$0")/../scripts/await.sh"
exec </dev/null
cd "$(dirname "$0")/ctl_session" || exit 1
daemon=$1
ctl=$2
socket=/tmp/lumenHarbour.socket
dir=$(mktemp -d) || exit 1
: >"$dir/daemon" # what it prints
pid=''     # the daemon
address='' # what the uplink was given
changes=0  # made for somebody who watches
failed=0

# ---- Harness ----

fail() { # fail WHAT EXPECTED FOUND
  failed=$((failed + 1))
  printf '%s\n  expected: %s\n  found:    %s\n' "$@"
}

said() { # prints what a command said, standard error with "! " in place of the tool's name
  cat "$dir/out"
  [ ! -s "$dir/err" ] || sed 's/^lumenharbourctl: /! /; t; s/^/unexpected: /' "$dir/err"
}

expect() { # expect EXIT PATTERN WORD...: runs the tool and compares what it said
  local status=0
  "$ctl" "${@:3}" >"$dir/out" 2>"$dir/err" || status=$?
  # shellcheck disable=SC2053 # a pattern
  [[ $status = "$1" && $(said) = $2 ]] || fail "${*:3}" "[$1] $2" "[$status] $(said)"
}

sets() { grep -c ' set: .*cmd' "$dir/daemon"; } # requests that set something, as a daemon with debug on tells them

run_line() { # run_line LINE: runs a line of a transcript and prints what it says there
  local sets status=0
  [[ $1 != =* ]] || sets=$(sets)
  case $1 in
    '% '*) eval "${1#??}" ;;
    *) eval '"$ctl"' "${1#??}" ;;
  esac >"$dir/out" 2>"$dir/err" || status=$?
  said
  [ $status = 0 ] || echo "[$status]"
  [[ $1 != =* || $(sets) = "$sets" ]] || echo 'unexpected: it sets something'
}

# Runs a transcript and compares all of it: "$ " and "= " precede the tool's words, "= " where nothing may be set, and
# "% " a command of this shell. Below stand standard output, standard error, and an exit status that is not 0.
session() { # session FILE
  local line
  while IFS= read -r -u 3 line; do
    case $line in
      [$=%]' '*) echo "$line" && run_line "$line" 3<&- ;;
      '#'*) echo "$line" ;;
    esac
  done 3<"$1" >"$dir/session"
  diff -u "$1" "$dir/session" >"$dir/why" || fail "$1" 'what it says' "$(cat "$dir/why")"
}

eventually() { # eventually COMMAND...: tries it until it succeeds
  await -l "$dir/daemon" "$@" || failed=$((failed + 1))
}

finish() { # finish PROCESS: ends a child; the number of one that has ended may be a stranger's
  ! jobs -rp | grep -qx "$1" || { kill -CONT "$1"; kill "$1"; }
  wait "$1" 2>/dev/null
}

start_daemon() {
  "$daemon" "${1:-20}" "${2:-20}" "${3:-20}" >>"$dir/daemon" 2>&1 &
  pid=$!
  eventually "$ctl" get service
}

stop_daemon() {
  [ -z "$pid" ] || finish "$pid"
  pid=''
}

clean_up() {
  [ "$failed" = 0 ] || { echo "== $failed failed; the daemon's output ends =="; tail -n 40 "$dir/daemon"; }
  "$ctl" service stop --force >"$dir/out" 2>&1 # removes the imagelist files
  stop_daemon
  [ -z "$address" ] || ip address del "$address" dev uplink
  rm -rf "$socket" "$dir"
}
trap '[ $BASHPID != $$ ] || clean_up' EXIT # not in a child that is ended before it runs its program

# Starts a watch, and sees to it that it has begun: what changes for that is a configuration.
watching() { # watching FILE WORD...
  : >"$dir/$1"
  "$ctl" "${@:2}" --interval 0.02 >>"$dir/$1" 2>&1 &
  watch=$!
  eventually stirred "$1"
}

stirred() { # stirred FILE [LINES]
  changes=$((changes + 1))
  "$ctl" -c "default config v$changes.cfg" -c "group set 0 config v$changes.cfg"
  [ "$(wc -l <"$dir/$1")" -ge "${2:-1}" ]
}

watched() { # watched FILE LINES: waits until so much has been seen, and prints it without what differs each time
  eventually seen "$@"
  sed '/config changed/d; s/20[-0-9]\{8\}T[:0-9]\{8\}[-+][0-9][0-9]:[0-9][0-9]/TIME/; s/v[0-9]*\.cfg/v.cfg/g; s/ lost: .*/ lost/' "$dir/$1"
}

held() { # stops the watch between two looks: a daemon waits for whoever has connected
  kill -STOP "$watch"
  grep -q '^State:.T' "/proc/$watch/status" || return
  ls -l "/proc/$watch/fd" >"$dir/fd" && ! grep -q socket "$dir/fd" && return
  kill -CONT "$watch"
  return 1
}

seen() { [ "$(grep -vc 'config changed' "$dir/$1")" -ge "$2" ]; }

# A daemon that is told \xff\x9bx wherever the tool says QQQ, which by itself says only what is UTF-8.
twister() {
  python3 -c 'import socket, sys
front = socket.socket(socket.AF_UNIX)
front.bind(sys.argv[1])
front.listen()
while True:
    tool, daemon = front.accept()[0], socket.socket(socket.AF_UNIX)
    daemon.connect(sys.argv[2])
    daemon.sendall(tool.recv(65536).replace(b"QQQ", b"\xff\x9bx"))
    tool.sendall(daemon.recv(65536))
    tool.close()
' "$1" $socket &
  eventually test -S "$1"
}

# Types what the operator's guide has behind "$ " and "# ", and compares what comes of it with what the guide says. Left out
# are a question on a terminal, a watch, which has no end, and a trial, which wants a second terminal.
follow_guide() {
  local line
  awk '/^## /{on = /Making a director|Keeping a director|control tool/} /^```/{
    if (on && block ~ /^[$#] / && block !~ /\[y\/N\]|watch|--confirm/) printf "%s", block
    block = ""; next
  } {block = block $0 "\n"}' ../../docs/operating.md | sed "s,/etc/lumenharbour,$dir," >"$dir/guide"
  (
    cd "$dir" || exit
    # shellcheck disable=SC2317 # the guide calls it
    lumenharbourctl() { "$ctl" "$@"; }
    while IFS= read -r -u 3 line; do
      [[ $line != [\$\#]' '* ]] || { echo "$line" && eval "${line#??}" 3<&-; }
    done 3<"$dir/guide"
  ) >"$dir/session" 2>&1
  grep -q 'lumenharbourctl dhcp-vlan' "$dir/guide" || fail guide 'all its chapters' "$(tail -n 3 "$dir/guide")"
  diff -u "$dir/guide" "$dir/session" >"$dir/why" || fail guide 'what it says' "$(cat "$dir/why")"
}

if [ -z "$(ip -4 address show dev uplink)" ]; then
  address=192.0.2.1/24
  ip address add $address dev uplink || exit 1
fi
for file in manual start commands watch explain apply guard slips saved; do
  session $file.txt
  [ -z "${GTEST_FAIL_FAST:-}" ] || [ "$failed" = 0 ] || exit 1
done
stop_daemon
ip address del 192.0.2.1/24 dev uplink # the guide adds it
rm -f /tmp/b.txt
unset LUMENHARBOUR_PLATFORM_CONF
start_daemon 100 10 10
follow_guide
# What a library sets.
expect 0 $'Set an attribute of a group\n*\nAttributes:\n  status                      one of activate, *' group set -h
expect 0 $'Controls *\n  show   *\nA switch *: 0 done, *, 5 no answer in time.' help
# The daemon's own version, and what becomes of descriptors that nobody opened for it: none may be a requester's.
[ "$("$daemon" --version)" = "$("$ctl" --version | sed 's/ctl/d/')" ] || fail version "$("$ctl" --version)" "$("$daemon" --version)"
stop_daemon
"$daemon" <&- >&- 2>&- &
pid=$!
eventually "$ctl" get service
found=$(readlink /proc/$pid/fd/[012])
[ "$found" = $'/dev/null\n/dev/null\n/dev/null' ] || fail 'closed descriptors' /dev/null "$found"
[ "$failed" = 0 ]
