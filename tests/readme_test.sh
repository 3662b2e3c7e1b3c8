#!/bin/bash
# readme_test.sh SOURCE: the first program that README.md shows is examples/first_program.cc, which is built and run.
set -eu
cd "$1"
diff <(awk '/^```cpp$/ { shown = 1; next } /^```$/ && shown { exit } shown' README.md) examples/first_program.cc
