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
own_files '*.cpp' | grep -v '^tests/install/' | while IFS= read -r file; do
   grep -qF "\"$PWD/$file\"" "$database" "$1"/CMakeFiles/*/Unity/*.cxx || echo "$file:1: is not built"
done | fail_if_any
