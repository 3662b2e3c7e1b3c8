#!/bin/bash
# check-tidy.sh [BUILD [FOLDER...]]: runs clang-tidy over the source files that BUILD compiles (default build/clang),
# those of the FOLDERs or all. A finding is an error.
set -eu
cd "$(dirname "$0")/.."
build=${1:-build/clang}
[ -f "$build/compile_commands.json" ] || {
  echo "$build has no compile_commands.json: run cmake --preset clang first." >&2
  exit 1
}
folders=${*:2}
sed -n "s|^ *\"file\": \"$PWD/\(.*\.cc\)\".*|\1|p" "$build/compile_commands.json" | sort -u |
  grep -E "^(${folders// /|})" |
  xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p "$build"
