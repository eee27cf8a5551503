#!/usr/bin/env bash
# exports.sh LIBRARY...: every variable that a library exports and that can change must be in
# cmake/processWide.list. Otherwise the library uses its own while a program that is linked with it
# uses a copy.
set -u
patterns=$(sed -n 's/^ *\([^ #{}]*\);$/\1/p' "$(dirname "$0")/../../cmake/processWide.list")
failed=0
for library; do
   # The exported objects whose section is writable after the loader has done its work.
   variables=$({
      readelf -SW "$library" | sed 's/^ *\[ *//; s/\]//'
      readelf --dyn-syms -W "$library"
   } | awk '$2 == ".data" || $2 == ".bss" { writable[$1] = 1 }
            $4 == "OBJECT" && $7 in writable { sub("@.*", "", $8); print $8 }')
   if [ -z "$variables" ]; then
      echo "$library: no variables found"
      failed=1
   fi
   for variable in $variables; do
      listed=
      while read -r pattern; do
         # shellcheck disable=SC2053  # a pattern on purpose
         [[ $variable == $pattern ]] && listed=1
      done <<<"$patterns"
      if [ -z "$listed" ]; then
         echo "$library: $(c++filt "$variable") is not in cmake/processWide.list"
         failed=1
      fi
   done
done
exit $failed
