#!/bin/bash
# install_test.sh KIND SOURCE BUILD: the library as users get it. A small program is built against it in every
# way that is promised, and run.
#   static        what `cmake --install BUILD` installs
#   shared        a shared build of SOURCE: its exports, its versioned name
#   subdirectory  SOURCE as a part of another project
#   deb           the packages that cpack makes of BUILD, unpacked
# The program, its CMakeLists.txt and the commands are those of README.md. The environment may name the compiler (CXX)
# and its launcher (CMAKE_CXX_COMPILER_LAUNCHER).
set -eu
kind=$1 source=$2 build=$3
work=$build/install_test/$kind
rm -rf "$work"
mkdir -p "$work"
fail() {
  echo "$*" >&2
  exit 1
}

# shown TEXT: the lines of README.md from the one that begins so to the next blank one.
shown() {
  local text
  text=$(sed -n "/^    $1/,/^\$/s/^    //p" "$source/README.md")
  [ -n "$text" ] || fail "README.md shows nothing that begins with: $1"
  echo "$text"
}

# expect_runs COMMANDS: the last of them writes an index and answers from it, after what the library logs.
expect_runs() {
  local answer
  answer=$(cd "$work/program" && rm -f first.db && bash -e -c "$1" | tail -n 1)
  [ "$answer" = "src/main.cc:12 main" ] || fail "$1 answered: $answer"
}

# expect_usable PREFIX: what is installed there serves find_package and pkg-config.
expect_usable() {
  local prefix=$1 config
  config=$(find "$prefix" -name veldra-storage.pc -printf '%h')
  export CMAKE_PREFIX_PATH=$prefix PKG_CONFIG_PATH=$config LD_LIBRARY_PATH=${config%/pkgconfig}
  mkdir "$work/program"
  cp "$source/examples/first_program.cc" "$work/program"
  shown "cmake_minimum_required" >"$work/program/CMakeLists.txt"
  expect_runs "$(shown "cmake -B build")"
  expect_runs "$(shown "g++"); ./first_program"

  [ -f "$prefix/include/veldra/storage/database.h" ] || fail "database.h was not installed"
  [ ! -e "$prefix/include/veldra/storage/database_internal.h" ] || fail "an internal header was installed"
}

# expect_public_symbols LIBRARY: what it defines for others is declared by the public headers. (Weak symbols are
# left out: every user of the standard library's templates has copies of those.)
expect_public_symbols() {
  local exported stray
  exported=$(nm -DC --defined-only "$1" | sed -n 's/^[0-9a-f]* [TDBR] //p')
  grep -q '^veldra::Database::connect()' <<<"$exported" || fail "$1 does not export Database::connect"
  stray=$(grep -vE '^((vtable|typeinfo|typeinfo name) for )?veldra::[A-Za-z]' <<<"$exported" || true)
  [ -z "$stray" ] || fail "$1 exports what no public header declares: $stray"
}

# expect_files PACKAGE FILE...: it has these, below /usr.
expect_files() {
  local package=$1 file
  shift
  dpkg-deb -x "$work/$package"_*.deb "$work/$package"
  for file; do
    [ -f "$work/$package/usr/$file" ] || fail "$package lacks $file"
  done
}

case $kind in
static)
  cmake --install "$build" --prefix "$work/usr"
  expect_usable "$work/usr"
  ;;
shared)
  cmake -S "$source" -B "$work/build" -G Ninja -DBUILD_SHARED_LIBS=ON
  cmake --build "$work/build"
  cmake --install "$work/build" --prefix "$work/usr"
  expect_usable "$work/usr"
  library=$(find "$work/usr" -name libveldra_storage.so)
  objdump -p "$library" | grep -qE 'SONAME +libveldra_storage\.so\.[0-9]+\.[0-9]+$' || fail "SONAME has no version"
  expect_public_symbols "$library"
  ;;
subdirectory)
  cmake -S "$source/tests/install" -B "$work/build" -G Ninja -DVELDRA_SOURCE="$source"
  cmake --build "$work/build"
  mkdir "$work/program"
  expect_runs "$work/build/consumer"
  [ ! -d "$work/build/veldra/tests" ] || fail "a project that adds this one builds its tests too"
  ;;
deb)
  cpack --config "$build/CPackConfig.cmake" -B "$work"
  expect_files veldra-index bin/veldra-index share/bash-completion/completions/veldra-index \
    share/fish/vendor_completions.d/veldra-index.fish share/man/man1/veldra-index.1 \
    share/zsh/vendor-completions/_veldra-index
  expect_files libveldra-storage-dev include/veldra/storage/database.h lib/cmake/veldra/veldraConfig.cmake \
    lib/libveldra_storage.a lib/pkgconfig/veldra-storage.pc
  expect_usable "$work/libveldra-storage-dev/usr"
  "$work/veldra-index/usr/bin/veldra-index" --version
  dpkg-deb -f "$work"/veldra-index_*.deb Depends | grep universal-ctags
  [ ! -e "$work/veldra-index/usr/include" ] || fail "who uses the tool gets headers"
  ;;
*) fail "unknown kind: $kind" ;;
esac
