#!/bin/bash
# Runs udhcpc's script with what a DHCP server may send, good and hostile, then with a real lease, and the start script
# with the real daemon: udhcpc_test.sh SOURCE DAEMON CTL
#
# Every case runs under both shells that switches have. It wants paths, network and mounts of its own: scripts/private.
set -u
source=$1
# shellcheck source=/dev/null
. "$source/scripts/await.sh"
export LUMENHARBOUR_FETCH=${2%/*}/fetch
dir=$(mktemp -d) || exit 1
PATH=${2%/*}:${3%/*}:$dir/tools:$source/lab/stand-ins:$PATH
script=$source/dhcp/udhcpc/lumenharbour.script
state=$dir/lease/dhcp.options
failed=0

# shellcheck disable=SC2046,SC2317 # one word a process; the trap calls it
clean_up() {
  kill $(jobs -p) 2>/dev/null # and wait: lumenharbour-start ends its daemon
  wait 2>/dev/null
  umount "$dir/full" 2>/dev/null
  rm -rf "$dir"
}
trap clean_up EXIT

fail() { # fail WHAT EXPECTED FOUND
  failed=1
  printf '%s\n  expected: %s\n  found:    %s\n' "$@"
}

eventually() { # eventually LOG COMMAND...: tries it until it succeeds, or shows the log
  await -l "$@" || failed=1
}

tool() { # tool FILE LINE: a program of the test's own
  mkdir -p "$(dirname "$1")"
  printf '#!/bin/sh\n%s\n' "$2" >"$1"
  chmod +x "$1"
}

tool "$dir/tools/tftp" false

# A daemon that never answers, while there is no other.
tool "$dir/mute/lumenharbourd" "trap '' TERM; echo \$\$ >$dir/mute/pid; exec sleep 600"
tool "$dir/mute/lumenharbourctl" "echo >>$dir/mute/asked; exec $3 \"\$@\""
PATH=$dir/mute:$PATH LUMENHARBOUR_DIRECTOR_FILE=/dev/null "$source/packaging/lumenharbour-start" 2>"$dir/mute/err" &
mute=$!

# --- what becomes of a reply ------------------------------------------------------------------------------------------

run() { # run SHELL EVENT [VARIABLE=VALUE...]
  # shellcheck disable=SC2086 # two words for BusyBox
  env -i PATH="$PATH" LUMENHARBOUR_DHCP_STATE="$state" LUMENHARBOUR_UDHCPC_DIR="$dir/hooks.d" \
    LUMENHARBOUR_CONFIGURE=no interface=eth0 "${@:3}" $1 "$script" "$2" 2>"$dir/err"
}

# gives LINES REFUSAL VARIABLE=VALUE...: what a reply leaves in the file, "-" for no file, and what is told, a pattern
gives() {
  local shell found
  for shell in 'busybox ash' dash; do
    mkdir -p "$dir/lease"
    echo old >"$state"
    run "$shell" bound "${@:3}"
    found=-
    [ ! -e "$state" ] || found=$(tr '\n' ' ' <"$state")
    [ "${found% }" = "$1" ] || fail "$shell: ${*:3}" "$1" "$found"
    # shellcheck disable=SC2053 # a pattern
    [[ $(cat "$dir/err") = ${2:+lumenharbour.script: refused: $2} ]] || fail "$shell: ${*:3}" "$2" "$(cat "$dir/err")"
  done
}

all='imagelist=a.txt config-file=b image-file=c tftp-server=192.0.2.1 ftp-server=192.0.2.2 ftp-username=u'
gives "$all ftp-password=p%s reboot-time=4294967295 auth-msg=\$ {" '' \
  opt43=0105612e7478740201620301630404c00002010504c000020206017507037025730804ffffffff090324207b
gives 'imagelist=b' '' opt43=000001016200ff010163
gives 'imagelist=b' '' opt43=c803aabbcc010162
gives 'imagelist=b' '' opt43=01016102000101620900 # the last one counts, and no text is none
gives 'imagelist=d\a' '' opt43=0103645c61
gives $'imagelist=\xc3\xbc\xff' '' opt43=0103c3bcff
shell_text='a character that a shell interprets'
gives - 'option 43, sub-option 1 (imagelist file) has a control character' opt43=0901780103610a62
gives - 'option 43, sub-option 2 (configuration file) has a control character' opt43=020361007f
gives - 'option 43, sub-option 3 (image file) has a control character' opt43=03021f41
gives - 'option 43, sub-option 9 (authentication message) has a control character' opt43=09017f010162
gives - "*sub-option 7 (FTP password) has $shell_text" opt43=0702615c
for byte in 20 22 24 26 27 28 29 2a 3b 3c 3e 3f 5b 60 7b 7c; do
  gives - "*sub-option 6 (FTP user name) has $shell_text" opt43=010162060361${byte}62
done
for byte in 23 2d 7e; do
  gives - "*sub-option 1 (imagelist file) begins with '#', '-' or '~'" opt43=0102${byte}72
  gives "imagelist=a$(printf %b "\\x$byte")" '' opt43=010261$byte
done
gives - 'option 43, sub-option 9 is 9 bytes long, and 1 are left' opt43=010162090978 siaddr=192.0.2.9
gives - '*sub-option 9 has no length' opt43=01016209
gives - '*sub-option 4 (TFTP server) is 3 bytes long, expected 4' opt43=0403c00002010162 siaddr=192.0.2.9
gives - '*sub-option 8 (reboot time) is 5 bytes long, expected 4' opt43=08050000000001
# shellcheck disable=SC2016 # that is what is sent
gives - 'option 43 is not written in hexadecimal' 'opt43=01$(id)'
gives - 'option 43 ends in half a byte' opt43=010
gives 'imagelist=b tftp-server=192.0.2.7' '' opt43=010162 opt150=c0000207c0000208 tftp=192.0.2.8 siaddr=192.0.2.9
gives 'config-file=b tftp-server=192.255.2.8' '' opt43=020162 opt150=00000000 tftp=192.255.2.8 siaddr=192.0.2.9
gives 'tftp-server=192.0.2.9 auth-msg=b' '' opt43=090162 opt150=c00002 tftp=files.example siaddr=192.0.2.9
# Nothing of it was meant for this system: another's option 43, or credentials and a number alone, are no orders.
for option in '' opt43=f104c0000201 opt43=00ff opt43=060175070170080400000001 opt43=0100; do
  gives '' 'the reply has no option 43 of this system (LUMENHARBOUR_REQUIRE_OPTION_43)' \
    ${option:+"$option"} opt150=c0000207 tftp=192.0.2.8 siaddr=192.0.2.9 bootfile=pxelinux.0 boot_file=pxelinux.0
done
any=LUMENHARBOUR_REQUIRE_OPTION_43=no
gives 'image-file=a.bin tftp-server=192.0.2.9' '' $any siaddr=192.0.2.9 bootfile=a.bin
gives '' '' $any tftp=192.0.2.256 siaddr=0.0.0.0
gives '' '' $any tftp=192.0.2.010 siaddr=$'192.0.2.1\nauth-msg=x'
gives 'tftp-server=192.0.2.1' '' opt43=0404c0000201 opt150=c0000207
gives 'ftp-server=192.0.2.2' '' opt43=0504c0000202 siaddr=192.0.2.9
gives 'image-file=c' '' opt43=030163 bootfile=a.bin
gives 'imagelist=b image-file=a.bin' '' opt43=010162 bootfile=a.bin boot_file=b.bin
gives 'imagelist=b image-file=b.bin' "option 67 has $shell_text" opt43=010162 'bootfile=a;reboot' boot_file=b.bin
gives '' 'the BOOTP file field has a control character' $any boot_file=$'b\ntftp-server=192.0.2.66'

# One table, in three languages. What the numbers mean to both ends is tested with the DHCP server's hook.
table=$(sed -nE 's/^  SUBOPTION_.* = ([0-9]+), +\/+< (.*): (.*)/| \1 | \2 | \3 |/p' "$source/dhcp/option43.h")
guide=$(sed -n '/^| number | what | value |$/,/^$/p' "$source/docs/operating.md" | sed '1,2d')
[ "$guide" = "$table" ] || fail "the guide's table of sub-options" "$table" "$guide"
names=$(sed -nE 's/^    ([0-9]+)\) take_.* \((.*)\)" .*/| \1 | \2 /p' "$script")
[ "$names" = "$(cut -d '|' -f 1-3 <<<"$table")" ] || fail "the script's names of sub-options" "$table" "$names"

# --- the file, and who runs behind ------------------------------------------------------------------------------------

for shell in 'busybox ash' dash; do
  mkdir -p "$dir/hooks.d/directory"
  tool "$dir/hooks.d/50-other" "echo \"\$1 \$interface\" >>$dir/chained"
  for event in deconfig nak leasefail; do
    rm -rf "$dir/lease"
    run "$shell" bound opt43=010162
    [ "$(stat -c %a "$state")" = 600 ] || fail "$shell: mode" 600 "$(stat -c %a "$state")"
    run "$shell" $event
    [ ! -e "$state" ] || fail "$shell: $event" 'no file' "$(cat "$state")"
  done
  [ "$(tr '\n' , <"$dir/chained")" = 'bound eth0,deconfig eth0,bound eth0,nak eth0,bound eth0,leasefail eth0,' ] ||
    fail "$shell: chained" 'each event' "$(cat "$dir/chained")"
  rm -r "$dir/hooks.d" "$dir/chained"
  # Room for the old file alone.
  mkdir -p "$dir/full"
  mount -t tmpfs -o size=8k none "$dir/full" && echo old >"$dir/full/options" && head -c 4k /dev/zero >"$dir/full/rest"
  run "$shell" renew opt43=010162 LUMENHARBOUR_DHCP_STATE="$dir/full/options" && fail "$shell: no room" 'a failure' none
  grep -q "cannot write $dir/full/options" "$dir/err" || fail "$shell: no room" 'a complaint' "$(cat "$dir/err")"
  [ "$(ls "$dir/full") $(cat "$dir/full/options")" = $'options\nrest old' ] ||
    fail "$shell: no room" 'the old file alone' "$(tail "$dir/full/options"*)"
  mount -o remount,nr_inodes=3 "$dir/full" # for no more files
  run "$shell" renew siaddr=192.0.2.9 LUMENHARBOUR_DHCP_STATE="$dir/full/options"
  [ ! -s "$dir/full/options" ] || fail "$shell: no room, no option 43" 'nothing old' "$(cat "$dir/full/options")"
  umount "$dir/full"
done

# --- a real lease -----------------------------------------------------------------------------------------------------

export LUMENHARBOUR_DHCP_STATE=$state LUMENHARBOUR_UDHCPC_DIR=/nowhere LUMENHARBOUR_UDHCPC_PID=$dir/pid
unshare -n sleep 600 &
switch=$!
# shellcheck disable=SC2317 # await calls them
is_apart() { [ "$(readlink "/proc/$switch/ns/net")" != "$(readlink /proc/self/ns/net)" ]; }
# shellcheck disable=SC2317
says() { [ "$(tr '\n' ' ' <"$state")" = "$1 " ]; } # says LINES: the file does
interface() { # what became of the switch's interface
  nsenter -t $switch -n ip address show dev lease1 | grep -o 'mtu [0-9]*\|inet [^ ]* brd [^ ]*'
  nsenter -t $switch -n ip route show default
}
serve() { # serve OPTION-43: a DHCP server, in place of the last one
  [ -z "${server:-}" ] || { kill "$server"; wait "$server"; } 2>/dev/null
  printf '%s\n' 'start 192.0.2.20' 'end 192.0.2.20' 'interface lease0' "lease_file $dir/leases" 'siaddr 192.0.2.9' \
    'boot_file b.bin' 'opt subnet 255.255.255.128' 'opt router 192.0.2.1' 'opt mtu 1400' "opt 43 $1" >"$dir/conf"
  busybox udhcpd -f -a 200 "$dir/conf" >>"$dir/server" 2>&1 &
  server=$!
}

eventually /dev/null is_apart
ip link add lease0 type veth peer name lease1 netns $switch
ip address add 192.0.2.1/25 dev lease0
ip link set lease0 up
touch "$dir/leases"
serve 0101610901ff
nsenter -t $switch -n "$source/dhcp/udhcpc/lumenharbour-udhcpc" lease1 4711 -T 1 >"$dir/client" 2>&1 &
eventually "$dir/client" says $'imagelist=a image-file=b.bin tftp-server=192.0.2.9 auth-msg=\xff'
found=$(interface)
[ "$found" = $'mtu 1400\ninet 192.0.2.20/25 brd 192.0.2.127\ndefault via 192.0.2.1 dev lease1 ' ] ||
  fail interface 'address, MTU and route' "$found"
serve 0101620404c0000207
"$source/dhcp/udhcpc/lumenharbour-renew" || fail lumenharbour-renew 'exit 0' "$?"
eventually "$dir/client" says 'imagelist=b image-file=b.bin tftp-server=192.0.2.7'
kill -USR2 "$(cat "$dir/pid")"
eventually "$dir/client" test ! -e "$state"

# A switch without ip has ifconfig and route.
mkdir "$dir/applets"
for applet in busybox $(busybox --list); do ln -s "$(command -v busybox)" "$dir/applets/$applet"; done
rm "$dir/applets/ip"
without_ip() { # without_ip EVENT VARIABLE...: runs the script, and tells what became of the interface
  nsenter -t $switch -n env PATH="$dir/applets" interface=lease1 "${@:2}" busybox ash "$script" "$1" 2>"$dir/err"
  interface
}
found=$(without_ip bound ip=192.0.2.21 subnet=255.255.255.0 mtu=1300 router='192.0.2.2 192.0.2.3')
[ "$found" = $'mtu 1300\ninet 192.0.2.21/24 brd 192.0.2.255\ndefault via 192.0.2.2 dev lease1 ' ] ||
  fail 'an interface without ip' 'address, MTU and route' "$found $(cat "$dir/err")"
found=$(without_ip renew ip=192.0.2.22)
[ "$found" = $'mtu 1300\ninet 192.0.2.22/24 brd 192.0.2.255' ] || fail 'a renewal without ip' 'no route' "$found"
found=$(without_ip deconfig)
[ "$found" = 'mtu 1300' ] || fail 'no lease without ip' 'no address' "$found"
found=$("$script" 2>&1) && fail usage 'exit 2' 'exit 0'
[ "$found" = 'lumenharbour.script: udhcpc runs this with one of deconfig, bound, renew, nak, leasefail' ] ||
  fail usage 'what to run it with' "$found"

renews() { # renews ASKED SIGNAL: which one ends a client, USR1 or TERM behind it, when the last renewal was then
  local client status
  (exec -a udhcpc sleep 600) &
  client=$!
  eventually /dev/null grep -qzx 600 /proc/$client/cmdline
  echo $client >"$dir/pid"
  echo "$1" >"$dir/pid.asked"
  {
    "$source/dhcp/udhcpc/lumenharbour-renew" || fail lumenharbour-renew 'exit 0' "$?"
    kill $client
    wait $client
    status=$?
  } 2>/dev/null # where the shell tells the signal
  [ $status = "$((128 + $(kill -l "$2")))" ] || fail "renewal after $1, now $(date +%s)" "$2" "$(kill -l $status)"
}
now=$(date +%s)
renews "$now" TERM
for asked in $((now - 15)) $((now + 1000)) 08 1x; do
  renews "$asked" USR1
done
echo "$switch" >"$dir/pid"
"$source/dhcp/udhcpc/lumenharbour-renew" 2>"$dir/err" && fail 'a stale pid file' 'a failure' none
kill -0 "$switch" || fail 'a stale pid file' 'its process left alone' 'no process'

# --- the start script -------------------------------------------------------------------------------------------------

# start DIRECTOR-FILE [SHELL]: each of its processes holds a lock
start() {
  export LUMENHARBOUR_DIRECTOR_FILE=$1
  : >"$dir/start"
  # shellcheck disable=SC2086 # two words for BusyBox
  flock -F "$dir/lock" ${2:-sh} "$source/packaging/lumenharbour-start" >>"$dir/start" 2>&1 &
  started=$!
}
daemon() { pgrep -P "$started" -x lumenharbourd; }
told() { # told LINES: all that it has told, without reasons of lumenharbourctl's
  found=$(sed -n 's/^lumenharbour-start: //; t told; d; :told; s/: lumenharbourctl: .*//; p' "$dir/start")
  [ "$found" = "$1" ] || fail "lumenharbour-start $LUMENHARBOUR_DIRECTOR_FILE" "$1" "$(cat "$dir/start")"
}
ends() { # ends STATUS [PROCESS]: by SIGTERM, or by SIGKILL of its daemon, with nothing left behind
  if [ $# = 1 ]; then kill $started 2>/dev/null; else kill -KILL "$2"; fi
  wait $started 2>/dev/null
  found="exit $?, $(ls /tmp/lumenHarbour.* 2>&1)"
  [[ $found = "exit $1, ls: cannot access"* ]] || fail 'end of lumenharbour-start' "exit $1 and no file" "$found"
  flock -n "$dir/lock" true || fail 'end of lumenharbour-start' 'no process' 'some'
}

# Each use of ip is a line; 10 s take 0.1 s, and 2 s 0.2 s.
tool "$dir/quick/ip" "echo >>$dir/looks; exec $(command -v ip) \"\$@\""
tool "$dir/small/ip" "echo >>$dir/looks; exec busybox ip \"\$@\""
tool "$dir/quick/sleep" "echo \"\$1\" >>$dir/slept; exec busybox sleep \"0.\$1\""

wait $mute
found="$? $(wc -l <"$dir/mute/asked") $(cat "$dir/mute/err")"
[ "$found" = '1 11 lumenharbour-start: the daemon did not answer within 10 s and was killed' ] ||
  fail 'mute daemon' '1 11' "$found"
kill -0 "$(cat "$dir/mute/pid")" 2>/dev/null && fail 'mute daemon' killed alive
ip link set lo up
director='{"director": {"address": "127.0.0.1"}, "defaults": {"image": "v1.bin"}'
echo "$director}" >"$dir/director.yaml"
echo SOCKET_GROUP=root CLIENTS=8 BUILTINS=1x >"$dir/conf"
PATH=$dir/quick:$PATH LUMENHARBOUR_CONF=$dir/conf CLIENTS=7 start "$dir/director.yaml"
lumenharbourctl --timeout 30 wait --for default-image=v1.bin --for client-max=7 ||
  fail lumenharbour-start 'a director of 7 clients' "$(cat "$dir/start")"
for signal in STOP CONT; do # one that fetches does not answer either
  kill -$signal "$(daemon)"
  "$source/packaging/lumenharbour-start" 2>"$dir/err"
  found="$? $(cat "$dir/err")"
  [ "$found" = '1 lumenharbour-start: a daemon runs already on /tmp/lumenHarbour.socket; end it first' ] ||
    fail "a second daemon, the first after SIG$signal" 1 "$found"
done
[ "$(stat -c %a /tmp/*.socket)" = 660 ] || fail 'socket for a group' 660 "$(stat /tmp/*.socket)"
ends 143
told "BUILTINS is '1x', expected a number; the default holds"
[ ! -e "$dir/slept" ] || fail 'a director that has its address' 'no pause' "$(cat "$dir/slept")"
for state in 'grops: []' "$director, groups: [{name: a, type: mac}, {name: b, type: mac}]}"; do
  echo "$state" >"$dir/director.yaml"
  GROUPS_MAX=1 BUILTINS=1234567890 SOCKET_GROUP=none start "$dir/director.yaml"
  eventually "$dir/start" grep -q DIRECTOR "$dir/start"
  ends 143
  told "BUILTINS is '1234567890', expected a number; the default holds
group none cannot use the socket
THIS DIRECTOR GOES ON WITHOUT $dir/director.yaml"
done

# An address that comes up late, also where ip cannot monitor.
# shellcheck disable=SC2317 # change has it called
stirred() { # an address that nobody waits for comes and goes
  "$ip" address add 198.51.100.9/32 dev lease0
  "$ip" address del 198.51.100.9/32 dev lease0
  [ "$(wc -l <"$dir/looks")" -gt "$looks" ]
}
change() { # change [WORD...]: of addresses; the second look from then on sees it, and the third comes when that is done
  [ $# = 0 ] || ip address "$@" dev lease0
  for _ in 1 2 3; do
    looks=$(wc -l <"$dir/looks")
    eventually "$dir/start" stirred
  done
}
ip=$(command -v ip)
echo "${director/127.0.0/198.51.100}}" >"$dir/director.yaml"
for shell in 'busybox ash' dash; do
  for path in "$dir/quick" "$dir/small:$dir/quick"; do
    # A switch without a director's file, that an operator tells the address.
    : >"$dir/looks"
    PATH=$path:$PATH start /nowhere "$shell"
    for address in 198.51.100.3/32 '198.51.100.5 peer 198.51.100.4/32'; do
      eventually "$dir/start" lumenharbourctl director address "${address%%[/ ]*}"
      change
      # shellcheck disable=SC2086 # several words
      change add $address
    done
    ends 137 "$(daemon)"
    told "the director's address 198.51.100.3 has come up: this switch is the director
the director's address 198.51.100.5 has come up: this switch is the director"

    # One with a file, whose daemon is busy when the address comes up, and whose role an operator ends.
    : >"$dir/looks"
    PATH=$path:$PATH start "$dir/director.yaml" "$shell"
    eventually "$dir/start" grep -q 'WAITS.*198.51.100.1 is no address' "$dir/start"
    change
    if [ "$shell $path" = "dash $dir/quick" ]; then
      kill -STOP "$(daemon)"
      ip address add 198.51.100.1/32 dev lease0
      eventually "$dir/start" grep -qx 1 "$dir/slept" # before it asks again
      kill -CONT "$(daemon)"
    else
      ip address add 198.51.100.1/32 dev lease0
    fi
    change
    lumenharbourctl get default-image | grep -qx v1.bin || fail "$shell, $path" v1.bin "$(cat "$dir/start")"
    lumenharbourctl director stop --force
    change add 198.51.100.2/32
    ends 143
    told "THIS DIRECTOR WAITS FOR ITS ADDRESS, WITHOUT $dir/director.yaml
this director's address has come up, it has $dir/director.yaml"
    ip address flush dev lease0 to 198.51.100.0/24
  done
done

found=$(sort -nu "$dir/slept" | tr '\n' ' ')
[ "$found" = '1 2 10 ' ] || fail 'pauses of lumenharbour-start' '1 2 10 ' "$found"

tool "$dir/mute/lumenharbourd" 'exit 3'
# A director has no flash to write, and may have no interface yet.
PATH=$dir/mute:$PATH unshare -n "$source/packaging/lumenharbour-start" 2>"$dir/err"
[ $? = 3 ] || fail 'a daemon that ends' 'exit 3' "$(cat "$dir/err")"
PATH=/nowhere /bin/sh "$source/packaging/lumenharbour-start" 2>"$dir/err"
found="$? $(cat "$dir/err")"
[ "$found" = '127 lumenharbour-start: lumenharbourd is not in /nowhere' ] || fail 'no daemon' 127 "$found"

# --- a switch that lacks something ------------------------------------------------------------------------------------

export PATH=$dir/mute:$PATH LUMENHARBOUR_DIRECTOR_FILE=/nowhere LUMENHARBOUR_PLATFORM_CONF=$dir/platform.conf
rm "$dir/mute/lumenharbourctl"
cp "$(command -v dash)" "$dir/tools" # which is /bin/sh
lacks() { # lacks SENTENCE COMMAND: what is told where such a command has been run
  local shell
  for shell in 'busybox ash' dash; do
    printf ' startup_config\t= %s # here\n' "$dir/saved" >"$LUMENHARBOUR_PLATFORM_CONF"
    unshare -mn sh -c "ip link add type veth; $2; exec $shell '$source/packaging/lumenharbour-start'" 2>"$dir/err"
    found="$? $(cat "$dir/err")"
    [ "$found" = "1 lumenharbour-start: not started: $1" ] || fail "$shell: $2" "1 $1" "$found"
  done
}
lacks '/Ram cannot be written' 'mount -t tmpfs -o ro none /Ram'
lacks '/tmp cannot be written' 'mount --bind /tmp /tmp; mount -o remount,bind,ro /tmp'
head -c 8k /dev/zero >"$dir/saved"
lacks "the saved configuration $dir/saved cannot be copied to /Ram" 'mount -t tmpfs -o size=4k none /Ram'
flash='/mnt/mtd, where the saved configuration belongs, is not there or cannot be written'
lacks "$flash" 'mount -t tmpfs none /mnt'
lacks "$flash" 'mount -t tmpfs -o ro none /mnt/mtd'
for program in flashcp mv; do
  lacks "$program is not in $PATH" "mount --bind /dev/null $(command -v $program)"
done
# shellcheck disable=SC2016 # of the command
lacks "neither tftp nor ftpget is in $PATH" 'for tool in $(which -a tftp ftpget); do mount --bind /dev/null $tool; done'
lacks 'there is no hardware address on any interface' 'ip link del veth0'
lacks 'there is no hardware address on lo' "echo uplink=lo >>$LUMENHARBOUR_PLATFORM_CONF"
front=$LUMENHARBOUR_FETCH/tftp
lacks "the fetch front is missing: there is no $front" "mount --bind /dev/null $front"
lacks '/bin/sh runs a tftp of its own: what is fetched would not be checked' 'mount --bind /bin/echo /bin/sh'

# --- a daemon that fails over and over --------------------------------------------------------------------------------

printf '%s\n' 'clock_speed = 30' 'uplink = lease0' 'dhcp_notify_command = echo asked' >"$LUMENHARBOUR_PLATFORM_CONF"
echo FETCH_IDLE=7 FETCH_LIMIT=8 TRUST=/trust >"$dir/conf"
# The last one has the start script told to end just when it has been started itself.
tool "$dir/failing/lumenharbourd" "echo \${PATH%%:*} \$FETCH_IDLE \$FETCH_LIMIT \$TRUST >$dir/told
[ ! -e $dir/last ] || kill \$LUMENHARBOUR_SUPERVISOR
exec env --ignore-signal=CHLD $2 \"\$@\""
# shellcheck disable=SC2317 # eventually calls it
is_another() {
  [ "$(daemon)" != "$first" ] && [ "$(lumenharbourctl get debug)" = on ] &&
    [ "$(lumenharbourctl get director-address)" = 198.51.100.3 ]
}
for shell in 'busybox ash' dash; do
  rm -f "$dir/last"
  LUMENHARBOUR_CONF=$dir/conf FETCH_IDLE=6 PATH=$dir/failing:$PATH start /nowhere "prlimit --nofile=28 $shell"
  eventually "$dir/start" lumenharbourctl director address 198.51.100.3
  lumenharbourctl debug on
  first=$(daemon)
  eventually "$dir/start" is_another
  ip address add 198.51.100.3/32 dev lease0
  eventually "$dir/start" grep -q 'has come up: this switch is the director' "$dir/start"
  touch "$dir/last"
  lumenharbourctl director stop
  lumenharbourctl service start
  lumenharbourctl download config
  eventually "$dir/start" flock -n "$dir/lock" true
  ends 143
  ip address del 198.51.100.3/32 dev lease0
  found="$(cat "$dir/told") $(grep -oE 'not run.*|failed [^2] times' "$dir/start")"
  [ "$found" = "$LUMENHARBOUR_FETCH 6 8 /trust " ] || fail "$shell: a failing daemon" 'what is chosen' "$found"
done
exit $failed
