#!/bin/bash
# Completes command lines as bash does, and compares what is offered: completion_test.sh TOOL SCRIPT
#
# A line is written as readline parts it, at ':', '=' and '@' too. Its last word is the one that is completed.
set -u
tool=$1
# shellcheck source=/dev/null
source "$2" || exit 1
failed=0

offers() { # offers EXPECTED WORD...
  COMP_WORDS=("$tool" "${@:2}")
  COMP_CWORD=$(($# - 1))
  _lumenharbourctl "$tool"
  [ "${COMPREPLY[*]-}" = "$1" ] || { echo "${*:2}: offered '${COMPREPLY[*]-}', expected '$1'"; failed=1; }
}

offers 'group' gr
offers 'add activate' gr a
offers 'group builtin client imagelist vlan' sh ''
offers 'start stop' director -s /nowhere s
offers 'name' group set floor-2 na
offers 'mac pid stack connect unknown' group set floor-2 type ''
offers 'mac pid stack connect unknown' group set floor-2 3 ''
offers 'on off' set service ''
offers 'yes no' default image-local ''
offers '' set service on ''
offers 'auto' group add ''
offers 'mac pid' group add auto floor-2 --type ''
offers '--timeout --type' group add --t
offers '--timeout' show --t
offers 'json' --format = j
offers 'plain json' -f ''
offers 'add activate' -fjson gr a
offers '--delete' announce --mac 02 : 00 : 00 : 00 : 00 : 01 --del
offers 'show' watch ''
offers 'group' watch show g
offers '' watch vlan ''
offers '' group nonsense ''
offers '' s ''
offers 'completion' comp
offers '' complete ''
offers '' get -- --so
offers '' -s /nowhere group set ''
offers "$0" apply "${0%.sh}"
offers "$0" --socket = "${0%.sh}"
exit $failed
