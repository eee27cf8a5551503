#!/usr/bin/env bash
# rules.sh: checks which files of a directory belong to the library, the tests and the benchmarks,
# and which headers are installed. A declared type may have any name: its files must never be
# mistaken for those of a test.
set -eu
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

mkdir -p "$scratch/Lab" "$scratch/Plain/Cellar"
cat >"$scratch/Lab/Lab.kiv" <<'END'
module Lab 0x1ab01ab0;
namespace Lab;
/// Written by hand.
extern value Lab::CableTest in "Lab/CableTest.h";
/// Generated; an operation is written by hand.
entity SelfTest {
}
  value LoopBench {
}
enum TestSupport {
}
END
touch "$scratch"/Lab/{CableTest.h,CableTest.cpp,CableTestTest.cpp,SelfTest.cpp,SelfTestTest.cpp} \
   "$scratch"/Lab/{LoopBench.cpp,LoopBenchTest.cpp,SpeedBench.cpp,TestSupport.h,TestMode.h} \
   "$scratch"/Lab/{LabTestSupport.h,Latest.h,Latest.cpp} \
   "$scratch"/Plain/{Contest.cpp,ContestTest.cpp,Contest.h,PlainTestSupport.h} \
   "$scratch"/Plain/Cellar/{Shelf.cpp,ShelfTest.cpp,ShelfBench.cpp,Shelf.h}

cat >"$scratch/CMakeLists.txt" <<END
cmake_minimum_required(VERSION 3.25)
project(Rules LANGUAGES NONE)
list(APPEND CMAKE_MODULE_PATH "$PWD/cmake")
include(PtpLibLibrary)
function(say what)
   list(TRANSFORM ARGN REPLACE "^\${PROJECT_SOURCE_DIR}/" "")
   file(APPEND "\${PROJECT_BINARY_DIR}/said" "\${what}: \${ARGN}\n")
endfunction()
ptplib_sources(found Lab Plain)
say(library \${found})
ptplib_tests(found Lab)
say(tests \${found})
ptplib_tests(found Plain)
say(tests \${found})
ptplib_benches(found Lab)
say(benchmarks \${found})
ptplib_headers(found Lab Plain)
say(headers \${found})
END
cmake -S "$scratch" -B "$scratch/build" >"$scratch/log" 2>&1 || {
   cat "$scratch/log"
   exit 1
}
diff -u - "$scratch/build/said" <<'END'
library: Lab/CableTest.cpp;Lab/Latest.cpp;Lab/LoopBench.cpp;Lab/SelfTest.cpp;Plain/Cellar/Shelf.cpp;Plain/Contest.cpp
tests: Lab/CableTestTest.cpp;Lab/LoopBenchTest.cpp;Lab/SelfTestTest.cpp
tests: Plain/Cellar/ShelfTest.cpp;Plain/ContestTest.cpp
benchmarks: Lab/SpeedBench.cpp
headers: Lab/CableTest.h;Lab/Latest.h;Lab/TestMode.h;Lab/TestSupport.h;Plain/Cellar/Shelf.h;Plain/Contest.h
END
