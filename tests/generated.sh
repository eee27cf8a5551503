#!/usr/bin/env bash
# generated.sh BUILD [--update]: compares what kivc generates for our modules with what is checked
# in: the pages of docs/reference, and the lists of ids in tests/golden, so that a changed id shows
# up in a review. Also compares the man page with what ptpstate generates from docs/ptpstate.md, and
# tests/golden/*.types with what ptpstate tells of the types. With --update, writes them again.
set -u
cd "$(dirname "$0")/.." || exit 1
kivc=$1/bin/kivc
update=${2:-}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$scratch/docs/reference" "$scratch/tests/golden"

index=$scratch/docs/reference/README.md
{
   printf '# Reference\n\n'
   printf 'One page per module, generated from its declarations.\n\n'
   printf '| module | types |\n|---|---|\n'
} >"$index"
for kiv in PtpLib/*.kiv PtpPlatform/*.kiv Dorn/*.kiv Bridging/*.kiv Brim/*.kiv Acl/*.kiv; do
   [ -e "$kiv" ] || continue
   module=$(basename "$kiv" .kiv)
   "$kivc" -I . --reference "$scratch/docs/reference/$module.md" \
      --manifest "$scratch/tests/golden/$module.ids" "$kiv" || exit 1
   case $kiv in
      PtpLib/*) "$1/bin/ptpstate" types "$module" >"$scratch/tests/golden/$module.types" || exit 1 ;;
   esac
   types=$(awk '$1 ~ /^(entity|value|enum)$/ { list = list (list ? ", " : "") "`" $2 "`" }
                END { print list }' "$kiv")
   printf '| [%s](%s.md) | %s |\n' "$module" "$module" "$types" >>"$index"
done
"$1/bin/ptpstate" manual >"$scratch/docs/ptpstate.1" || exit 1

status=0
while IFS= read -r file; do
   if [ "$update" = --update ]; then
      cmp -s "$scratch/$file" "$file" || {
         mkdir -p "$(dirname "$file")"
         cp "$scratch/$file" "$file"
         echo "$file: written"
      }
   elif ! diff -u "$file" "$scratch/$file"; then
      echo "$file: differs from what is generated; ./dev docs updates it"
      status=1
   fi
done < <(cd "$scratch" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)

# Files that no longer belong to a module.
for file in docs/reference/*.md tests/golden/*.ids tests/golden/*.types; do
   [ -e "$file" ] && [ ! -e "$scratch/$file" ] || continue
   if [ "$update" = --update ]; then
      rm "$file"
      echo "$file: removed"
   else
      echo "$file: does not belong to a module; ./dev docs removes it"
      status=1
   fi
done
exit $status
