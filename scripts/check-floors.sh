#!/bin/bash
# Says which file of the tool includes a room above its own: tools/veldra-index/README.md has the floors, and the
# bottom ones serve all. A room that is not in that table is an error too.
set -eu
cd "$(dirname "$0")/../tools/veldra-index"
declare -A floor=([terminal]=-1)
while IFS='|' read -r _ number room _; do
  room=${room//[\` \/]/}
  [[ $number =~ [0-9] && $room =~ ^[a-z]+$ ]] && floor[$room]=${number// /}
done <README.md

status=0
for folder in */; do
  compgen -G "$folder*.cc" >/dev/null || continue
  [ -n "${floor[${folder%/}]:-}" ] || { echo "README.md does not tell the floor of $folder" && status=1; }
done
while IFS=: read -r file included; do
  room=${file%%/*}
  [ "${floor[$included]:-9}" -le "${floor[$room]:-9}" ] || { echo "$file includes $included/, which is above" && status=1; }
done < <(grep -o '#include "veldra-index/[a-z]*/' -- */*.h */*.cc | sed 's|#include "veldra-index/||; s|/$||')
exit "$status"
