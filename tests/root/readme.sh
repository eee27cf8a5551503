#!/usr/bin/env bash
# readme.sh [--start | --without-tests]: does what the README says, in a bare Debian with a running
# ptp4l, as a user who may use sudo: every block of commands, in order, with no locale, no make and no
# compiler cache but what these commands install. Reports how long it takes from cloning the tree to
# the ports of that ptp4l on the screen. --start: only up to there. --without-tests: all but
# `./dev test`.
set -eu
cd "$(dirname "$0")/../.."
only=${1:-}
. tests/root/common.sh

#--- A machine with a ptp4l and a user --------------------------------------------------------------

install linuxptp iproute2 sudo git
cp tests/root/clock.sh tests/root/systemctl "$root/usr/local/sbin"
inside useradd --create-home --home-dir /srv/tester --shell /bin/bash tester
echo 'tester ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/tester"
inside clock.sh >"$root/tmp/clock.log" 2>&1 &
for _ in $(seq 300); do
   ! grep -q 'UNCALIBRATED on RS_SLAVE' "$root/tmp/clock.log" || break
   sleep 0.1
done
grep -q 'UNCALIBRATED on RS_SLAVE' "$root/tmp/clock.log" || {
   cat "$root/tmp/clock.log"
   skip "cannot run ptp4l here"
}
! inside sh -c 'command -v make || command -v ccache || command -v g++' ||
   fail "a bare Debian is expected to have none of these"

#--- The README as a script -------------------------------------------------------------------------

home=$root/srv/tester
blocks=$home/blocks
mkdir -p "$blocks" "$home/first"
# One file for each fenced block, NUMBER.LANGUAGE; `expected` for what the block before it prints.
awk -v dir="$blocks" '
   !inside && /^```/ {
      language = substr($0, 4)
      if (language == "") {
         language = prints ? "expected" : "sh"
      }
      file = sprintf("%s/%02d.%s", dir, ++count, language)
      inside = 1
      next
   }
   /^```$/ { inside = 0; next }
   inside { print >file; next }
   /[^ ]/ { prints = /^It prints$/ }' README.md
cp "$blocks"/*.cmake "$home/first/CMakeLists.txt"
cp "$blocks"/*.cpp "$home/first/firstMinutes.cpp"

# Commands that begin with ./ are for the tree, others for the project. Between a server that is
# started and its first client, a person takes a moment; `top` shows a screen until q is pressed.
script() {
   cat <<'TEXT'
set -eE
exec 3>&1
trap '{ cat ~/output; echo "the README fails here: $BASH_COMMAND"; } >&3' ERR
[ -z "${LANG:-}${LC_ALL:-}" ]
TEXT
   local block
   for block; do
      if [ "${block##*.}" = expected ]; then
         printf 'tail -n %d ~/output | diff -u ~/blocks/%s -\n' "$(wc -l <"$block")" "${block##*/}"
         continue
      fi
      printf 'echo "--- README, %s"\n' "${block##*/}"
      if grep -q '^\./' "$block"; then
         echo 'cd ~/clone'
      else
         echo 'cd ~/first'
      fi
      [ "$only" != --without-tests ] || sed -i '/^\.\/dev test$/d' "$block"
      sed -e 's/ &$/ \&\nsleep 1/' \
         -e "s/^ptpstate top .*/(sleep 2; echo q) | script -qec '&' \/dev\/null >~\/top/" "$block" \
         >"$block.run"
      printf '. ~/blocks/%s.run >~/output 2>&1\ncat ~/output\n' "${block##*/}"
   done
   # shellcheck disable=SC2016
   echo 'running=$(jobs -p); [ -z "$running" ] || kill $running'
}

# as_user BLOCK...: runs these as the user, who has just logged in.
as_user() {
   script "$@" >"$home/script"
   inside chown -R tester: /srv/tester
   inside su - tester -c 'TERM=xterm bash script'
}

mapfile -t commands < <(find "$blocks" -type f ! -name '*.cmake' ! -name '*.cpp' | LC_ALL=C sort)

#--- The start: packages, a service, its ports ------------------------------------------------------

mkdir "$root/tree"
git bundle create -q "$root/tree/bundle" HEAD || fail "the README begins with a clone"
inside chown tester: /srv/tester
start=$SECONDS
inside su - tester -c 'git -c advice.detachedHead=false clone -q /tree/bundle clone'
# What is not committed yet.
tar -c --exclude=./build --exclude=./.git --exclude=./.cache . | tar -x -C "$home/clone"
as_user "${commands[0]}"
echo "from the clone to the ports on the screen: $((SECONDS - start)) s on $(nproc) cores"
grep -E '^eth0 +.*uncalibrated' "$home/output" || {
   cat "$root/run/ptp4lAgent.log"
   fail "the port of the ptp4l is not shown"
}
# A page, and behind it the same port.
page() {
   inside perl -MIO::Socket::INET -e '
      my $server = IO::Socket::INET->new("127.0.0.1:9979") or die "ptpexport does not listen\n";
      print $server "GET $ARGV[0] HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
      print while <$server>' "$1"
}
page / >"$root/tmp/page"
grep -q '<script src="page/main.js"' "$root/tmp/page" || fail "there is no page for a browser"
page '/state/ptp/status.portDS%5Beth0%5D.portState' >"$root/tmp/page"
grep -q '"state": "uncalibrated"' "$root/tmp/page" || {
   cat "$root/tmp/page" "$root/run/ptpexport.log"
   fail "the page does not know the port"
}
[ "$only" != --start ] || exit 0

#--- The rest, without these packages ---------------------------------------------------------------

inside pkill ptp4lAgent
inside pkill ptpexport
# Without make, too, which the tools for packages need.
inside apt-get -qq -y purge libptplib0 libptplib-dev ptpstate make >/dev/null 2>&1
! inside sh -c 'command -v make' || fail "make is still there"
install pkg-config
as_user "${commands[@]:1}"
grep -q 'ptp/config.intfConfig: 1 row' "$home/top" || fail "top does not show the interface"
