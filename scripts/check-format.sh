#!/bin/bash
# Says where a C++ file of the project differs from what clang-format makes of it; `--fix` rewrites them.
# A body of one statement has no braces. The option that takes them away indents some lambdas wrongly
# (clang-format 14), so it runs first and by itself.
set -eu
cd "$(dirname "$0")/.."
fix=${1:-}
rules=$(mktemp -d)
trap 'rm -rf "$rules"' EXIT
{ cat .clang-format && echo "RemoveBracesLLVM: true"; } >"$rules/without-braces"
find src tools tests bench examples \( -name '*.h' -o -name '*.cc' \) | sort | while read -r file; do
  clang-format --style="file:$rules/without-braces" "$file" | clang-format --assume-filename="$file" >"$rules/made"
  if [ "$fix" = --fix ]; then
    cmp -s "$file" "$rules/made" || cp "$rules/made" "$file"
  else
    diff -u --label "$file" --label "$file, formatted" "$file" "$rules/made"
  fi
done
