#!/bin/bash
# instructions.sh PROGRAM: instructions of one point query, counted by callgrind, as a Markdown table.
# PROGRAM is veldra_instructions. Needs valgrind. A run of many queries less a run of few leaves out
# what opening a connection and preparing a statement take.
set -euo pipefail
program=$1
few=500
many=1500
command -v valgrind >/dev/null || { echo "instructions.sh: install valgrind" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$program" make "$work/index.db"

# total WAY QUERY COUNT: the instructions of a whole run.
total() {
  valgrind --tool=callgrind --callgrind-out-file=/dev/null "$program" "$1" "$2" "$work/index.db" "$3" 2>&1 |
    sed -n 's/.*Collected : //p'
}
per_query() {
  echo $((($(total "$1" "$2" $many) - $(total "$1" "$2" $few)) / (many - few)))
}

echo "| Instructions of a query | bare | veldra | SQLiteCpp | veldra / bare |"
echo "|---|---|---|---|---|"
for query in key name; do
  bare=$(per_query bare $query)
  veldra=$(per_query veldra $query)
  echo "| fetchone by $query | $bare | $veldra | $(per_query sqlitecpp $query) |" \
    "$(awk "BEGIN { printf \"%.3f\", $veldra / $bare }") |"
done
