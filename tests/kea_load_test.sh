#!/bin/bash
# Loads the hook into a real Kea, with good parameters and bad ones: kea_load_test.sh HOOK-LIBRARY KEA-DHCP4
#
# The server is started each time: its own check of a configuration (-t) does not load hooks. At last it serves a switch,
# on an interface of the test's own: scripts/private.
set -u
# shellcheck source=/dev/null
. "$(dirname "$0")/../scripts/await.sh"
hook=$1
kea=$2
dir=$(mktemp -d) || exit 1
export KEA_PIDFILE_DIR=$dir KEA_LOCKFILE_DIR=$dir
failed=0
server=''
# shellcheck disable=SC2046,SC2317 # one word a process; the trap calls it
clean_up() {
  kill $(jobs -p) 2>/dev/null
  rm -rf "$dir"
}
trap clean_up EXIT

configure() { # configure PARAMETERS CONTEXT-OF-NETWORK CONTEXT-OF-SUBNET
  cat >"$dir/conf" <<END
{"Dhcp4": {"interfaces-config": {"interfaces": []}, "lease-database": {"type": "memfile", "persist": false},
  "hooks-libraries": [{"library": "$hook", "parameters": $1}],
  "shared-networks": [{"name": "floor", "user-context": $2, "subnet4": [
    {"subnet": "192.0.2.0/24", "user-context": $3}]}]}}
END
}

start() { # a server on the configuration as it is
  # Emptied before there is another process: what the last server said must not be taken for this one's.
  : >"$dir/log"
  "$kea" -c "$dir/conf" >>"$dir/log" 2>&1 &
  server=$!
}

# Whoever waits for what a server says does not kill the shell that is to become the server, which has the trap as well.
appears() { # appears TEXT WHAT: in the server's log
  await -l "$dir/log" grep -qF -- "$1" "$dir/log" || { failed=1; echo "$2"; }
}

says() { # says PARAMETERS CONTEXT-OF-NETWORK CONTEXT-OF-SUBNET TEXT: a server that starts with them says so
  configure "${@:1:3}"
  start
  appears "$4" "${*:1:3}"
  kill $server 2>/dev/null
  wait $server
  server=''
}

started='DHCP4_STARTED'
bad='LUMENHARBOUR_BAD_PARAMETER'
here="user context 'lumenharbour': parameter"
says '{}' '{}' '{}' $started
says '{"socket": "/run/s", "timeout-ms": 50, "tftp-server": "192.0.2.1", "ftp-server": "192.0.2.2", "ftp-username": "u",
  "ftp-password": "p", "reboot-time": 9, "auth-msg": "a", "image-file": "i"}' \
  '{"lumenharbour": {"auth-msg": "b"}}' '{"other": 1, "lumenharbour": {"reboot-time": 0}}' $started
says '{"timeout-ms": 0}' '{}' '{}' "$bad parameter 'timeout-ms': expected a number of milliseconds"
says '{"tftp-server": "here"}' '{}' '{}' "$bad parameter 'tftp-server': expected an IPv4 address"
says '{"reboot-time": true}' '{}' '{}' "$bad parameter 'reboot-time': expected a number of seconds"
says '{"sockett": "/run/s"}' '{}' '{}' "$bad parameter 'sockett' is unknown: expected one of socket"
says '{}' '{"lumenharbour": {"ftp-server": "1.2.3"}}' '{}' "$bad shared network floor, $here 'ftp-server'"
says '{}' '{}' '{"lumenharbour": {"auth-msg": ""}}' "$bad subnet 192.0.2.0/24, $here 'auth-msg'"
says '{}' '{}' '{"lumenharbour": 7}' "$bad subnet 192.0.2.0/24, user context 'lumenharbour': expected a map"

# A server that serves goes on with what was set before, and ends well.
configure '{"socket": "/run/first"}' '{}' '{}'
start
appears $started start
for parameters in '{"timeout-ms": 0}' '{"socket": 7}'; do
  configure "$parameters" '{}' '{}'
  kill -HUP $server
  appears "$bad parameter '$(echo "$parameters" | cut -d '"' -f 2)'" "reload with $parameters"
done
configure '{"socket": "/run/second"}' '{}' '{"lumenharbour": {"auth-msg": ""}}'
kill -HUP $server
appears "$bad subnet 192.0.2.0/24, $here 'auth-msg': expected a text of 1 to 255 bytes without control characters; what was \
set before stays in force" 'reload with a bad override'
configure '{"socket": "/run/third"}' '{}' '{}'
kill -HUP $server
appears 'to the director on /run/third' 'good reload'
kill $server
wait $server
status=$?
server=''
[ $status = 0 ] || { failed=1; echo "the server ended with status $status"; }

# What clients get of a server that has an option 43 for others. The director gives the imagelist that $dir/name says.
python3 - "$dir" <<'END' &
import pathlib, socket, sys
with socket.socket(socket.AF_UNIX) as director:
    director.bind(sys.argv[1] + "/socket")
    director.listen()
    while True:
        with director.accept()[0] as hook:
            request = hook.recv(2000)
            name = pathlib.Path(sys.argv[1] + "/name").read_bytes()
            lengths = len(name).to_bytes(4, sys.byteorder) + bytes(4)
            hook.sendall(request[:69] + lengths + name.ljust(512, b"\0") + request[589:])
END
director=$!
gets() { # gets OPTION-43-AND-SERVER CLASS: a client of that class
  found=$(busybox udhcpc -f -n -q -t 9 -T 1 -i kea1 -O 43 -V "$2" -s "$dir/script" 2>"$dir/client")
  [ "$found" = "$1" ] || { failed=1; echo "$2: found '$found', expected '$1'"; cat "$dir/client"; }
}
# shellcheck disable=SC2016 # for another shell
printf '#!/bin/sh\n[ "$1" != bound ] || echo "${opt43:-none} $siaddr"\n' >"$dir/script"
chmod +x "$dir/script"
ip link add kea0 type veth peer name kea1 && ip address add 192.0.2.1/24 dev kea0
ip link set kea0 up && ip link set kea1 up
configure "{\"socket\": \"$dir/socket\", \"timeout-ms\": 9000}" '{}' '{}'
sed -i 's/"interfaces": \[/&"kea0"/; s|"subnet": [^,]*, |&"pools": [{"pool": "192.0.2.9 - 192.0.2.9"}],\
  "next-server": "192.0.2.7", "option-data": [{"code": 43, "csv-format": false, "data": "F104C0000201"}], |' "$dir/conf"
await -l "$dir/conf" test -S "$dir/socket"
printf a.txt >"$dir/name"
start
appears $started 'start on an interface'
gets 'f104c0000201 192.0.2.7' other
gets '0105612e747874 192.0.2.7' LumenHarbour:7
printf 'a b.txt' >"$dir/name"
gets 'none 192.0.2.7' LumenHarbour:7
appears "a switch would refuse it, since the director's imagelist 'a b.txt' has ' ' at byte 2" 'a name that is refused'
kill $director
wait $director 2>/dev/null
gets 'none 192.0.2.7' LumenHarbour:7
appears LUMENHARBOUR_DIRECTOR_AWAY 'a director that is away'
exit $failed
