#!/bin/bash
# The version of CMakeLists.txt is the newest in CHANGELOG.md, below the section of what is not released yet.
set -eu
cd "$(dirname "$0")/.."
version=$(sed -n 's/^project(veldra VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
mapfile -t headings < <(sed -n 's/^## //p' CHANGELOG.md | head -n 2)
[ "${headings[*]}" = "Unreleased $version" ] || {
  echo "CHANGELOG.md begins with the sections '${headings[*]}': 'Unreleased' and '$version' are to be there." >&2
  exit 1
}
