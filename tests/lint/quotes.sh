#!/usr/bin/env bash
# The code that the documentation quotes is built and run: the fenced block after a line
# `<!-- quotes FILE -->` must be in FILE, line by line.
set -u
. "$(dirname "$0")/common.sh"

own_files '*.md' | while IFS= read -r file; do
   awk -v file="$file" '
      function fail(what) { print file ":" start ": " what }
      /^<!-- quotes [^ ]+ -->$/ { source = $3; start = NR; next }
      source != "" && !inside && /^```/ { inside = 1; block = ""; next }
      inside && /^```$/ {
         text = ""
         while ((getline line < source) > 0) {
            text = text line "\n"
         }
         close(source)
         if (text == "") {
            fail(source " cannot be read")
         } else if (block == "" || index("\n" text, "\n" block) == 0) {
            fail("the block is not in " source)
         }
         source = ""
         inside = 0
         next
      }
      inside { block = block $0 "\n" }
      END { if (source != "") fail("no block follows") }' "$file"
done | fail_if_any
