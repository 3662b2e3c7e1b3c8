#!/bin/bash
# Installs the Debian packages that are missing: those of the build, and with --ci those of the checks as well.
# What is there already is left alone. Ends with status 1 and a reason when something still is missing.
set -u

packages=(
  g++ cmake ninja-build pkg-config                    # building
  libsqlite3-dev libspdlog-dev                        # the library
  libcli11-dev libfmt-dev nlohmann-json3-dev          # the tool
  libre2-dev libxxhash-dev
  universal-ctags
  libgtest-dev libgmock-dev                           # the tests
  libbenchmark-dev libsqlitecpp-dev python3           # the benchmarks
  dpkg-dev file                                       # the .deb package
)
if [ "${1:-}" = --ci ]; then
  packages+=(clang clang-format clang-tidy ccache doxygen rclone shellcheck gcovr zsh fish)
  command -v npm >/dev/null || packages+=(npm)
fi

stop() {
  echo "$1" >&2
  exit 1
}

install() {
  local run=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null ||
      stop "These packages are missing: $*. Installing needs root: run this as root, or install sudo."
    run=(sudo)
  fi
  run+=(env DEBIAN_FRONTEND=noninteractive)
  local log
  log=$(mktemp)
  echo "Installing: $*"
  if ! { "${run[@]}" apt-get update -q && "${run[@]}" apt-get install -q -y --no-install-recommends "$@"; } \
    >"$log" 2>&1 </dev/null; then
    tail -n 15 "$log" >&2
    rm -f "$log"
    stop "Packages could not be installed: $*. See apt-get's words above (network, package sources, disk)."
  fi
  rm -f "$log"
}

if command -v dpkg-query >/dev/null && command -v apt-get >/dev/null; then
  missing=()
  for package in "${packages[@]}"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] || install "${missing[@]}"
else
  echo "This is no Debian: install what Debian calls ${packages[*]}"
fi

# Another cmake or ctags, earlier in the PATH, may be the one that runs.
cmake=$(cmake --version 2>/dev/null | sed -n 's/^cmake version \([0-9.]*\).*/\1/p')
[ -n "$cmake" ] || stop "cmake is missing: install CMake 3.25 or newer."
[ "$(printf '%s\n' 3.25 "$cmake" | sort -V | head -n 1)" = 3.25 ] ||
  stop "$(command -v cmake) is CMake $cmake, 3.25 or newer is needed (Debian 12's package has it)."
command -v c++ g++ clang++ >/dev/null ||
  stop "No C++ compiler was found: install g++ 12 or newer, or clang++ 14 or newer."
ctags --version 2>/dev/null | grep -q 'Universal Ctags' ||
  stop "ctags in the PATH is not Universal Ctags, which the tool needs: install universal-ctags."
