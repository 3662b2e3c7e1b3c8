#!/bin/bash
# run-tests.sh PRESET [CTEST OPTION...]: runs the tests of build/PRESET. Prints what failed, then one line,
# "PRESET: N passed, M failed, in S s"; the whole output stays in build/PRESET/tests.log.
set -u
preset=$1
shift
log=build/$preset/tests.log
SECONDS=0

if [ -t 1 ]; then
  ctest --preset "$preset" --parallel "$(nproc)" "$@" 2>&1 | tee "$log" |
    while IFS= read -r line; do printf '\r\e[KTest: %.100s' "$line"; done
  printf '\r\e[K'
else
  ctest --preset "$preset" --parallel "$(nproc)" "$@" >"$log" 2>&1
fi

summary=$(sed -n 's/.* \([0-9]*\) tests\{0,1\} failed out of \([0-9]*\)$/\1 \2/p' "$log")
if [ -z "$summary" ]; then
  cat "$log"
  echo "$preset: no tests were run" >&2
  exit 1
fi
read -r failed total <<<"$summary"
[ "$failed" -eq 0 ] || grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test .* Passed )' "$log"
echo "$preset: $((total - failed)) passed, $failed failed, in $SECONDS s"
[ "$failed" -eq 0 ]
