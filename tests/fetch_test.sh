#!/bin/bash
# Runs the front of the switch's tools as the daemon does, on tools that play what a network may do, and the tool that
# signs: fetch_test.sh SOURCE
#
# Every case runs under both shells that switches have: dash with this system's tools, and BusyBox with its own.
# shellcheck disable=SC2016,SC2154 # much of it is for another shell
set -u
source=$1
# shellcheck source=/dev/null
. "$source/scripts/await.sh"
dir=$(mktemp -d) || exit 1
trap 'rm -rf "$dir"' EXIT
fetch=$source/fetch

fail() { # fail WHAT EXPECTED FOUND
  touch "$dir/failed"
  printf '%s\n  expected: %s\n  found:    %s\n' "$@"
}

# --- a switch ---------------------------------------------------------------------------------------------------------

# A tool plays $PLAY, a piece of shell, on the file $out. The clock is $CLOCK. A nap takes so long that it is noticed
# where there should be none, or be none left, unless $NAP says that it is real.
mkdir -p "$dir"/{tools,busybox,bin}
cat >"$dir/tools/tftp" <<'END'
#!/bin/sh
echo "$$ ${0##*/} $*" >>"$TOLD"
if [ "${0##*/}" = tftp ]; then out=$5; else out=$6; fi
eval "$PLAY"
END
cp "$dir/tools/tftp" "$dir/tools/ftpget"
printf '#!/bin/sh\n[ -n "${NAP:-}" ] || set -- 300\nexec %s "$@"\n' "$(command -v sleep)" >"$dir/tools/sleep"
printf '#!/bin/sh\necho "${CLOCK:-%s}"\n' "$(date +%s)" >"$dir/tools/date"
chmod +x "$dir"/tools/*
busybox --list | grep -vx 'tftp\|ftpget\|openssl' | xargs -I '{}' ln -s "$(command -v busybox)" "$dir/busybox/{}"
ln -s "$(command -v busybox)" "$(command -v openssl)" "$dir/bin"

start() { # start PLAY COMMAND [VARIABLE=VALUE...]: as the daemon does, in a session of its own, $pid
  : >"$box/tools"
  rm -rf "$box/tmp/"*
  echo old >"$box/tmp/f"
  setsid env -i --default-signal=INT PATH="$path" TOLD="$box/tools" PLAY="$1" LUMENHARBOUR_FETCH_STATE="$box/state" \
    LUMENHARBOUR_ATTEMPT=1-0 "${@:3}" sh -c "$2" >"$box/out" 2>&1 &
  pid=$!
}

# shellcheck disable=SC2317 # await calls it
is_over() { [ -z "$(pgrep -s "$pid" -r D,R,S,T)" ]; }

# ends STATUS SAID: how the fetch ends: SAID is a pattern; only a file that is accepted is left, and no process
ends() {
  local found
  wait "$pid" 2>/dev/null
  found=$?
  await is_over || fail "$shell: $what: processes" none "$(pgrep -as "$pid")"
  [ "$found" = "$1" ] || fail "$shell: $what: exit status" "$1" "$found: $(cat "$box/out")"
  # shellcheck disable=SC2053 # a pattern
  [[ $(cat "$box/out") = $2 ]] || fail "$shell: $what" "$2" "$(cat "$box/out")"
  found=$(ls -A "$box/tmp")
  [ "$found" = "$([ "$1" != 0 ] || echo f)" ] || fail "$shell: $what: files" "$([ "$1" != 0 ] || echo f)" "$found"
}

# gives STATUS SAID PLAY [VARIABLE=VALUE...]: fetches an image or a configuration, over what an earlier attempt has left
gives() {
  what="$3 ${*:4}"
  start "$3" "tftp -g -r f -l $box/tmp/f 192.0.2.1" "${@:4}"
  ends "$1" "$2"
}

# list STATUS SAID LIST [VARIABLE=VALUE...]: fetches an imagelist, by a new attempt, unless that is given
list() {
  what="list $3 ${*:4}" fetches=$((fetches + 1))
  printf %b "$3" >"$box/list"
  start "cat '$box/list' >\"\$out\"" "ftpget -u u -p secret 192.0.2.1 $box/tmp/f d/l" \
    LUMENHARBOUR_ATTEMPT=1-$fetches LUMENHARBOUR_IMAGELIST=named "${@:4}"
  ends "$1" "$2"
  [ "$1" != 0 ] || cmp "$box/list" "$box/tmp/f" || fail "$shell: $what" 'the list' another
}

# --- cases ------------------------------------------------------------------------------------------------------------

transfers() {
  list 0 'fetch: imagelist d/l from 192.0.2.1 by FTP
fetch: imagelist d/l: 14 bytes in [0-9] s' 'imagefile=a.b;' LUMENHARBOUR_ATTEMPT=1-0 # that of the files
  grep -q "ftpget -u u -p secret 192.0.2.1 $box/tmp/.*/file d/l" "$box/tools" || fail "$shell" FTP "$(cat "$box/tools")"
  gives 0 'fetch: file f from 192.0.2.1 by TFTP
fetch: file f: 2 bytes in [0-9] s' 'echo x >"$out"'
  gives 0 '*: 0 bytes in*' ': >"$out"'
  gives 1 '*tftp: file f: the tool failed, exit status 3' 'echo part >"$out"; exit 3'
  gives 1 '*tftp: file f: the tool failed, exit status 137' 'echo part >"$out"; kill -9 $$'
  gives 1 '*tftp: file f: the tool left no file' :
  gives 0 '*FETCH_IDLE is '\''x'\'', expected seconds from 1; 30 holds*' 'echo x >"$out"' FETCH_IDLE=x
  gives 1 '*tftp: file f: nothing came for 2 seconds (FETCH_IDLE)' 'echo part >"$out"; exec sleep 60' NAP=1 FETCH_IDLE=2
  gives 1 '*tftp: file f: it took longer than 3 seconds (FETCH_LIMIT)' \
    'while echo part >>"$out"; do sleep 0.5; done' NAP=1 FETCH_IDLE=2 FETCH_LIMIT=3
  gives 0 '*fetch: file f: [23][05] bytes, [4-7] bytes/s*: 40 bytes in * s' \
    'for part in 1 2 3 4 5 6 7 8; do echo part >>"$out"; sleep 1; done' NAP=1 FETCH_IDLE=3
  # A link that somebody puts there meanwhile is replaced, not followed.
  mkdir "$box/outside"
  gives 0 '*' 'echo x >"$out"; ln -s ../outside "${out%/.fetch*}/f"'
  [ "$(ls -A "$box/outside")$(cat "$box/tmp/f")" = x ] || fail "$shell: a link" replaced "$(ls -l "$box"/{tmp,outside})"
}

signals() { # the tool is ended with the front, and nothing is left
  for what in HUP:129 INT:130 TERM:143 KILL:137; do
    start 'echo part >"$out"; exec sleep 60' "exec tftp -g -r f -l $box/tmp/f 192.0.2.1" NAP=1
    await grep -q part -r "$box/tmp"
    kill -"${what%:*}" "$pid"
    ends "${what#*:}" 'fetch: file f from*'
  done
}

refused() { # refused SAID LIST...
  local list
  for list in "${@:2}"; do list 1 "*ftpget: imagelist d/l: refused: $1" "$list"; done
}

lists() {
  local list
  for list in '' 'imagefile=a;cfgfile=b\\c-#~;\r\n' 'imagefile=a;' 'imagefile=a' 'cfgfile=\0303\0274\0377;\n' \
    'Imagefile=$(id);imagefile2=`;\0201;mac=<>;cfgfile =\a;x\n' "$(printf %0507d 0)=a;\n;cfgfile=b;\n"; do
    list 0 '*' "$list" TRUST=/none # nobody signs lists
  done
  # shellcheck disable=SC2046 # a list each
  refused 'line 1, imagefile: has a character that a shell interprets' \
    $(printf 'imagefile=a\\0%sb;\\n ' 40 42 44 46 47 50 51 52 74 76 77 133 140 173 174)
  refused 'line 1, cfgfile: begins with "#", "-" or "~"' 'cfgfile=#;\n' 'cfgfile=-' 'cfgfile=~b;\n'
  refused 'line 2, cfgfile: has a control character' '\ncfgfile=\t;' '\nmac=1;cfgfile=b\0177;' '\ncfgfile=a\r\n'
  refused 'line 2, imagefile: runs into the end of the line, a ";" is missing' ';\nimagefile=a\n'
  refused 'line 1 has a NUL byte' 'imagefile=a;\0000;\n'
  refused 'line 1 has more than 510 bytes' "$(printf %0511d 0)\n"
  refused 'has 65537 bytes, more than 65536' "$(printf %065537d 0)"
}

order() { # of an attempt: what becomes of a file, by what became of the imagelist
  local play='echo x >"$out"' list attempt blocked='not fetched, DHCP names an imagelist, and that could not be fetched'
  for list in 'PLAY=exit 1' hostile=; do
    list 1 '*' 'imagefile=`id`;' "$list" LUMENHARBOUR_IMAGELIST=default
    attempt=LUMENHARBOUR_ATTEMPT=1-$fetches
    [ "$list" != hostile= ] || blocked='not fetched, the imagelist of this attempt was refused'
    gives 1 "tftp: file f: $blocked" "$play" $attempt LUMENHARBOUR_IMAGELIST=named
    [ ! -s "$box/tools" ] || fail "$shell: $list" 'no fetch' "$(cat "$box/tools")"
    gives 0 'fetch: file f*' "$play" $attempt LUMENHARBOUR_IMAGELIST=named FETCH_ORDER=bare
    gives "$([ "$list" != hostile= ]; echo $?)" '*' "$play" $attempt LUMENHARBOUR_IMAGELIST=default
  done
  # One whose name the daemon cannot even try is none that may be taken for it.
  gives 1 '*could not be fetched' "$play" LUMENHARBOUR_ATTEMPT=3-1 LUMENHARBOUR_STAGE=files LUMENHARBOUR_IMAGELIST=named
  gives 0 'fetch: file f*' "$play" LUMENHARBOUR_ATTEMPT=3-2 LUMENHARBOUR_STAGE=files LUMENHARBOUR_IMAGELIST=default
  gives 1 'tftp: LUMENHARBOUR_ATTEMPT is not set*' "$play" LUMENHARBOUR_ATTEMPT=
  [ "$(cd "$box/state" && stat -c %a . fetch | xargs)" = '700 600' ] || fail "$shell: modes" 700+600 "$(ls -la "$box")"
}

attack() { # attack PATH: as the daemon does with an imagelist that has a command in a name; prints what it ran
  start 'echo "imagefile=x\$(echo\${IFS}ran>$RAN);" >"$out"' "tftp -g -r l -l $box/tmp/f 192.0.2.1 || exit
    name=\$(sed 's/imagefile=//; s/;.*//' $box/tmp/f)
    sh -c \"tftp -g -r \$name -l $box/tmp/\$name 192.0.2.1\"" PATH="$1" RAN="$box/tmp/ran" LUMENHARBOUR_ATTEMPT=4-1
  wait "$pid"
  cat "$box/tmp/ran" 2>&1
}

# --- signatures -------------------------------------------------------------------------------------------------------

openssl() { command openssl "$@" >"$dir/openssl" 2>&1 || fail "openssl $*" 0 "$(cat "$dir/openssl")"; }

operator() { # operator STATUS WORD...: calls the tool that signs
  (cd "$dir" && "$fetch/lumenharbour-sign" "${@:2}") >"$dir/said" 2>&1
  found=$?
  [ $found = "$1" ] || fail "lumenharbour-sign ${*:2}" "$1" "$found: $(cat "$dir/said")"
}

sign_by() { # sign_by NAME OPTIONS...: as $dir/NAME.cms, with NAME.pem
  openssl cms -sign -binary -nodetach -in "$dir/plain" -signer "$dir/$1.pem" -inkey "$dir/site/signer.key" \
    -outform DER -out "$dir/$1.cms" "${@:2}"
}

issue() { # issue NAME OPTIONS...: a certificate of the site's authority, and a file signed with it
  openssl req -new -config "$dir/conf" -key "$dir/site/signer.key" -subj "/CN=$1" -out "$dir/request"
  openssl x509 -req -in "$dir/request" -CA "$dir/site/trust.pem" -CAkey "$dir/site/ca.key" -set_serial 7 \
    -extfile "$dir/conf" "${@:2}" -out "$dir/$1.pem"
  sign_by "$1"
}

sign() { # makes files that are to pass, and others
  { echo image; head -c 199994 /dev/urandom; } >"$dir/plain"
  operator 0 init other; operator 0 sign -k other plain foreign.cms
  operator 0 init site 'Rack 7'; operator 0 sign -k site plain; operator 0 show plain.cms
  [[ $(cat "$dir/said") = "content     200000 bytes, as they were signed
signed      20"??-??-??T??:??:??"Z
by          "*"Rack 7 signer
issued by   "*"Rack 7 CA
valid until "*GMT ]] || fail show '5 lines' "$(cat "$dir/said")"
  found=$(cd "$dir/site" && stat -c %a . ./*.key | xargs)
  [ "$found" = '700 600 600' ] || fail 'modes of keys' '700 600 600' "$found"
  operator 2; operator 2 sign plain site; operator 1 init site; operator 1 init new /CN=x; operator 1 show plain
  operator 1 sign -k site plain.cms; operator 1 sign -k . plain
  printf '[req]\ndistinguished_name=name\n[name]\n[web]\nextendedKeyUsage=serverAuth\n[mail]\n' >"$dir/conf"
  issue web -extensions web
  issue old -extensions mail -days -1
  sign_by site/signer -noattr
  { head -c 1000 "$dir/plain.cms"; printf '\0\0\0\0\0\0\0\0'; tail -c +1009 "$dir/plain.cms"; } >"$dir/altered.cms"
  head -c 200100 "$dir/plain.cms" >"$dir/short.cms"
  cat "$dir/plain.cms" "$dir/plain" >"$dir/long.cms"
  openssl rehash "$dir/other" # as a system's authorities are kept
}

signed() { # signed STATUS SAID FILE [VARIABLE=VALUE...]
  gives "$1" "$2" "cat '$dir/$3' >\"\$out\"" TRUST="$dir/site/trust.pem" "${@:4}"
  [ "$1" != 0 ] || cmp "$dir/plain" "$box/tmp/f" || fail "$shell: $what" 'the content' another
}

signatures() {
  signed 0 '*fetch: file f: its signature is good' plain.cms
  signed 0 '*' plain.cms CLOCK=86400
  signed 1 '*refused: it was signed with a certificate that has expired (*)' plain.cms CLOCK=4000000000
  signed 1 '*certificate that has expired (*' old.cms CLOCK=86400
  signed 1 '*refused: it was signed with a certificate that is not meant for it (*purpose*)' web.cms
  signed 1 "*refused: it was signed by somebody whom $dir/site/trust.pem does not name (*)" foreign.cms
  signed 1 '*by somebody whom*' foreign.cms SSL_CERT_FILE="$dir/other/trust.pem" SSL_CERT_DIR="$dir/other"
  signed 1 '*refused: it has been altered since it was signed (*)' altered.cms
  signed 1 '*refused: it is cut short: 200100 of 20???? bytes' short.cms
  signed 1 '*refused: it has 200000 bytes behind its end' long.cms
  signed 1 '*refused: it has a signature without signed attributes' site/signer.cms
  signed 1 '*refused: it is not signed' plain
  signed 0 '*' plain.cms TRUST_SINCE="$(date -u -d '1 hour ago' +%FT%TZ)"
  signed 1 '*refused: it was signed before TRUST_SINCE' plain.cms TRUST_SINCE="$(date -u -d '1 hour' +%FT%TZ)"
  signed 1 "*refused: it is not used: TRUST_SINCE is '2027'*" plain.cms TRUST_SINCE=2027
  signed 1 "tftp: file f: not fetched, TRUST is /none*" plain.cms TRUST=/none
  signed 1 "*refused: it cannot be checked: $dir/plain holds no certificates (*)" plain.cms TRUST="$dir/plain"
  signed 1 '*not fetched, TRUST is set, and there is no openssl' plain.cms PATH="$box/front:$dir/tools:$dir/busybox"
}

on_shell() { # on_shell SHELL PATH PROGRAM: a switch, in $box
  local shell=$1 box=$dir/$1 path=$dir/$1/front:$dir/tools:$2 fetches=0
  mkdir -p "$box"/{front,tmp}
  sed "1s|.*|#!$3|" "$fetch/lumenharbour-fetch" | tee "$box/front/tftp" >"$box/front/ftpget"
  chmod +x "$box"/front/*
  lists; order
  [ "$(attack "$dir/tools:$2")" = ran ] || fail "$shell: an attack on the tools alone" 'the command runs' 'it does not'
  [ "$(attack "$path")" != ran ] || fail "$shell: an attack" 'no command runs' 'it ran'
  transfers; signals; signatures
  [ ! -e "$dir/failed" ]
}

sign
on_shell dash "$PATH" "$(command -v dash)" &
on_shell ash "$dir/busybox:$dir/bin" "$(command -v busybox) ash" &
wait -n; first=$?
wait -n && [ $first = 0 ]
