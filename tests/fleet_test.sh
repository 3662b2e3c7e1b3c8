#!/bin/bash
# fleet_test.sh SOURCE TOOL: examples/fleet on a local remote, while somebody asks a server's index all the time. What
# is answered is always one whole version, and never one older than before: through deaths of builder and follower at
# every step, broken uploads, an older publication after a newer, and two builders at once.
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
mkdir tree dying

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

# dies COMMAND WHEN HOW...: runs HOW, which is killed where COMMAND is called with a last argument that matches WHEN;
# half of what it was to copy is there then.
dies() {
  # shellcheck disable=SC2016 # the script that is written expands them
  printf '#!/bin/bash\nif [[ $* == %s ]]; then\n  %s\n  kill -9 $PPID\n  exit 1\nfi\nexec %s "$@"\n' \
    "$2" '[ "$1" != copyto ] || head -c $(($(stat -c %s "${@: -2:1}") / 2)) "${@: -2:1}" >"${@: -1}"' \
    "$(command -v "$1")" >"dying/$1"
  chmod +x "dying/$1"
  (PATH=$work/dying:$PATH "${@:3}") >died.log 2>&1 && fail "${*:3} was to die at $1 $2"
  rm "dying/$1"
}

build 1
publish
follow server.db || fail "first: $(<follow.log)"
serves server.db 1 "first"
ask >asker.log &
asker=$!

build 2
dies rclone '*.db' publish
follow server.db
serves server.db 1 "a builder that died in its upload"
dies rclone '*.json' publish
follow server.db && fail "half an announcement was taken for one"
serves server.db 1 "a builder that died in its announcement"
publish
dies rclone 'copyto*.db.fetched' follow server.db
dies veldra-index 'import*' follow server.db
serves server.db 1 "a follower that died before its import"
follow server.db
serves server.db 2 "after the deaths"

build 3
publish
cp -r remote older
whole=$(newest)
whole=${whole%.json}.db
cp "$whole" whole.db
for harm in "truncate -s -4096" "shred -n 1 -s 64"; do
  $harm "$whole"
  follow server.db && fail "imported what '$harm' has harmed"
  serves server.db 2 "$harm"
  cp whole.db "$whole"
done
dies sync '*' follow server.db
follow server.db
serves server.db 3 "a whole upload"

build 4
publish
follow server.db
follow server.db older
serves server.db 4 "an older publication after a newer"
publish nowhere:remote 2>/dev/null && fail "published without seeing what is there"
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
