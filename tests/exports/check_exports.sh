#!/bin/sh
# Compares the library's exported dynamic symbols, demangled, with the
# checked-in list of the API: anything missing or extra fails.
set -eu
library=$1
expected=$2
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT
nm -D --defined-only -C "$library" | cut -d' ' -f3- | LC_ALL=C sort > "$actual"
if ! LC_ALL=C sort "$expected" | diff -u - "$actual"; then
  echo "exported symbols differ from $expected ('-' missing, '+' extra)" >&2
  exit 1
fi
echo "$(wc -l < "$actual") exported symbols match"
