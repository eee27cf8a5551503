#!/usr/bin/env bash
# Every relative link in a Markdown file leads to a file of the tree, and its anchor leads to a
# heading in that file.
set -u
. "$(dirname "$0")/common.sh"

# anchors FILE: the anchors of the headings, as the usual code hosts generate them.
anchors() {
   awk '
      /^```/ { code = !code }
      !code && /^#+ / {
         sub(/^#+ +/, "")
         text = tolower($0)
         gsub(/[^a-z0-9 _-]/, "", text)
         gsub(/ /, "-", text)
         print text
      }' "$1"
}

own_files '*.md' | while IFS= read -r file; do
   awk '
      /^[ ]*```/ { code = !code }
      !code {
         line = $0
         gsub(/`[^`]*`/, "", line)
         while (match(line, /\]\([^)[:space:]]+\)/)) {
            print NR " " substr(line, RSTART + 2, RLENGTH - 3)
            line = substr(line, RSTART + RLENGTH)
         }
      }' "$file" | while read -r line link; do
      case $link in
         http:* | https:* | mailto:*) continue ;;
      esac
      path=${link%%#*}
      target=$file
      [ -z "$path" ] || target=$(dirname "$file")/$path
      if [ ! -e "$target" ]; then
         echo "$file:$line: $path does not exist"
      elif [ "$link" != "$path" ] && ! anchors "$target" | grep -qxF -- "${link#*#}"; then
         echo "$file:$line: $target has no heading #${link#*#}"
      fi
   done
done | fail_if_any
