#!/bin/bash
# quietly.sh TITLE COMMAND...: runs the command with its output in a log; prints one line with the time it
# took, or, when it fails, the output as well. On a terminal a long command shows its newest line meanwhile.
set -u
title=$1
shift
log=$(mktemp)
trap 'rm -f "$log"' EXIT
SECONDS=0

if [ -t 1 ]; then
  "$@" 2>&1 | tee "$log" | while IFS= read -r line; do printf '\r\e[K%s: %.100s' "$title" "$line"; done
  status=${PIPESTATUS[0]}
  printf '\r\e[K'
else
  "$@" >"$log" 2>&1
  status=$?
fi

if [ "$status" -ne 0 ]; then
  cat "$log"
  echo "$title: stopped with status $status after $SECONDS s: $*" >&2
  exit "$status"
fi
echo "$title: done in $SECONDS s"
