#!/bin/bash
# fetch-sqlite.sh [DIR]: brings sqlite3.c and sqlite3.h of SQLite 3.54.1 into DIR (default build/sqlite), for
# -DVELDRA_SQLITE_AMALGAMATION=DIR. They come from npm's package better-sqlite3, which carries the
# amalgamation; what arrives must have the recorded checksum. Needs npm. Does nothing when the files are there.
set -eu

package=better-sqlite3@13.2.0
package_sha256=40487589df3496f2ee0079d22b73c63fccebe7db0e8ee9a2c42421861e321e0b
files_sha256='75a4760a7b9727a4c4c877aec92eacf39e52a8f2921ce00bd33be6d3a8e8e254  sqlite3.c
d6c84557261893439b341d2e6c35187ae3ea24fbfd843ad94616f72d89242b8c  sqlite3.h'

directory=${1:-$(dirname "$0")/../build/sqlite}
mkdir -p "$directory"
directory=$(cd "$directory" && pwd)

intact() { (cd "$directory" && sha256sum --check --status <<<"$files_sha256") 2>/dev/null; }
intact && exit 0

command -v npm >/dev/null || {
  echo "npm is missing: install it (Debian: apt-get install npm), or bring sqlite3.c and sqlite3.h yourself." >&2
  exit 1
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
archive=$(npm pack --silent --ignore-scripts "$package" </dev/null | tail -n 1) || {
  echo "npm could not bring $package: see its words above." >&2
  exit 1
}
sha256sum --check --status <<<"$package_sha256  $archive" || {
  echo "$package arrived with the checksum $(sha256sum "$archive" | cut -d ' ' -f 1)," \
    "not $package_sha256: nothing was unpacked." >&2
  exit 1
}
tar -xzf "$archive" -C "$directory" --strip-components=3 --no-same-owner --touch \
  package/deps/sqlite3/sqlite3.c package/deps/sqlite3/sqlite3.h
intact || {
  echo "The files in $directory do not have the recorded checksums." >&2
  exit 1
}
echo "SQLite $(sed -n 's/^#define SQLITE_VERSION  *"\(.*\)"/\1/p' "$directory/sqlite3.h") is in $directory"
