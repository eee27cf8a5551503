#!/usr/bin/env bash
# Every C++ file is formatted as clang-format does. With --fix, formats them.
set -u
. "$(dirname "$0")/common.sh"

if ! command -v clang-format >/dev/null; then
   echo "clang-format is not installed"
   exit 1
fi
if [ "${1:-}" = --fix ]; then
   own_files '*.h' '*.cpp' | xargs -r -P "$(nproc)" -n 16 clang-format -i
   exit
fi
own_files '*.h' '*.cpp' | xargs -r -P "$(nproc)" -n 8 bash -c '
   for file in "$@"; do
      line=$(clang-format --dry-run -Werror "$file" 2>&1 | sed -n "s/^[^:]*:\([0-9]*\):.*/\1/p;T;q")
      [ -z "$line" ] || echo "$file:$line: is not formatted"
   done' format | LC_ALL=C sort | fail_if_any
