#!/usr/bin/env bash
# tidy.sh BUILD [FILE...]: clang-tidy over our own sources (or the files given) with the compile
# commands of a build. A file is looked at again only if it, a header that it includes or the
# configuration has changed since it was found clean.
set -u
. "$(dirname "$0")/common.sh"

build=$1
shift
clean=$build/tidy
mkdir -p "$clean"

check() {
   local file=$1 stamp=$clean/$1.ok output
   if [ -e "$stamp" ] && [ -z "$(find .clang-tidy $(cat "$stamp") -newer "$stamp" 2>&1)" ]; then
      return 0
   fi
   mkdir -p "$(dirname "$stamp")"
   local start
   start=$(mktemp)
   if output=$(clang-tidy -p "$build" --quiet "$file" 2>/dev/null); then
      # The stamp lists what the file includes from this tree, and is as old as the look's start.
      clang++ -std=c++20 -I. -I"$build/generated" -MM -MG "$file" 2>/dev/null | tr ' \\' '\n\n' |
         grep -vE '^/usr|:$|^$' >"$stamp"
      touch -r "$start" "$stamp"
      rm -f "$start"
      return 0
   fi
   rm -f "$start"
   printf '%s\n' "$output"
   return 1
}
export -f check
export build clean

if [ $# -gt 0 ]; then
   printf '%s\n' "$@"
else
   own_files '*.cpp' | grep -vE '(Test|Bench)\.cpp$|^tests/|^fuzz/|^bench/'
fi | xargs -r -P "$(nproc)" -n 1 bash -c 'check "$1"' check
