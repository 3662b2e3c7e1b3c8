#!/bin/bash
# fleet_test.sh SOURCE TOOL: examples/fleet on a local remote, while somebody asks a server's index all the time. What
# is answered is always one whole version, and never one older than before: through deaths of builder and follower at
# every step, broken uploads, an older publication after a newer, and two builders at once.
# shellcheck disable=SC2016 # what stands in single quotes is for the commands that `breaks` writes
set -eu
if ! command -v rclone >/dev/null; then
  echo "skipped: rclone is missing (scripts/install-deps.sh --ci installs it)"
  exit 77
fi
fleet=$1/examples/fleet
tools=$(dirname "$2")
work=$(mktemp -d)
asker=
trap '[ -z "$asker" ] || kill $asker 2>/dev/null || true; rm -rf "$work"' EXIT
export PATH=$tools:$PATH RCLONE_CONFIG=$work/rclone.conf TMPDIR=$work LC_ALL=C
touch "$RCLONE_CONFIG"
cd "$work"
mkdir tree broken

fail() {
  echo "FAILED: $1"
  exit 1
}

# build VERSION: an index of files that all say which version they are of.
build() {
  for file in a b c; do echo "int version_$1() { return $1; }" >"tree/$file.c"; done
  veldra-index rebuild tree --db built.db --quiet
}
publish() { "$fleet/publish" built.db "${1:-remote}" >/dev/null; }
follow() { "$fleet/follow" "${2:-remote}" "$1" >follow.log 2>&1; }
version() { veldra-index sql "SELECT group_concat(DISTINCT name) FROM symbols WHERE kind = 'function'" --db "$1" --json; }
serves() { [[ $(version "$1") == *"\"version_$2\""* ]] || fail "$3: $1 answers $(version "$1"), not version $2; $(<follow.log)"; }
newest() { find remote -name '*.json' | sort | tail -n 1; }

ask() {
  local last=1 answer pattern='"version_([0-9]+)"'
  while [ ! -e enough ]; do
    answer=$(version server.db)
    if ! [[ $answer =~ $pattern ]] || [ "${BASH_REMATCH[1]}" -lt "$last" ]; then
      echo "$answer after version $last"
      return 1
    fi
    last=${BASH_REMATCH[1]}
    echo x >>asked
  done
}

# breaks COMMAND CONDITION DO HOW...: runs HOW, which fails because of DO where it calls COMMAND and CONDITION holds.
breaks() {
  printf '#!/bin/bash\nif %s; then\n  %s\n  exit 1\nfi\nexec %s "$@"\n' "$2" "$3" "$(command -v "$1")" >"broken/$1"
  chmod +x "broken/$1"
  (PATH=$work/broken:$PATH "${@:4}") >broken.log 2>&1 && fail "${*:4} was to fail at $1 $2"
  rm "broken/$1"
}
# Half of what was to be copied is there when it dies.
die='kill -9 $PPID' half='head -c $(($(stat -c %s "${@: -2:1}") / 2)) "${@: -2:1}" >"${@: -1}"; kill -9 $PPID'

build 1
publish
follow server.db || fail "first: $(<follow.log)"
serves server.db 1 "first"
ask >asker.log &
asker=$!

build 2
breaks rclone '[[ $* == *.db ]]' "$half" publish
follow server.db
serves server.db 1 "a builder that died in its upload"
breaks rclone '[[ $* == *.json ]]' "$half" publish
follow server.db && fail "half an announcement was taken for one"
serves server.db 1 "a builder that died in its announcement"
publish
breaks rclone '[[ $* == copyto*.db.fetched ]]' "$half" follow server.db
breaks veldra-index '[ "$1" = import ]' "$die" follow server.db
serves server.db 1 "a follower that died before its import"
follow server.db
serves server.db 2 "after the deaths"

build 3
publish
cp -r remote older
whole=$(newest)
whole=${whole%.json}.db
cp "$whole" whole.db
for harm in "truncate -s -4096" "cp $(find remote -name '*.db' | sort | head -n 1)"; do
  $harm "$whole"
  follow server.db && fail "imported what '$harm' has harmed"
  [ "$(<server.db.following)" = "$(sed 's/^importing/served/' server.db.following)" ] || fail "began to import after '$harm'"
  cp whole.db "$whole"
done

build 4
publish
breaks sync '[[ $(<server.db.following.new) == served* ]]' "$die" follow server.db
for remote in older remote older; do
  follow server.db $remote
  serves server.db 4 "a death after the import, then an older publication"
done
last=$(newest)
breaks rclone '[ "$1" = lsf ]' : publish
[ "$(newest)" = "$last" ] || fail "published without seeing what is there: $(newest)"
touch enough
wait "$asker" || fail "asked meanwhile: $(<asker.log)"
[ "$(wc -l <asked)" -gt 10 ] || fail "hardly asked"
asker=

# Two builders that did not see each other, in either order.
cp -r remote other
build 5
publish
build 6
publish other
cp server.db second.db
cp server.db.following second.db.following
follow server.db
follow second.db other
cp -n other/* remote
follow server.db
follow second.db
[ "$(version server.db)" = "$(version second.db)" ] || fail "two followers disagree about two builders"
build 7
publish
follow server.db
serves server.db 7 "after two builders"
[ "$(find remote -name '*.db' | wc -l)" -le 4 ] || fail "old publications stay: $(ls remote)"
