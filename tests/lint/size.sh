#!/usr/bin/env bash
# Headers and sources are small enough to be read in one go. Files that are longer for a good reason
# are listed with that reason, and their limit, in size-exceptions.txt.
set -u
. "$(dirname "$0")/common.sh"

own_files '*.h' '*.cpp' | xargs -r wc -l | awk -v list=tests/lint/size-exceptions.txt '
   BEGIN {
      while ((getline line < list) > 0) {
         if (line == "" || line ~ /^#/) {
            continue
         }
         split(line, parts, " ")
         limits[parts[1]] = parts[2]
         if (parts[3] == "") {
            print list ": " parts[1] " has no reason"
         }
      }
   }
   $2 != "total" {
      usual = $2 ~ /\.h$/ ? 250 : 500
      limit = usual
      if ($2 in limits) {
         limit = limits[$2]
         seen[$2] = 1
         if ($1 <= usual) {
            print $2 ":1: is listed in " list " but has only " $1 " lines"
         }
      }
      if ($1 > limit) {
         print $2 ":1: " $1 " lines, more than " limit
      }
   }
   END {
      for (path in limits) {
         if (!(path in seen)) {
            print list ": " path " does not exist"
         }
      }
   }' | fail_if_any
