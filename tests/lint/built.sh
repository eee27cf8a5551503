#!/usr/bin/env bash
# built.sh BUILD: every source file of the tree is part of the build, alone or together with others,
# so that no test is forgotten in a directory that CMake does not know about.
set -u
. "$(dirname "$0")/common.sh"

database=$1/compile_commands.json
[ -r "$database" ] || {
   echo "$database does not exist"
   exit 1
}
# Programs that are built only where their packages are installed.
left_out='^tests/install/'
for directory in tools/ptpgnmi tools/statedb python/core Fleet; do
   grep -qs "/$directory/" "$database" || left_out="$left_out|^$directory/"
done
grep -qs '/Fleet/' "$database" ||
   left_out="$left_out|^tools/(ptp)?fleet/|^tools/ptp(state|export)/fleet/|^tests/fleet/|^fuzz/Fleet"
own_files '*.cpp' | grep -vE "$left_out" | while IFS= read -r file; do
   grep -qF "\"$PWD/$file\"" "$database" "$1"/CMakeFiles/*/Unity/*.cxx || echo "$file:1: is not built"
done | fail_if_any
