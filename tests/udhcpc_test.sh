#!/bin/bash
# Runs udhcpc's script with what a DHCP server may send, good and hostile: udhcpc_test.sh SOURCE DAEMON CTL
#
# Every case runs under both shells that switches have. The daemon's fixed paths have to be the test's own.
set -u
source=$1
PATH=$(dirname "$2"):$(dirname "$3"):$PATH
dir=$(mktemp -d) || exit 1
script=$source/dhcp/udhcpc/lumenharbour.script
state=$dir/lease/dhcp.options
started=''
failed=0
# shellcheck disable=SC2317 # called by the trap
clean_up() {
  [ -z "$started" ] || kill "$started" 2>/dev/null
  rm -rf "$dir"
}
trap clean_up EXIT

fail() { # fail WHAT EXPECTED FOUND
  failed=1
  printf '%s\n  expected: %s\n  found:    %s\n' "$@"
}

run() { # run SHELL EVENT [VARIABLE=VALUE...]
  # shellcheck disable=SC2086 # two words for BusyBox
  env -i PATH="$PATH" LUMENHARBOUR_DHCP_STATE="$state" LUMENHARBOUR_UDHCPC_DIR="$dir/hooks.d" \
    LUMENHARBOUR_CONFIGURE=no interface=eth0 "${@:3}" $1 "$script" "$2" 2>"$dir/err"
}

gives() { # gives LINES REFUSAL VARIABLE=VALUE...: what a lease makes of these, and what is refused of them
  local shell found
  for shell in 'busybox ash' dash; do
    rm -f "$state"
    run "$shell" bound "${@:3}"
    found=$(tr '\n' ' ' <"$state")
    [ "$found" = "${1:+$1 }" ] || fail "$shell: ${*:3}" "$1" "$found"
    found=$(cat "$dir/err")
    # shellcheck disable=SC2053 # a pattern
    [[ $found = ${2:+lumenharbour.script: refused: $2} ]] || fail "$shell: ${*:3}" "refused: $2" "$found"
  done
}

all='imagelist=a.txt config-file=b image-file=c tftp-server=192.0.2.1 ftp-server=192.0.2.2 ftp-username=u'
gives "$all ftp-password=p%s reboot-time=4294967295 auth-msg=hi" '' \
  opt43=0105612e7478740201620301630404c00002010504c000020206017507037025730804ffffffff09026869
gives 'imagelist=b' '' opt43=000001016200ff010163
gives 'imagelist=b' '' opt43=c803aabbcc010162
gives 'auth-msg=x' 'option 43, sub-option 1 (imagelist) has a control character' opt43=0103610a62090178
gives 'auth-msg=x' 'option 43, sub-option 2 (configuration file) has a control character' opt43=020361007f090178
gives 'auth-msg=x' '*sub-option 1 (imagelist) has a character that a shell interprets' opt43=0104613b6462090178
gives 'auth-msg=x' '*sub-option 7 (FTP password) has a character that a shell interprets' opt43=0703246120090178
gives 'auth-msg=x' '*sub-option 1 (imagelist) has a dash in front' opt43=01022d72090178
gives 'auth-msg=x' '*sub-option 1 (imagelist) has no value' opt43=0100090178
gives 'imagelist=b' '*sub-option 9 is 9 bytes long, and 1 are left' opt43=010162090978
gives 'imagelist=b' '*sub-option 9 has no length' opt43=01016209
gives 'imagelist=b' '*sub-option 4 (TFTP server) is 3 bytes long, expected 4' opt43=0403c00002010162
# shellcheck disable=SC2016 # that is what is sent
gives '' '*is not written in hexadecimal' 'opt43=01$(id)'
gives '' '*ends in half a byte' opt43=010
gives 'tftp-server=192.0.2.7' '' opt150=c0000207c0000208 tftp=192.0.2.8 siaddr=192.0.2.9
gives 'tftp-server=192.0.2.8' '' tftp=192.0.2.8 siaddr=192.0.2.9
gives 'tftp-server=192.0.2.9' '' tftp=files.example siaddr=192.0.2.9
gives '' '' tftp=192.0.2.256 siaddr=0.0.0.0
gives 'ftp-server=192.0.2.2' '' opt43=0504c0000202 siaddr=192.0.2.9
gives 'image-file=a.bin' '' bootfile=a.bin boot_file=b.bin
gives 'image-file=b.bin' '' boot_file=b.bin
gives '' 'the BOOTP file has a character that a shell interprets' 'boot_file=b;reboot'

for shell in 'busybox ash' dash; do
  mkdir -p "$dir/hooks.d"
  # shellcheck disable=SC2016 # for the hook to expand
  printf '#!/bin/sh\necho "$1 $interface" >>"%s"\n' "$dir/chained" >"$dir/hooks.d/50-other"
  chmod +x "$dir/hooks.d/50-other"
  run "$shell" bound opt43=010162
  [ "$(stat -c %a "$state")" = 600 ] || fail "$shell: mode" 600 "$(stat -c %a "$state")"
  run "$shell" nak
  [ -e "$state" ] || fail "$shell: nak" 'the values kept' 'no file'
  run "$shell" deconfig
  [ ! -e "$state" ] || fail "$shell: deconfig" 'no file' "$(cat "$state")"
  [ "$(cat "$dir/chained")" = $'bound eth0\nnak eth0\ndeconfig eth0' ] || fail "$shell: chained" 'each event' "$(cat "$dir/chained")"
  rm -r "$dir/hooks.d" "$dir/chained"
done

# The start script: the daemon, its service, and no socket left behind.
LUMENHARBOUR_DIRECTOR_FILE=/nowhere "$source/packaging/lumenharbour-start" >"$dir/start" 2>&1 &
started=$!
lumenharbourctl --timeout 10 wait --for role=client || fail lumenharbour-start 'a client' "$(cat "$dir/start")"
kill $started
wait $started
if [ $? != 143 ] || [ -e /tmp/lumenHarbour.socket ]; then
  fail 'lumenharbour-start, ended' 'exit 143 and no socket' "$(ls /tmp)"
fi
started=''
PATH=/nowhere /bin/sh "$source/packaging/lumenharbour-start" 2>"$dir/err"
if [ $? != 127 ] || ! grep -q 'lumenharbourd is not in /nowhere' "$dir/err"; then
  fail 'no daemon' 'exit 127' "$(cat "$dir/err")"
fi
exit $failed
