#!/usr/bin/env bash
# buildCost.sh: what clean builds of the release cost, in CPU seconds of all their processes: first
# what the demo needs, then everything that the tests need. Builds in a separate directory, without
# the compiler cache.
set -u
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT TERM
export CCACHE_DISABLE=1
TIMEFORMAT='%U %S'

# cost DIRECTORY TARGET...: configures and builds from scratch, and prints the CPU seconds.
cost() {
   local dir=$1 spent
   shift
   spent=$({ time {
      cmake --preset release -B "$dir" && cmake --build "$dir" -j "${PTPLIB_JOBS:-$(nproc)}" \
         --target "$@"
   } >"$dir.log" 2>&1; } 2>&1) || return 1
   awk '{ printf "%.0f\n", $1 + $2 }' <<<"$spent"
}

status=0
# row NAME LIMIT DIRECTORY TARGET...
row() {
   local name=$1 limit=$2 spent
   shift 2
   if spent=$(cost "$@"); then
      printf '   %-48s %8d s %8d s\n' "$name" "$spent" "$limit"
   else
      printf '   %-48s %10s\n' "$name" failed
      tail -n 20 "$1.log"
      status=1
   fi
}

printf '\nclean builds, in CPU seconds\n   %-48s %10s %10s\n' '' CPU target
row 'what the demo needs' 180 "$work/demo" ptpstate ptpports demoAgent ptp4lAgent
row 'what the tests need' 540 "$work/tests" all
exit $status
