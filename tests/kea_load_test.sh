#!/bin/bash
# Loads the hook into a real Kea, with good parameters and bad ones: kea_load_test.sh HOOK-LIBRARY KEA-DHCP4
#
# The server is started each time: its own check of a configuration (-t) does not load hooks. It opens no socket.
set -u
# shellcheck source=/dev/null
. "$(dirname "$0")/../scripts/await.sh"
hook=$1
kea=$2
dir=$(mktemp -d) || exit 1
export KEA_PIDFILE_DIR=$dir KEA_LOCKFILE_DIR=$dir
failed=0
server=''
# shellcheck disable=SC2317 # called by the trap
clean_up() {
  [ -z "$server" ] || kill "$server" 2>/dev/null
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
exit $failed
