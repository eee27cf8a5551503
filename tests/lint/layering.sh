#!/usr/bin/env bash
# Includes only point down: each directory may include itself and what the table lists for it. A
# header may be a separate layer below the directory that contains it. The libraries need nothing
# but the standard library and the operating system. Tests, benchmarks and their headers,
# `*.test.h`, may also use what is made for tests, and what the table lists for `tests of` their
# directory.
set -u
. "$(dirname "$0")/common.sh"

platform="Dorn Bridging Brim Acl PtpPlatform"
recordings="Kiv/NboAttrLogRecorder.h Kiv/NboAttrLogPlayer.h"
framework="Sarn Kiv/AllocTrack.h Kiv/Printable.h Kiv/Map Kiv Kiv/Glue $recordings Kiv/Log Kiv/Record"
libraries="$framework $platform PtpLib"
for_tests="KivTest tests"

# directory or header: what it may include besides itself
table="
Sarn:
Kiv/AllocTrack.h: Sarn
Kiv/Printable.h: Sarn
Kiv/Map: Sarn Kiv/AllocTrack.h
Kiv: Sarn Kiv/AllocTrack.h Kiv/Printable.h Kiv/Map
Kiv/Glue: Sarn Kiv/AllocTrack.h Kiv/Printable.h Kiv/Map Kiv
Kiv/Log: Sarn Kiv/Map Kiv Kiv/Printable.h
Kiv/Record: Sarn Kiv Kiv/Printable.h Kiv/Log $recordings
Kiv/NboAttrLogRecorder.h: Kiv Kiv/Record
Kiv/NboAttrLogPlayer.h: Kiv Kiv/Record
Dorn: $framework $platform
Bridging: $framework $platform
Brim: $framework $platform
Acl: $framework $platform
PtpPlatform: $framework $platform
PtpLib: $framework $platform
KivTest: $libraries
Kivc: Kiv/Printable.h tools/cli
Holt: $libraries
Fleet: $libraries Holt Fleet/Impl
Fleet/Impl: $libraries Holt Fleet
tests of Fleet: tools/demoAgent
tools/cli: Sarn
tools/shared: $libraries Holt tools/cli
tools/ptpstate: $libraries Holt tools/cli tools/shared tools/fleet
tools/ptpstate/fleet: $libraries Holt Fleet tools/cli tools/shared tools/fleet tools/ptpstate
tools/ptpports: $libraries Holt tools/cli tools/shared
tools/ptp4lAgent: $libraries Holt tools/cli tools/shared
tests of tools/statedb: tools/ptpstate
tools/ptpsnmp: $libraries Holt tools/cli tools/shared
tools/statedb: $libraries Holt tools/cli tools/shared
tools/ptp4lCapture: tools/ptp4lAgent
tools/ptpexport: $libraries Holt tools/cli tools/shared tools/fleet
tools/ptpexport/fleet: $libraries Holt Fleet tools/cli tools/shared tools/fleet tools/ptpexport
tests of tools/ptpexport: tools/ptp4lAgent tools/demoAgent
tools/fleet: $libraries Holt Fleet tools/cli tools/shared
tools/ptpfleet: $libraries Holt Fleet tools/cli tools/shared tools/fleet
tests of tools/ptpfleet: Fleet/Fixture.test.h Fleet/NatsServer.test.h
tests of tools/ptpstate/fleet: Fleet/NatsServer.test.h
tools/ptpgnmi: $libraries Holt tools/cli tools/shared
tools/demoAgent: $libraries Holt tools/cli tools/shared
python: $libraries Holt
examples: $libraries Holt
bench: $libraries $for_tests
fuzz: $libraries $for_tests Holt Fleet tools/ptp4lAgent tools/ptpexport
tests: $libraries $for_tests
tests/fleet: $libraries Holt Fleet tools/cli tools/shared tools/fleet tools/demoAgent
"

own_files '*.h' '*.cpp' | xargs -r grep -HnE '^[[:space:]]*#[[:space:]]*include' |
   awk -v table="$table" -v libraries="$libraries" -v for_tests="$for_tests" '
      BEGIN {
         count = split(table, lines, "\n")
         for (i = 1; i <= count; ++i) {
            if (split(lines[i], parts, ":") < 1 || parts[1] == "") {
               continue
            }
            known[parts[1]] = 1
            may[parts[1], parts[1]] = 1
            n = split(parts[2], names, " ")
            for (j = 1; j <= n; ++j) {
               may[parts[1], names[j]] = 1
            }
         }
         n = split(libraries, names, " ")
         for (j = 1; j <= n; ++j) {
            library[names[j]] = 1
         }
         n = split(for_tests, names, " ")
         for (j = 1; j <= n; ++j) {
            helper[names[j]] = 1
         }
      }
      # The header in the table that the path names, or the longest directory that contains it.
      function layer(path,   dir) {
         dir = path
         if (dir in known) {
            return dir
         }
         while (sub(/\/[^\/]*$/, "", dir)) {
            if (dir in known) {
               return dir
            }
         }
         return ""
      }
      {
         split($0, place, ":")
         file = place[1]
         where = place[1] ":" place[2]
         from = layer(file)
         # A consumer project includes what is installed, as any user does.
         if (file ~ /^tests\/install\//) {
            next
         }
         is_test = file ~ /\.(test|bench)\.cpp$/ || file ~ /\.test\.h$/
         if (from == "") {
            print where ": the directory has no place in the layering table of this script"
            next
         }
         if (match($0, /"[^"]+"/)) {
            path = substr($0, RSTART + 1, RLENGTH - 2)
            to = layer(path)
            if (to == "") {
               print where ": includes \"" path "\", which is not written from the root of the tree"
            } else if (!((from, to) in may) &&
                    !(is_test && ((to in helper) || (("tests of " from), to) in may))) {
               print where ": " from " includes \"" path "\", but may not depend on " to
            }
         } else if (match($0, /<[^>]+>/) && (from in library) && !is_test) {
            path = substr($0, RSTART + 1, RLENGTH - 2)
            if (path ~ /^(gtest|gmock|benchmark|CLI|nlohmann|boost|fmt|absl)\//) {
               print where ": a library includes <" path ">; if only its tests do, the name of the " \
                  "header should end in .test.h"
            }
         }
      }' | fail_if_any
