#!/usr/bin/env bash
# rules.sh: checks which files of a directory belong to the library, the tests and the benchmarks,
# and which headers are installed. A declared type may have any name: its files must never be
# mistaken for those of a test.
set -eu
cd "$(dirname "$0")/../.."
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

mkdir -p "$scratch/Lab" "$scratch/Plain/Cellar"
touch "$scratch"/Lab/{CableTest.h,CableTest.cpp,CableTest.test.cpp,Cable.test.h,TestSupport.h} \
   "$scratch"/Lab/{LoopBench.h,LoopBench.cpp,LoopBench.test.cpp,LoopBench.bench.cpp,bench.h,test.cpp} \
   "$scratch"/Plain/{Contest.cpp,Contest.test.cpp,Contest.h,Plain.test.h} \
   "$scratch"/Plain/Cellar/{Shelf.cpp,Shelf.test.cpp,Shelf.bench.cpp,Shelf.h}

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
cmake -G Ninja -S "$scratch" -B "$scratch/build" >"$scratch/log" 2>&1 || {
   cat "$scratch/log"
   exit 1
}
diff -u - "$scratch/build/said" <<'END'
library: Lab/CableTest.cpp;Lab/LoopBench.cpp;Lab/test.cpp;Plain/Cellar/Shelf.cpp;Plain/Contest.cpp
tests: Lab/CableTest.test.cpp;Lab/LoopBench.test.cpp
tests: Plain/Cellar/Shelf.test.cpp;Plain/Contest.test.cpp
benchmarks: Lab/LoopBench.bench.cpp
headers: Lab/CableTest.h;Lab/LoopBench.h;Lab/TestSupport.h;Lab/bench.h;Plain/Cellar/Shelf.h;Plain/Contest.h
END
