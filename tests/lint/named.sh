#!/usr/bin/env bash
# What the tour names exists: each `name`, `Class::name` and `name()` in its text is the name of
# something in the sources, and what it names of a class is named where that class is declared.
set -u
. "$(dirname "$0")/common.sh"

doc=docs/tour.md
sources=$(own_files '*.h' '*.cpp' '*.kiv')

# The code spans outside of blocks and links, with their lines, that are names.
awk '/^ *```/ { block = !block; next } !block {
   line = $0
   gsub(/\[[^]]*\]\([^)]*\)/, "", line)
   while (match(line, /`[^`]+`/)) {
      print FNR, substr(line, RSTART + 1, RLENGTH - 2)
      line = substr(line, RSTART + RLENGTH)
   }
}' "$doc" | while read -r at span; do
   [[ $span =~ ^([A-Za-z_][A-Za-z0-9_]*::)*[A-Za-z_][A-Za-z0-9_]*(\(.*\))?$ ]] || continue
   name=${span%%(*}
   member=${name##*::}
   class=${name%::*}
   class=${class##*::}
   if [ "$class" = "$member" ]; then
      grep -qwE "$member" $sources || echo "$doc:$at: there is no '$span'"
      continue
   fi
   declared=$(grep -lE "(class|struct|namespace)( \[\[[^]]*\]\])? ([A-Za-z0-9_]+::)*$class\b" $sources)
   if [ -z "$declared" ] || ! grep -qw "$member" $declared; then
      echo "$doc:$at: there is no '$span'"
   fi
done | fail_if_any
