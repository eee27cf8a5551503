#!/usr/bin/env bash
# packages.sh DIRECTORY: installs the packages that `./dev package` made in the directory in a bare
# Debian, uses what is in them as a user and as a developer would, upgrades them, and purges them:
# nothing of them may be left.
set -eu
packages=$(cd "${1:?usage: packages.sh DIRECTORY-OF-PACKAGES}" && pwd)
cd "$(dirname "$0")/../.."
set -- "$packages"
. tests/root/common.sh

mkdir "$root/packages" "$root/use"
cp "$packages"/*.deb "$packages"/debug/*.deb "$root/packages"
cp -r tests/install/consumer tests/install/*.cpp examples/*.cpp "$root/use"

# package NAME...: the paths of their files in the root.
package() {
   local name
   for name in "$@"; do
      (cd "$root" && printf '/%s\n' packages/"$name"_*.deb)
   done
}

# files: what is in the root, except what keeps record of packages.
files() {
   find "$root" -xdev \( -path "$root/proc" -o -path "$root/sys" -o -path "$root/dev" -o \
      -path "$root/run" -o -path "$root/tmp" -o -path "$root/use" -o -path "$root/var/log" -o \
      -path "$root/var/cache" -o -path "$root/var/lib/apt" -o -path "$root/var/lib/dpkg" \) -prune -o \
      -printf '/%P\n' | LC_ALL=C sort
}

echo "--- what the packages need of Debian"
needed=$(for deb in "$root"/packages/*.deb; do
   dpkg-deb -f "$deb" Depends | tr ',' '\n'
done | sed 's/^ *//' | grep -vE '^(libptplib0|libptplib-dev|libptpfleet0|libptpfleet-dev|ptpstate|ptpexport|ptpfleet|ptplib-snmp|python3-ptplib|statedb) ' | sort -u | paste -sd ,)
echo "$needed"
inside apt-get -qq update
inside apt-get -qq -y --no-install-recommends satisfy "$needed" >/dev/null 2>&1 || fail "is not available"
# The tools of a developer.
install g++ cmake ninja-build pkg-config nlohmann-json3-dev dpkg-dev
files >"$root/tmp/before"

echo "--- the programs, without the files for developers"
# shellcheck disable=SC2046
install $(package libptplib0 libptpfleet0 ptpstate ptpexport ptpfleet ptplib-snmp python3-ptplib statedb)
for program in ptpstate ptpports ptp4lAgent ptpexport ptpfleet ptpsnmp statedb; do
   inside "$program" --version
   inside "$program" --help >/dev/null
   inside ldd "/usr/bin/$program" >"$root/tmp/ldd"
   ! grep -F 'not found' "$root/tmp/ldd" || fail "$program does not find its libraries"
   [ -e "$root/usr/share/man/man1/$program.1.gz" ] || fail "$program has no manual page"
   gzip -t "$root/usr/share/man/man1/$program.1.gz"
done
inside bash -c '
   ptpstate serve --quiet --socket /run/test.sock --ptp4l-conf /dev/null >/tmp/serve.log 2>&1 &
   for _ in $(seq 100); do ! grep -q ^serving /tmp/serve.log || break; sleep 0.1; done
   ptpstate set --socket /run/test.sock ptp/config.domainNumber 24
   ptpstate get --socket /run/test.sock ptp/config.domainNumber
   python3 -c "
import ptplib
with ptplib.connect(\"/run/test.sock\") as client:
    print(\"python\", client.mirror(\"ptp/config\").domainNumber + 1)"
   kill %1
   wait' | tee "$root/tmp/output"
grep -qF 'python 25' "$root/tmp/output" || fail "the package for Python does not read it"
grep -qw 24 "$root/tmp/output" || fail "a value that was set is not there"
inside bash -c '. /usr/share/bash-completion/completions/ptpstate && complete -p ptpstate' >/dev/null
for program in ptp4lAgent ptpexport ptpfleet ptpsnmp statedb; do
   grep -q "^ExecStart=$program " "$root/lib/systemd/system/$program.service"
   [ -z "$(find "$root/etc/systemd" -name "$program*")" ] || fail "the service of $program is enabled"
done

echo "--- the debug symbols belong to the libraries and programs"
# shellcheck disable=SC2046
install $(package libptplib0-dbgsym libptpfleet0-dbgsym ptpstate-dbgsym ptpexport-dbgsym ptpfleet-dbgsym ptplib-snmp-dbgsym)
for file in "$root"/usr/lib/*/lib{Kiv,PtpPlatform,PtpLib,Holt,Fleet}.so.0 "$root"/usr/bin/ptp{state,ports,4lAgent,fleet,snmp}; do
   id=$(readelf -n "$file" | sed -n 's/^ *Build ID: //p')
   [ -e "$root/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug" ] || fail "$file has no debug symbols"
   ! readelf -S "$file" | grep -F '.debug_info' || fail "$file is not stripped"
   ! readelf -d "$file" | grep -E 'RPATH|RUNPATH' || fail "$file has a search path of its own"
done

echo "--- headers, CMake, pkg-config"
# shellcheck disable=SC2046
install $(package libptplib-dev libptpfleet-dev)
inside cmake -G Ninja -S /use/consumer -B /use/build -DCMAKE_BUILD_TYPE=Release >/dev/null
inside cmake --build /use/build >"$root/tmp/build.log" || {
   cat "$root/tmp/build.log"
   fail "does not build"
}
for program in consumer:expected tree:tree agent:agent; do
   inside "/use/build/${program%:*}" | diff -u "$root/use/consumer/${program#*:}.txt" -
done
for example in firstMinutes agent; do
   # shellcheck disable=SC2016
   inside bash -c 'g++ "/use/$1.cpp" -o "/use/$1" $(pkg-config --cflags --libs holt)' link "$example"
   inside "/use/$example"
done

echo "--- what is linked with the packages depends on them, up to the next minor version"
mkdir "$root/use/debian"
echo 'Source: user' >"$root/use/debian/control"
inside bash -c 'cd /use && dpkg-shlibdeps -O firstMinutes' | tee "$root/tmp/depends"
version=$(dpkg-deb -f "$root$(package libptplib0)" Version)
next=$(awk -F. '{ print $1 "." $2 + 1 "~" }' <<<"$version")
grep -qF "libptplib0 (>= $version)" "$root/tmp/depends" || fail "does not depend on $version"
grep -qF "libptplib0 (<< $next)" "$root/tmp/depends" || fail "accepts $next"

echo "--- upgrade"
# The same packages, as those of a later commit.
mkdir "$root/packages/later"
for name in libptplib0 libptplib-dev libptpfleet0 libptpfleet-dev ptpstate ptpexport ptpfleet ptplib-snmp python3-ptplib statedb; do
   dpkg-deb -R "$root$(package $name)" "$root/tmp/$name"
   sed -i "s/$version/$version+1/" "$root/tmp/$name/DEBIAN/control"
   dpkg-deb --root-owner-group -b "$root/tmp/$name" "$root/packages/later" >/dev/null
done
# The libraries alone cannot be: the programs of the older version would have to go.
# shellcheck disable=SC2046
inside apt-get -s install $(package later/libptplib0) | grep '^Remv ptpstate ' ||
   fail "the libraries can be upgraded without the programs"
# shellcheck disable=SC2046
install $(package later/libptplib0 later/libptplib-dev later/libptpfleet0 later/libptpfleet-dev later/ptpstate later/ptpexport later/ptpfleet later/ptplib-snmp \
   later/python3-ptplib later/statedb)
inside ptpstate --version
inside /use/firstMinutes >/dev/null

echo "--- purge"
# shellcheck disable=SC2016,SC2046
inside dpkg --purge $(inside dpkg-query -W -f '${Package} ${source:Package}\n' |
   awk '$2 == "ptplib" { print $1 }') >/dev/null
rm -r "$root/packages"
files | sed '/^\/packages/d' >"$root/tmp/after"
sed -i '/^\/packages/d' "$root/tmp/before"
diff "$root/tmp/before" "$root/tmp/after" || fail "not everything is removed"
echo "nothing is left"
