#!/bin/bash
# readme_test.sh SOURCE [TOOL]: what README.md shows is true. The first program is examples/first_program.cc, which
# is built and run; each command behind "$ " answers as printed there, whatever the numbers (they follow the
# examples' text and the version of ctags).
set -eu
cd "$1"
diff <(awk '/^```cpp$/ { shown = 1; next } /^```$/ && shown { exit } shown' README.md) examples/first_program.cc
[ $# -eq 2 ] || exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r examples "$work"
rm -rf "$work/examples/memory"
PATH=$(dirname "$2"):$PATH

sed -n '/^    \$ /,/^$/s/^    //p' README.md >"$work/shown"
grep -q '^\$ ' "$work/shown"
cd "$work"
sed -n 's/^\$ //p' shown | while IFS= read -r command; do
  echo "\$ $command"
  bash -c "$command" 2>/dev/null
done >answered
mask() { sed -e "s|$work|/home/me/veldra|" -e '/^\$/!s/[0-9][0-9,.]*/N/g' "$1"; }
diff <(mask shown) <(mask answered)
