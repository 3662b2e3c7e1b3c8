#!/bin/bash
# fault-table.sh [PROGRAM]: runs the tests of faults (default build/release/tests/veldra_fault_tests) and prints what
# they measured as Markdown. VELDRA_EVERY_POINT, VELDRA_KILLS, VELDRA_POWER_LOSSES, VELDRA_CLOSES, VELDRA_FILES and
# VELDRA_SECONDS ask for more.
set -eu
program=${1:-$(dirname "$0")/../build/release/tests/veldra_fault_tests}
lines=$(mktemp)
trap 'rm -f "$lines"' EXIT
status=0
"$program" --gtest_brief=1 >"$lines" || status=$?

echo "| operation | fault | points tried | errors given | failures |"
echo "|---|---|---:|---:|---:|"
grep '^measured|every call|' "$lines" | cut -d '|' -f 3- | sed 's/.*/|&|/'
echo
echo "| what | operation | tried | outcome | failures |"
echo "|---|---|---:|---|---:|"
grep '^measured|' "$lines" | grep -v '^measured|every call|' | cut -d '|' -f 2- | sed 's/.*/|&|/'
exit "$status"
