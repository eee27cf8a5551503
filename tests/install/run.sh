#!/usr/bin/env bash
# run.sh BUILD: installs a build in a separate directory, moves that elsewhere, and uses it from
# there as another project would: with find_package, with the project's own module, and with
# pkg-config. The libraries must be found only there, and each header must compile on its own.
set -eu
build=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
   echo "$*"
   exit 1
}

cmake --install "$build" --prefix "$scratch/first" >"$scratch/install.log"
mv "$scratch/first" "$scratch/prefix"
prefix=$scratch/prefix

echo "--- installed files"
(cd "$prefix" && find . -type d | LC_ALL=C sort)
for library in Kiv PtpPlatform PtpLib Holt; do
   [ -f "$prefix/lib/lib$library.so.0.1.0" ] || fail "lib$library.so.0.1.0 is missing"
   [ -L "$prefix/lib/lib$library.so.0" ] || fail "lib$library.so.0 is missing"
   [ -L "$prefix/lib/lib$library.so" ] || fail "lib$library.so is missing"
done
! find "$prefix/bin" "$prefix/lib" -name '*_test' -o -name '*_bench' -o -name 'libKivTest.*' |
   grep . || fail "these files are only for tests"
! grep -rlE '#include [<"](gtest|gmock|benchmark|KivTest|tests)/' "$prefix/include" ||
   fail "these headers are for tests"
! grep -rl -e "$PWD" -e "$build" "$prefix" || fail "these files name the sources or the build"
! find "$prefix" -type d -empty | grep . || fail "these directories are empty"

# Every header of the tree except those for tests and the inside of the attribute log, and every
# generated one, must be there.
for dir in Sarn Kiv Dorn Bridging Brim Acl PtpPlatform PtpLib Holt; do
   for root in . "$build/generated"; do
      [ -d "$root/$dir" ] || continue
      (cd "$root" && find "$dir" -name '*.h' ! -name '*.test.h' ! -path 'Kiv/Log/*')
   done
done | LC_ALL=C sort >"$scratch/wanted"
(cd "$prefix/include/ptplib" && find . -name '*.h' | sed 's|^\./||' | LC_ALL=C sort) \
   >"$scratch/installed"
diff -u "$scratch/wanted" "$scratch/installed" || fail "the installed headers are not the expected ones"

# finds PROGRAM: checks that it loads our libraries from the prefix, and from nowhere else.
finds() {
   ldd "$1" | awk -v lib="$prefix/lib/" -v program="$1" '
      { sub("/bin/[.][.]/", "/", $3) }
      /libKiv|libPtp|libHolt/ && index($3, lib) != 1 { print program ": " $0; bad = 1 }
      END { exit bad }' || fail "libraries are not found in the prefix"
}
for file in "$prefix"/bin/* "$prefix"/lib/*.so; do
   ! readelf -d "$file" | grep -E 'RPATH|RUNPATH' | grep -vF '[$ORIGIN/../lib:$ORIGIN]' ||
      fail "$file searches for libraries outside the prefix"
   finds "$file"
done

[ -f "$prefix/share/yang/modules/ptplib/ptplib-openconfig-ptp.yang" ] ||
   fail "ptplib-openconfig-ptp.yang is missing"

echo "--- running the programs from there"
"$prefix/bin/kivc" --help >/dev/null
[ ! -e "$build/bin/ptpstate" ] || "$prefix/bin/ptpstate" --help >/dev/null

echo "--- find_package and a project's own module"
cp -r tests/install/consumer tests/install/*.cpp examples/agent.cpp "$scratch"
cmake -G Ninja -S "$scratch/consumer" -B "$scratch/consumer/build" \
   -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$scratch/consumer/build"
"$scratch/consumer/build/consumer" | tee "$scratch/output"
diff -u "$scratch/consumer/expected.txt" "$scratch/output"
finds "$scratch/consumer/build/tree"
"$scratch/consumer/build/tree" | diff -u "$scratch/consumer/tree.txt" -
finds "$scratch/consumer/build/agent"
"$scratch/consumer/build/agent" | diff -u "$scratch/consumer/agent.txt" -
# Every installed module must be used by the consumer, too.
for kiv in "$prefix"/share/ptplib/kiv/*/*.kiv; do
   module=$(basename "$kiv" .kiv)
   grep -q "^$module: " "$scratch/consumer/tree.txt" || fail "tree.cpp does not use $module"
   grep -q "\"[A-Za-z]*/$module.h\"" "$scratch/tree.cpp" || fail "tree.cpp does not include $module.h"
done

echo "--- pkg-config"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
pkg-config --print-errors --atleast-version=0.1.0 ptplib
# shellcheck disable=SC2046
g++ $(pkg-config --cflags ptplib) "$scratch/tree.cpp" -o "$scratch/tree" $(pkg-config --libs ptplib)
# shellcheck disable=SC2046
g++ $(pkg-config --cflags holt) "$scratch/agent.cpp" -o "$scratch/agent" $(pkg-config --libs holt)
finds "$scratch/agent"
"$scratch/agent" | diff -u "$scratch/consumer/agent.txt" -
finds "$scratch/tree"
"$scratch/tree" | diff -u "$scratch/consumer/tree.txt" -

echo "--- programs that are linked with copies of the libraries' data"
for mode in "-fPIE -pie" "-fno-pie -no-pie"; do
   # shellcheck disable=SC2046,SC2086
   g++ $mode $(pkg-config --cflags ptplib) "$scratch/identity.cpp" -o "$scratch/identity" \
      $(pkg-config --libs ptplib)
   readelf -rW "$scratch/identity" | grep -q '_COPY .*kivTypeImpl' || fail "$mode makes no copies"
   "$scratch/identity" || fail "linked with $mode, a program has objects of its own"
done

echo "--- each header alone, with the options from pkg-config, which must match those from CMake"
flags=$(pkg-config --cflags ptplib)
included() { sed -e 's/^-I//' -e 's/ -std=c++20 *$//' | xargs realpath; }
[ "$(included <<<"$flags")" = "$(included <"$scratch/consumer/build/flags")" ] ||
   fail "CMake and pkg-config do not agree: $(cat "$scratch/consumer/build/flags") and $flags"
export flags
# shellcheck disable=SC2016
xargs -P "${PTPLIB_JOBS:-$(nproc)}" -n 1 bash -c '
   printf "#include \"%s\"\n" "$1" | g++ $flags -fsyntax-only -x c++ - || {
      echo "$1 does not compile on its own"
      exit 1
   }' check <"$scratch/installed"

echo "--- the README's first minutes"
# block START LANGUAGE: the first fenced block of the language below the line START.
block() {
   awk -v start="$1" -v fence="\`\`\`$2" '
      index($0, start) == 1 { below = 1 }
      inside && /^```$/ { exit }
      inside { print }
      below && $0 == fence { inside = 1 }' README.md
}
minutes=$scratch/minutes
mkdir "$minutes"
block "## The first five minutes" cmake >"$minutes/CMakeLists.txt"
block "It prints" "" >"$minutes/expected.txt"
cp examples/firstMinutes.cpp "$minutes"
cmake -G Ninja -S "$minutes" -B "$minutes/build" -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$minutes/build"
"$minutes/build/firstMinutes" >"$scratch/output"
diff -u "$minutes/expected.txt" "$scratch/output"
