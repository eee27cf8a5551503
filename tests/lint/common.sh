# shellcheck shell=bash
# Sourced by the lint scripts. Each prints one `file:line: what is wrong` per finding and fails if
# there is any.

cd "$(dirname "${BASH_SOURCE[0]}")/../.." || exit 1

# own_files PATTERN...: the files of the tree whose names match one of the patterns, without what
# builds and tools leave behind.
own_files() {
   local names=() pattern
   for pattern in "$@"; do
      names+=(-o -name "$pattern")
   done
   find . \( -path ./build -o -path ./.git -o -path ./.cache \) -prune -o \
      -type f \( "${names[@]:1}" \) -print | sed 's|^\./||' | LC_ALL=C sort
}

# fail_if_any: copies findings from its input to its output; fails if there were some.
fail_if_any() {
   awk '{ print } END { exit NR > 0 }'
}
