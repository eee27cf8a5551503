# shellcheck shell=bash
# Sourced by the lint scripts. Each prints one line `file:line: what is wrong` per finding and fails
# if there are any.

cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1

# own_files PATTERN...: the files of the tree whose names match one of the patterns, except for what
# builds and tools create.
own_files() {
   local names=() pattern
   for pattern in "$@"; do
      names+=(-o -name "$pattern")
   done
   find . \( -path ./build -o -path ./.git -o -path ./.cache \) -prune -o \
      -type f \( "${names[@]:1}" \) -print | sed 's|^\./||' | LC_ALL=C sort
}

# fail_if_any: copies findings from its input to its output; fails if there were any.
fail_if_any() {
   awk '{ print } END { exit NR > 0 }'
}
