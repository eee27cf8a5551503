#!/usr/bin/env bash
# What comments and documents name exists. In the tour, each `name`, `Class::name` and `name()` is
# the name of something in the sources, and what it names of a class is named where that class is
# declared. Everywhere, each `File.h` and `File.cpp` is a file of the tree, or one that kivc
# generates from a declaration.
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
tour=$?

declarations=$(own_files '*.kiv')
known=$(own_files '*' | sed 's|.*/||'
        sed -E 's/[^A-Za-z0-9_]+/\n/g' $declarations | sort -u | awk '{ print $0 ".h"; print $0 ".cpp" }')
grep -noE '`[A-Za-z0-9_./]+\.(h|cpp)`' $sources $(own_files '*.md') |
   tr -d '`' | awk -F: -v known="$known" '
      BEGIN { n = split(known, names, "\n"); for (i = 1; i <= n; ++i) exists[names[i]] = 1 }
      $3 ~ /^(Demo\/|X?[.])/ { next }  # a module of examples, and any file
      { base = $3; sub(/.*\//, "", base); if (!(base in exists)) print $1 ":" $2 ": there is no file " $3 }' |
   fail_if_any && exit "$tour"
