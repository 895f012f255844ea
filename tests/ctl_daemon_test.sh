#!/bin/bash
# Drives a daemon with the tool as operators and their scripts do: ctl_daemon_test.sh DAEMON CTL, both absolute paths.
#
# The daemon's fixed paths and an interface 'uplink' have to be its own; scripts/test sees to that.
set -u
# shellcheck source=scripts/await.sh
. "$(dirname "$0")/../scripts/await.sh"
exec </dev/null
daemon=$1
ctl=$2
socket=/tmp/lumenHarbour.socket
dir=$(mktemp -d) || exit 1
pid=''     # the daemon
address='' # what the uplink was given
failed=0

# ---- Harness ----

fail() { # fail WHAT EXPECTED FOUND
  failed=$((failed + 1))
  printf '%s\n  expected: %s\n  found:    %s\n' "$@"
}

# Runs the tool and compares: expect EXIT TEXT WORD...
#
# TEXT is standard output and, behind it, standard error with "! " in place of the tool's name. It may be a pattern.
expect() {
  local exit=$1 text=$2 found status=0
  shift 2
  "$ctl" "$@" >"$dir/out" 2>"$dir/err" || status=$?
  found=$(cat "$dir/out"; sed 's/^lumenharbourctl: /! /; t; s/^/unexpected: /' "$dir/err")
  # shellcheck disable=SC2053 # a pattern
  [[ $status = "$exit" && ($found = "$text" || $found = $text) ]] || fail "$*" "[$exit] $text" "[$status] $found"
}

# Every line is JSON; a failure ends in one error, with the fields of every other, and has nothing on standard error.
JSON_CHECK='
import json, os, sys
exit, status, expression, out, err = sys.argv[1:]
d = [json.loads(line) for line in open(out)]
errors = [value["error"] for value in d if "error" in value]
assert status == exit and [error["exit"] for error in errors] == [int(exit)] * (exit != "0")
assert all(list(error) == ["status", "exit", "code", "name", "message", "advice"] for error in errors)
assert not errors or "error" in d[-1] and os.path.getsize(err) == 0
assert eval(expression)'

expect_json() { # expect_json EXIT EXPRESSION WORD...: the expression, in Python, is about d, a list of what was printed
  local status=0
  "$ctl" -f json "${@:3}" >"$dir/out" 2>"$dir/err" || status=$?
  python3 -c "$JSON_CHECK" "$1" "$status" "$2" "$dir/out" "$dir/err" 2>"$dir/why" ||
    fail "-f json ${*:3}" "[$1] $2" "[$status] $(cat "$dir/out" "$dir/err" "$dir/why")"
}

eventually() { # eventually COMMAND...: tries it until it succeeds
  await -l "$dir/daemon" "$@" || failed=$((failed + 1))
}

succeeds() { # succeeds WHAT PROCESS
  wait "$2" || fail "$1" 'exit 0' "exit $?"
}

finish() { # finish PROCESS: ends a child; the number of one that has ended may be a stranger's
  ! jobs -rp | grep -qx "$1" || { kill "$1"; kill -CONT "$1"; }
  wait "$1" 2>/dev/null
}

start_daemon() {
  "$daemon" 20 20 20 >>"$dir/daemon" 2>&1 &
  pid=$!
  eventually "$ctl" get state
}

stop_daemon() {
  [ -z "$pid" ] || finish "$pid"
  pid=''
}

clean_up() {
  [ "$failed" = 0 ] || { echo "== $failed failed; the daemon's output ends =="; tail -n 40 "$dir/daemon"; }
  "$ctl" service stop >"$dir/out" 2>&1 # removes the imagelist files
  stop_daemon
  [ -z "$address" ] || ip address del "$address" dev uplink
  rm -rf "$socket" "$dir"
}
trap '[ $BASHPID != $$ ] || clean_up' EXIT # not in a child that is ended before it runs its program

# ---- Cases ----

absent() {
  local waiting why="no daemon reached on $socket: No such file or directory"
  expect 4 "! cannot get state: $why; is lumenharbourd running? --socket names another socket" get state
  expect_json 4 'd[0]["error"]["status"] == "unreachable" and d[0]["error"]["name"] is None' group delete 3
  expect 2 "! bad value '4096' for *; expected VLAN ids from 0 to 4095 such as 1,5,100-120" vlan add 4096
  expect 5 "! gave up after 0.1 s: *$why*" wait --for role=client -t 0.1
  "$ctl" wait --for state=off -t 30 &
  waiting=$!
  start_daemon
  succeeds 'wait for a daemon that is to come' $waiting
}

words() {
  expect 0 off ge state
  expect 2 "! 'd' is ambiguous; it begins director, debug, default, dhcp-vlan, download" d on
  expect 2 "! 'group' has no command 'delte'; did you mean delete?" group delte 3
  expect 2 "! 'group' wants one more word; see 'lumenharbourctl group --help'" gro
  expect 2 "! there is no global attribute 'defualt-image'; did you mean default-image?" get defualt-image
  expect_json 2 'd[0]["error"]["status"] == "usage" and "NAME" in d[0]["error"]["message"]' group add 3
  expect 2 "! '0' is no time-out; *" -t 0 get state
}

stopped() {
  local why="ERR_ZOR_NOTSTARTED: the service is stopped; start it with 'lumenharbourctl service start'"
  expect 1 "! *: $why" client flush
  expect 0 $'role                    none\nservice                 off\n*groups    0     20    20*' show
  expect_json 0 'd[0]["role"] == "none" and d[0]["pools"][1] == {"pool": "members", "used": 0, "free": 20, "max": 20}' \
    show
  expect 1 "! cannot set default-image: $why" default image v1.bin
  expect 1 "! cannot add group 3 (lab): *service start'" group add 3 lab --type mac
  expect 1 "! cannot announce *: $why" announce --mac 02:00:00:00:00:01 --pid 7 --ip 192.0.2.77
  expect_json 1 'd[0]["error"]["name"] == "ERR_ZOR_NOTSTARTED" and d[0]["error"]["code"] > 0' director start
}

FOREIGN="is no address of this switch: it is kept as the director's, and this switch is not the director"

roles() {
  local become="make it with 'lumenharbourctl director address A.B.C.D'"
  expect 0 off -c 'service start' -c 'notify off' -c 'wait --for role=client -t 5' -c 'get client-notify'
  expect 1 '! cannot set director-state: ERR_AUTOCFG_NODIRECTORIP: *' director start
  expect 0 "! 192.0.2.9 $FOREIGN" director address 192.0.2.9
  expect 0 '' director type 1
  expect 1 '! cannot set director-state: ERR_AUTOCFG_IPMISMATCH: *; give this switch the address, *' director start
  expect 1 "! cannot set default-image: *director*; $become" default image v1.bin
  expect 1 "! cannot add group 3 (lab): *director*; $become" group add 3 lab --type mac
  expect 0 '! there are no groups; only the director has groups, clients and defaults, and this switch is not it' show group
  expect 0 '' director address 192.0.2.1
  expect 1 "! cannot set client-notify: ERR_ZOR_UNSUPPORTED: *'lumenharbourctl director stop'" notify on
  expect 0 '' default image v1.bin
  expect 1 '! cannot set dhcp-client-vlan: VLAN 4 has no interface on this switch; *' dhcp-vlan 4
}

groups() {
  expect 0 0 group add auto floor-2 --type mac --image v2.bin --activate
  expect 1 '! cannot add group 1 (floor-2): its name: ERR_ZOR_EXISTS*' group add auto floor-2 --type mac
  mkdir /tmp/blocked.txt
  expect 1 '! cannot add group 5 (blocked): *ERR_AUTOCFG_IMAGELIST*' group add 5 blocked --type mac --activate
  rmdir /tmp/blocked.txt
  expect 2 "! '17' cannot be a group's name; a number is always taken for a group's id" group add auto 17 --type mac
  expect 2 "! '0x1f' cannot be a group's name; *" group set floor-2 name 0x1f
  expect_json 0 'd == [{"id": 1}]' group add auto lab --type pid
  expect 0 $'ID *\n0   floor-2  mac   active   0        v2.bin  -\n1   lab      pid   created  0 *' show group
  expect 0 '! group 0 is active; its imagelist file stays as it is until it is activated again' group set 0 image v3.bin
  expect 0 '' group activate floor-2
  grep -q v3.bin /tmp/floor-2.txt || fail 'group activate' 'v3.bin in the imagelist file' "$(cat /tmp/floor-2.txt)"
  expect 3 "! no group has the name 'attic'; 'lumenharbourctl show group' lists them" group delete attic
  expect_json 3 'd[0]["error"]["name"] == "ERR_ZOR_NOTFOUND"' show group 12

  expect 0 '' group member add floor-2 02:00:00:00:00:01 02-00-00-00-00-0A
  expect 1 '! *MAC member 02:00:00:00:00:0a of group 0: it is there already; none was added' group member add 0 02:00:00:00:00:0a
  expect 1 '! *: ERR_AUTOCFG_NOTPIDGRP: *type pid*' group member add floor-2 7
  expect 1 '! cannot set type of group 0: it has the members *' group set floor-2 type pid
  expect 1 '! *: ERR_AUTOCFG_NOTMACGRP: *type mac*' group member add lab 02:00:00:00:00:01
  expect 0 '' group member del floor-2 02:00:00:00:00:01
  expect 3 '! cannot delete MAC member 02:00:00:00:00:01 of group 0: *' group member del 0 02:00:00:00:00:01
  expect 0 $'id: 0\n*\nname: floor-2\n*\nmembers: 02:00:00:00:00:0a' show group floor-2

  # A row that is made where another was has nothing of it.
  local fresh=$'\nimage-local: no\nconfig-local: no\nimage: -\nconfig: -'
  expect 0 '' -c 'builtin add 7 --image b.bin --config b.cfg' -c 'builtin set 7 image-local yes' -c 'builtin delete 7'
  expect 0 $'pid: 8\nstatus: created'"$fresh" -c 'builtin add 8' -c 'builtin get 8'
  expect 0 '' -c 'group set lab config-local yes' -c 'group set lab config lab.cfg' -c 'group delete lab'
  expect 0 $'id: 1\nstatus: created\nname: attic\ntype: pid'"$fresh" -c 'group add 1 attic --type pid' -c 'group get 1'
  expect 0 '' group delete attic
}

clients() {
  local waiting
  expect 0 $'imagelist: floor-2.txt\nconfig: -' announce --mac 02:00:00:00:00:0a --pid 7 --ip 192.0.2.77
  expect 0 $'INDEX  MAC  *\n0      02:00:00:00:00:0a  192.0.2.77  7' show client
  expect 0 $'index: 0\nip: 192.0.2.77\nmac: 02:00:00:00:00:0a\npid: 7' show client 02-00-00-00-00-0A
  expect 3 '! no client has the MAC address 02:00:00:00:00:0b; *' client delete 02:00:00:00:00:0b
  expect 0 '' client delete 02:00:00:00:00:0a
  "$ctl" wait --for 'client-count>=1' -t 30 &
  waiting=$!
  expect 0 'imagelist: *' announce --mac 02:00:00:00:00:0b --pid 7 --ip 192.0.2.78
  succeeds 'wait for a client' $waiting
  expect 5 '! gave up after 1 s: client-count is 1, expected client-count=2' wait --for client-count=2 -t 1
  expect 2 "! 'rule=director' is no condition; expected role, *" wait --for rule=director
  expect 0 '! there are no clients' -c 'client flush' -c 'show client'
  expect 0 '' -c 'vlan del 0-4095' -c 'vlan add 5,10-13,100' -c 'vlan del 11'
  expect 0 $'management: 5,10,12-13,100\ndhcp-client: 0' show vlan
}

several() {
  local error="there is no global attribute 'stat'; *"
  expect 2 $'on\n! '"$error" -c 'get state' -c 'get stat' -c 'default image v9.bin'
  expect 2 $'on\n! line 3: '"$error" <<<$'get state\n# a note\nget stat\ndefault image v9.bin'
  expect_json 2 'd[0] == {"state": "on"} and len(d) == 2' -c 'get state' -c 'get stat' -c 'default image v9.bin'
  expect 2 $'v1.bin\n! \'client flush\' changes the daemon; *' --read-only -c 'get default-image' -c 'client flush'
  expect 2 '{"error":{"status":"usage",*' -c '-f json get stat'
  expect 2 "! $error" -f json -c '-f plain get stat'
  expect 0 'a b.bin' -c "default image 'a b.bin'" -c 'get default-image'
  expect_json 0 'd == [{"status": "done"}]' default image v1.bin
}

on_terminal() { # on_terminal COLUMNS WORD...
  script -qec "stty cols $1; '$ctl' ${*:2}" /dev/null | tr -d '\r'
}

output() {
  local name image format
  name=$(printf '%060d' 0 | tr 0 n)
  image=$(printf '%0120d' 0 | tr 0 i)
  expect 0 '' group add 1 "$name" --type mac --image "$image"
  expect 0 "*$name*$image*" show group
  on_terminal 80 show group >"$dir/out"
  awk 'length > 80 { wide = 1 } /nnn\.\. .*iii\.\. / { cut = 1 } END { exit wide || !cut }' "$dir/out" ||
    fail 'show group in 80 columns' 'lines that fit' "$(cat "$dir/out")"
  on_terminal 200 show group >"$dir/out"
  grep -q " $name .*ii\.\. " "$dir/out" || fail 'show group in 200 columns' 'the whole name' "$(cat "$dir/out")"
  expect 0 '' group delete "$name"
  for format in plain json; do
    "$ctl" -f $format get state >/dev/full 2>"$dir/err"
    echo "exit $?" >>"$dir/err"
    [[ $(cat "$dir/err") = *'No space left on device'*'exit 1' ]] ||
      fail "-f $format on a full disk" 'the reason, and exit 1' "$(cat "$dir/err")"
  done
}

silence() {
  kill -STOP "$pid"
  expect 5 "! cannot get state: the daemon on $socket did not answer within 300 ms; *--timeout" -t 0.3 get state
  expect_json 5 'd[0]["error"]["status"] == "timed-out"' -t 0.3 show
  kill -CONT "$pid"
}

elsewhere() { # a daemon that has another /tmp
  local other
  cp "$daemon" /run/other # the daemon may itself be below /tmp
  unshare -m sh -c 'mount -t tmpfs tmpfs /tmp && exec /run/other 5 5 5' >"$dir/other" 2>&1 &
  other=$!
  eventually "$ctl" -s /proc/$other/root$socket wait --for group-max=5 -t 0.1
  expect 0 20 get group-max
  finish $other
  rm /run/other
}

watched() { # watched FILE: makes a change; true when two are watched
  "$ctl" default config "v$((++changes)).cfg"
  [ "$(wc -l <"$1")" -ge 2 ]
}

watching() {
  local watch status=0 changes=0
  local line='^20[-0-9]{8}T[:0-9]{8}[-+][0-9]{4} global default-config changed: .+ -> v[0-9]+\.cfg$'
  "$ctl" watch --interval 0.02 >"$dir/watched" 2>&1 &
  watch=$!
  eventually watched "$dir/watched"
  jobs -rp | grep -qx $watch || fail watch 'still there' gone
  grep -qE "$line" "$dir/watched" || fail watch 'a change of default-config' "$(cat "$dir/watched")"
  stop_daemon
  eventually grep -q ' daemon lost' "$dir/watched"
  start_daemon
  eventually grep -q ' daemon back$' "$dir/watched"
  finish $watch

  expect 0 '' -c 'service start' -c 'director address 192.0.2.1'
  timeout 60 "$ctl" -f json watch --limit 2 --interval 0.02 >"$dir/limited" 2>&1 &
  watch=$!
  eventually watched "$dir/limited"
  wait $watch || status=$?
  python3 -c "$JSON_CHECK" 0 "$status" \
    'len(d) == 2 and d[0]["attribute"] == "default-config" and d[0]["new"] == d[1]["old"]' "$dir/limited" /dev/null ||
    fail 'watch --limit 2' 'two changes' "[$status] $(cat "$dir/limited")"
  expect 2 "! only what 'show' shows can be watched; *" watch get state
}

sets() { grep -c ' set: .*cmd' "$dir/daemon"; }

expect_untouched() { # like expect, of a command that sends no request to set anything
  local before
  before=$(sets)
  expect "$@"
  [ "$(sets)" = "$before" ] || fail "${*:3}" 'no set request' "$(($(sets) - before))"
}

SITE='service: on
director: {address: 192.0.2.1}
defaults: {image: v1.bin, config: g.cfg}
vlans: 1,5,100-120
groups:
  - {name: floor-2, type: mac, image: v1.bin, members: [02:00:00:00:00:01, 02:00:00:00:00:02]}
  - {name: lab, type: pid, active: no, members: [7]}
builtins:
  - {pid: 9, image: b.bin, image-local: yes}'

PLAN='~ vlans: - -> 1,5,100-120
+ group floor-2 (id 0)
+ member 02:00:00:00:00:01 of group floor-2
+ member 02:00:00:00:00:02 of group floor-2
+ group lab (id 1)
+ member 7 of group lab
+ built-in group 9
~ default-image: - -> v1.bin
~ default-config: - -> g.cfg
9 changes'

applying() {
  local file=$dir/site.yaml
  echo "$SITE" >"$file"
  # From here on the daemon's output tells each request. It must not see a client in a built-in group then.
  expect 0 '' -c 'service stop' -c 'debug on' -c 'service start' -c 'director address 192.0.2.1' -c 'vlan del 0-4095'
  expect_untouched 0 "$PLAN to make" --read-only apply --dry-run "$file"
  expect_untouched 2 '! *--read-only*' --read-only apply "$file"
  expect 0 "$PLAN made" apply "$file"
  [ "$(sets)" -gt 20 ] || fail apply "its set requests in the daemon's output" "$(sets) of them"
  expect_untouched 0 'nothing to change' apply "$file"
  "$ctl" export >"$dir/export.yaml"
  expect_untouched 0 'nothing to change' apply --prune - <"$dir/export.yaml"

  sed -i 's/image: v1.bin, members/image: v2.bin, members/; s/, 02:00:00:00:00:02]/]/; /lab/d' "$file"
  expect 0 $'~ group floor-2: image v1.bin -> v2.bin\n1 change made\n! *--prune*' apply "$file"
  grep -q v2.bin /tmp/floor-2.txt || fail apply 'v2.bin in the imagelist file' "$(cat /tmp/floor-2.txt)"
  expect 0 $'- *\n- *\n2 changes made' apply --prune "$file"
  expect 0 '*members: 02:00:00:00:00:01' show group floor-2

  "$ctl" export >"$dir/export.yaml"
  "$ctl" -f json export >"$dir/export.json"
  expect 0 '' service stop
  expect_json 0 'not d[0]["dry-run"] and d[0]["changed"][0]["attribute"] == "state"' apply "$dir/export.json"
  expect 0 "$(cat "$dir/export.yaml")" export
}

bad() { # bad EXPECT EXIT TEXT LINE...: applies a file of these lines
  printf '%s\n' "${@:4}" >"$dir/bad.yaml"
  "$1" "$2" "$3" apply "$dir/bad.yaml"
}

misapplying() {
  local at="! $dir/bad.yaml" group='- {name: a, type: mac}' untouched='bad expect_untouched'
  expect 3 '! cannot read /no/such/file: No such file or directory' apply /no/such/file
  $untouched 2 "$at:2: 'grops' is no key of the file; expected *groups*" 'defaults: {image: v9.bin}' 'grops: []'
  $untouched 2 "$at:3: type is 'max'; expected *" 'defaults: {image: v9.bin}' groups: '- {name: a, type: max}'
  $untouched 2 "$at:3: *member 7; *" 'vlans: 7' groups: '- {name: a, type: mac, members: [7]}'
  $untouched 2 "$at:3: *a is listed twice; *" groups: "$group" "$group"
  $untouched 2 "$at:2: '17' cannot be a group's name; *" groups: '- {name: 17, type: mac}'
  $untouched 2 "$at:[23]: *; expected YAML or JSON" groups: '- {name: a'
  $untouched 1 '! cannot apply *: that makes 21 groups, and group-max is 20; *' groups: \
    "$(printf -- '- {name: g%d, type: mac}\n' {1..20})"

  mkdir /tmp/attic.txt
  bad expect 1 '! *group attic*ERR_AUTOCFG_IMAGELIST*' \
    groups: '- {name: attic, type: mac, members: [02:00:00:00:00:03]}'
  rmdir /tmp/attic.txt
  expect 0 '*' apply "$dir/bad.yaml"
  expect 0 $'*status: active\nname: attic\n*members: 02:00:00:00:00:03' show group attic
  expect 0 $'nothing to change\n! 1 group is not in the file; --prune deletes it' apply "$dir/bad.yaml"
  $untouched 1 '! cannot apply *: it gives the director the address 192.0.2.9 in place of 192.0.2.1; *' \
    'director: {address: 192.0.2.9}' 'groups: []'
}

saved() { # a switch that has a saved configuration starts with no role
  local file=$dir/director.yaml
  stop_daemon
  echo 'a saved configuration' >"$dir/startcfg"
  echo "startup_config = $dir/startcfg" >"$dir/platform.conf"
  export LUMENHARBOUR_PLATFORM_CONF=$dir/platform.conf
  start_daemon
  expect 0 $'role                    none\nservice                 on\n*' -c 'service start' -c show
  expect 0 $'role                    client or none\n*' --read-only show
  expect 0 '' --read-only -c 'wait --for role!=director -t 5' -c 'wait --for director-ip=none -t 5'
  expect 2 "! what 'role!=none' waits for cannot be told with --read-only; *" --read-only wait --for 'role!=none' -t 5
  expect 1 '! *, and a switch that started with a saved configuration has none' notify on
  printf '%s\n' 'service: on' 'director: {address: 192.0.2.9}' 'groups: []' >"$file"
  expect 1 $'~ director-ip: none -> 192.0.2.9\n! cannot apply *: 192.0.2.9 '"$FOREIGN; *" apply "$file"
  expect 1 "! cannot apply *: 192.0.2.9 $FOREIGN; *" apply "$file"
  expect 0 "0"$'\n'"! 192.0.2.9 $FOREIGN" -c 'director address 192.0.2.9' -c 'get director-ip-type'
  expect 0 0 -c 'director address 192.0.2.1' -c 'wait --for role=director -t 5' -c 'get director-ip-type'
  expect 0 '' director address 192.0.2.1
  sed -i s/2.9/2.1/ "$file"
  expect 0 'nothing to change' apply "$file"
  expect 0 $'~ director-state: off -> on\n1 change made' -c 'director stop' -c "apply $file"
  "$ctl" export >"$dir/export.yaml"
  stop_daemon
  start_daemon
  expect 0 $'~ state: off -> on\n~ director-ip: none -> 192.0.2.1\n2 changes made' apply "$dir/export.yaml"
  expect 0 'nothing to change' apply "$dir/export.yaml"
}

if [ -z "$(ip -4 address show dev uplink)" ]; then
  address=192.0.2.1/24
  ip address add $address dev uplink || exit 1
fi
absent; words; stopped; roles; groups; clients; several; output; silence; elsewhere; watching; applying; misapplying; saved
[ "$failed" = 0 ]
