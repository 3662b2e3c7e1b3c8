#!/bin/bash
# Says which file includes a room above its own. The floors stand in two tables: tools/veldra-index/README.md has the
# tool's, docs/architecture.md the library's. A room that is not in its table is an error too.
set -eu
cd "$(dirname "$0")/.."
status=0

# check TREE MAP: the files of TREE, which include each other as "NAME OF TREE/room/…", by the table in MAP.
check() {
  local tree=$1 map=$2 number rooms room file included
  local -A floor=([terminal]=-1)  # the tool's room that everybody may use
  while IFS='|' read -r _ number rooms _; do
    [[ $number =~ ^\ *[0-9]+\ *$ ]] || continue
    for room in ${rooms//[\`,\/]/ }; do floor[${room%.cc}]=${number// /}; done
  done <"$map"

  for room in "$tree"/*/; do
    room=$(basename "$room")
    [ -n "${floor[$room]:-}" ] || { echo "$map does not tell the floor of $tree/$room" && status=1; }
  done
  while IFS=: read -r file included; do
    room=${file#"$tree"/}
    room=${room%%[/.]*}
    [ "${floor[$included]:-99}" -le "${floor[$room]:-99}" ] ||
      { echo "$file includes $included/, which is above" && status=1; }
  done < <(grep -ro --include='*.h' --include='*.cc' "#include \"${tree##*/}/[a-z]*/" "$tree" |
    sed "s|#include \"${tree##*/}/||; s|/$||")
}

check tools/veldra-index tools/veldra-index/README.md
check src/veldra docs/architecture.md
exit "$status"
