#!/usr/bin/env bash
# run.sh BUILD: installs a build into a directory of its own, moves that elsewhere, and uses it from
# there as a stranger would: with find_package, with a module of one's own, and with pkg-config.
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

echo "--- what is installed"
(cd "$prefix" && find . -type d | LC_ALL=C sort)
for library in Kiv PtpPlatform PtpLib; do
   [ -f "$prefix/lib/lib$library.so.0.1.0" ] || fail "lib$library.so.0.1.0 is missing"
   [ -L "$prefix/lib/lib$library.so.0" ] || fail "lib$library.so.0 is missing"
   [ -L "$prefix/lib/lib$library.so" ] || fail "lib$library.so is missing"
done
! find "$prefix" -name '*_test' -o -name '*_bench' -o -name '*KivTest*' | grep . ||
   fail "what only tests need is installed"
! grep -rIl -e "$PWD" "$prefix" || fail "these files name the directory of the sources"
! find "$prefix" -type d -empty | grep . || fail "these directories are empty"

echo "--- the programs run from there"
"$prefix/bin/kivc" --help >/dev/null
[ ! -e "$build/bin/ptpstate" ] || "$prefix/bin/ptpstate" --help >/dev/null

echo "--- find_package and a module of one's own"
cp -r tests/install/consumer "$scratch/consumer"
cmake -G Ninja -S "$scratch/consumer" -B "$scratch/consumer/build" \
   -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix"
cmake --build "$scratch/consumer/build"
"$scratch/consumer/build/consumer" | tee "$scratch/output"
diff -u "$scratch/consumer/expected.txt" "$scratch/output"

echo "--- pkg-config"
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
pkg-config --print-errors --atleast-version=0.1.0 ptplib
# shellcheck disable=SC2046
g++ $(pkg-config --cflags ptplib) tests/install/tree.cpp -o "$scratch/tree" \
   $(pkg-config --libs ptplib) -Wl,-rpath,"$prefix/lib"
"$scratch/tree"

echo "--- the first minutes, as the README tells them"
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
