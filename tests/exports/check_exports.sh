#!/bin/sh
# Compares the library's exported dynamic symbols, demangled, with the
# checked-in lists of the API (one file per subsystem in the given folder):
# anything missing or extra fails.
set -eu
library=$1
lists=$2
expected=$(mktemp)
actual=$(mktemp)
trap 'rm -f "$expected" "$actual"' EXIT
cat "$lists"/*.txt | LC_ALL=C sort > "$expected"
nm -D --defined-only -C "$library" | cut -d' ' -f3- | LC_ALL=C sort > "$actual"
if ! diff -u "$expected" "$actual"; then
  echo "exported symbols differ from the lists in $lists ('-' missing, '+' extra)" >&2
  exit 1
fi
echo "$(wc -l < "$actual") exported symbols match"
