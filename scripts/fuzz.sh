#!/bin/bash
# fuzz.sh [SECONDS]: builds the libFuzzer programs of tests/fuzz in build/fuzz and runs them side by side, each for so
# many seconds (default 60). Prints a line for the table of docs/testing.md per program, and what a failed one said.
# The input that failed stays in build/fuzz as crash-…; a program run on that file fails again.
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-60}
mkdir -p build
command -v clang++ >/dev/null || { echo "fuzz.sh: install clang, whose libFuzzer this needs" >&2; exit 1; }
cmake -S . -B build/fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELDRA_BUILD_FUZZERS=ON -DVELDRA_BUILD_TOOLS=OFF -DVELDRA_BUILD_TESTS=OFF -DVELDRA_BUILD_BENCH=OFF >build/fuzz.log
cmake --build build/fuzz >>build/fuzz.log || { cat build/fuzz.log >&2; exit 1; }

cd build/fuzz
fuzzers=(extractor_stamp import_scan read_statement search_query source_text tag_line)
declare -A process
for fuzzer in "${fuzzers[@]}"; do
  "./tests/fuzz/fuzz_$fuzzer" -max_total_time="$seconds" >"$fuzzer.log" 2>&1 &
  process[$fuzzer]=$!
done
status=0
for fuzzer in "${fuzzers[@]}"; do
  failures=0
  wait "${process[$fuzzer]}" || { failures=1 status=1 && tail -n 40 "$fuzzer.log" >&2; }
  runs=$(sed -n 's/^Done \([0-9]*\) runs.*/\1/p' "$fuzzer.log")
  echo "measured|fuzzing for $seconds s|$fuzzer|${runs:-?}||$failures"
done
exit "$status"
