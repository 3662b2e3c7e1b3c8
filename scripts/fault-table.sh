#!/bin/bash
# fault-table.sh [BUILD]: runs the tests of faults in BUILD (default build/release), those of the tool among them, and
# the fuzzers (a minute; needs clang++), and prints what they measured as Markdown. VELDRA_EVERY_POINT, VELDRA_KILLS,
# VELDRA_POWER_LOSSES, VELDRA_CLOSES, VELDRA_FILES and VELDRA_SECONDS ask for more.
set -eu
cd "$(dirname "$0")/.."
tests=${1:-build/release}/tests
lines=$(mktemp)
trap 'rm -f "$lines"' EXIT
status=0
"$tests/veldra_fault_tests" --gtest_brief=1 >"$lines" || status=$?
"$tests/veldra_tool_tests" --gtest_brief=1 --gtest_filter='KillTest.*:FullDiskTest.*' >>"$lines" || status=$?
scripts/fuzz.sh >>"$lines" || status=$?

awk -F '|' '
  $2 != "every call" { next }
  !($3 in failures) { operations[++rows] = $3 }
  !($4 in known) { known[$4] = 1; faults[++columns] = $4 }
  { points[$3, $4] = $5; errors[$3] += $6; failures[$3] += $7 }
  END {
    head = "| points tried in |"; rule = "|---|"
    for (c = 1; c <= columns; ++c) { head = head " " faults[c] " |"; rule = rule "---:|" }
    print head " errors given | failures |"; print rule "---:|---:|"
    for (r = 1; r <= rows; ++r) {
      line = "| " operations[r] " |"
      for (c = 1; c <= columns; ++c) line = line " " points[operations[r], faults[c]] " |"
      print line " " errors[operations[r]] " | " failures[operations[r]] " |"
    }
  }' "$lines"
echo
echo "| what | operation | tried | outcome | failures |"
echo "|---|---|---:|---|---:|"
sed -n '/^measured|every call|/d; s/^measured//p' "$lines" | sed 's/|/ | /g; s/  */ /g; s/^ //; s/$/ |/'
exit "$status"
