#!/usr/bin/env bash
# bench.sh BIN [PATTERN]: runs the benchmark programs of a build (those whose names match) and
# prints one table: each figure with its baseline from the same run, and finally what builds cost
# (`build`). A figure is the median CPU time of five repetitions, which run in random order so that
# a slow moment affects all alike.
#
# A baseline does the same work. Its name differs only in a template argument that contains Std or
# begins with Bare or Peer, in the words Std or Baseline, or in ByInet... for the C library's
# functions. Where there are several, each has a line of its own below the figure.
set -u
bin=$1
pattern=${2:-.}

lscpu 2>/dev/null | sed -n 's/^Model name: */CPU: /p' | head -n 1
printf 'CPUs: %s, load before: %s\n' "$(nproc)" "$(cut -d ' ' -f 1 /proc/loadavg)"

status=0
for program in "$bin"/*_bench; do
   [ -x "$program" ] && [[ ${program##*/} =~ $pattern ]] || continue
   printf '\n%s\n' "${program##*/}"
   "$program" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true \
      --benchmark_enable_random_interleaving=true --benchmark_min_time=0.1 \
      --benchmark_format=csv 2>/dev/null |
      cat <("$program" --benchmark_list_tests) - | awk '
      function scaled(ns) {
         return ns < 1e3 ? sprintf("%.2f ns", ns) : ns < 1e6 ? sprintf("%.2f us", ns / 1e3) \
            : ns < 1e9 ? sprintf("%.2f ms", ns / 1e6) : sprintf("%.2f s", ns / 1e9)
      }
      # The list of names comes first and determines the order.
      !/[",]/ && NF == 1 {
         names[++count] = $0
         next
      }
      /^"/ {
         name = $0
         sub(/^"/, "", name)
         rest = name
         sub(/".*/, "", name)
         sub(/^[^"]*",/, "", rest)
         if (name !~ /_median$/) {
            next
         }
         sub(/_median$/, "", name)
         split(rest, field, ",")
         unit = field[4]
         ns = field[3] * (unit == "us" ? 1e3 : unit == "ms" ? 1e6 : unit == "s" ? 1e9 : 1)
         time[name] = ns
         if (field[6] > 0) {
            item[name] = 1e9 / field[6]
         }
      }
      function isBaseline(name) {
         return name ~ /<Bare|<Peer|Baseline|Std|ByInet/
      }
      function work(name) {
         gsub(/<[^>]*>|_?Baseline|Std|ByInet[A-Za-z]*/, "", name)
         return name
      }
      # What distinguishes one of several baselines: its template argument.
      function label(name) {
         return match(name, /<[^>]*>/) ? substr(name, RSTART + 1, RLENGTH - 2) : name
      }
      END {
         for (i = 1; i <= count; ++i) {
            if (isBaseline(names[i])) {
               kind = work(names[i])
               baseline[kind, ++baselines[kind]] = names[i]
            }
         }
         printf "   %-48s %10s %10s %10s %7s\n", "", "time", "per item", "baseline", "ratio"
         for (i = 1; i <= count; ++i) {
            name = names[i]
            if (isBaseline(name)) {
               continue
            }
            if (!(name in time)) {
               printf "   %-48s %10s\n", name, "failed"
               failed = 1
               continue
            }
            ++shown
            printf "   %-48s %10s %10s", name, scaled(time[name]), \
               name in item ? scaled(item[name]) : ""
            kind = work(name)
            for (j = 1; j <= baselines[kind]; ++j) {
               base = baseline[kind, j]
               if (base in time) {
                  if (baselines[kind] > 1) {
                     printf "\n      %-45s %10s %10s", label(base), "", ""
                  }
                  printf " %10s %7.2f", scaled(time[base]), time[name] / time[base]
               }
            }
            printf "\n"
         }
         exit failed || !shown
      }' || {
      echo "   failed"
      status=1
   }
done

for program in "$bin"/bench_*; do
   [[ $program != *_bench && ${program##*/} =~ $pattern ]] && [ -x "$program" ] || continue
   printf '\n%s\n' "${program##*/}"
   "$program" || {
      echo "   failed"
      status=1
   }
done

if [[ build =~ $pattern ]]; then
   "$(dirname "$0")/buildCost.sh" || status=1
fi
exit $status
