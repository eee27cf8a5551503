#!/usr/bin/env bash
# tidy.sh BUILD [FILE...]: runs clang-tidy on the sources of the libraries and programs, or on the
# given files, with the compile commands of a build. A file is checked again only if it, a file that
# it includes or the configuration has changed since it was found clean.
set -u
. "$(dirname "$0")/common.sh"

export build=$1
export clean=$build/tidy
shift
mkdir -p "$clean"
if ! command -v clang-tidy >/dev/null; then
   echo "clang-tidy is not installed"
   exit 1
fi

# The compile commands without options that only g++ understands and without its precompiled
# headers.
sed 's/ -fno-gnu-unique//g; s/ -fpch-preprocess//g; s/ -Winvalid-pch -include [^ "]*//g' \
   "$build/compile_commands.json" >"$clean/compile_commands.json" || exit 1

# One line "SOURCE DEPENDENCY..." per source, as the compiler reported them to the build. The paths
# are relative to the root of the tree or, with ccache, to the build directory; those outside the
# tree are omitted. Sources that are compiled together share their dependencies.
ninja -C "$build" -t deps | awk -v root="$PWD/" '
   function flush(  i) {
      for (i = 1; i <= sources; ++i) print source[i] line
      sources = 0
      line = ""
   }
   function add(path) {
      line = line " " path
      if (path ~ /\.cpp$/) source[++sources] = path
   }
   /^[^ ].*: #deps/ { flush(); next }
   { path = $1 }
   sub(/^\.\.\/\.\.\//, "", path) { add(path); next }
   index(path, root) == 1 { add(substr(path, length(root) + 1)) }
   END { flush() }' >"$clean/dependencies"

check() {
   local file=$1 stamp=$clean/$1.ok
   local files
   read -r -a files < <(grep -m 1 "^$file\( \|$\)" "$clean/dependencies")
   if [ -e "$stamp" ] && [ -z "$(find .clang-tidy "$file" "${files[@]}" -newer "$stamp" 2>&1)" ]; then
      return 0
   fi
   mkdir -p "$(dirname "$stamp")"
   touch "$stamp.started"
   local output
   if output=$(clang-tidy -p "$clean" --quiet --extra-arg=-Wno-unknown-warning-option \
      "$file" 2>/dev/null); then
      mv "$stamp.started" "$stamp"
      return 0
   fi
   rm -f "$stamp" "$stamp.started"
   printf '%s\n' "$output" | sed "s|$PWD/||"
   return 1
}
export -f check

if [ $# -gt 0 ]; then
   printf '%s\n' "$@"
else
   own_files '*.cpp' | grep -vE '\.(test|bench)\.cpp$|^tests/|^fuzz/|^bench/'
fi | xargs -r -P "${PTPLIB_JOBS:-$(nproc)}" -n 1 bash -c 'check "$1"' check
