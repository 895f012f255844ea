#!/bin/bash
# Completes command lines with the script named by $1, as bash would, and compares what it offers.
set -u
# shellcheck source=/dev/null
source "$1"
failed=0

offers() { # offers EXPECTED WORD...: the last word is the one being completed
  COMP_WORDS=(lumenharbourctl "${@:2}")
  COMP_CWORD=$(($# - 1))
  _lumenharbourctl
  [ "${COMPREPLY[*]}" = "$1" ] || { echo "${*:2}: offered '${COMPREPLY[*]}', expected '$1'"; failed=1; }
}

offers 'group' gr
offers 'set' member mac se
offers 'on off' set state ''
offers 'default-image-type default-image' set default-im
offers '--delete' announce --mac 02 : 00 : 00 : 00 : 00 : 01 --de
offers '' group nonsense ''
exit $failed
