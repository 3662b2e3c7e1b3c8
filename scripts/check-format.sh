#!/bin/bash
# Says where a C++ file of the project differs from what clang-format makes of it; `--fix` rewrites them.
set -eu
cd "$(dirname "$0")/.."
mode=(--dry-run --Werror)
[ "${1:-}" != --fix ] || mode=(-i)
find src tools tests bench examples \( -name '*.h' -o -name '*.cc' \) -print0 | xargs -0 clang-format "${mode[@]}"
