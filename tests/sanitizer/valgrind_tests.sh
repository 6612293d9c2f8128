#!/usr/bin/env bash
# Runs every test binary of a build under valgrind memcheck, two at a time:
# any invalid access or any definite leak beyond the suppressed deliberate
# ones fails. Death tests end in a fault of a forked child by design and are
# left out. The failure-injection binary brings its own malloc, so valgrind
# replaces only the system's allocator, not the executable's.
# Usage: valgrind_tests.sh <build dir> <parallel jobs>
set -euo pipefail
build=$1
jobs=${2:-2}
supp=$(cd "$(dirname "$0")" && pwd)/valgrind.supp
logs=$build/valgrind-logs
mkdir -p "$logs"

run_one() {
  local test=$1 log=$2/$(basename "$1").log
  if valgrind --soname-synonyms=somalloc=nouserintercepts --leak-check=full \
      --errors-for-leak-kinds=definite --error-exitcode=99 --suppressions="$3" -q \
      "$test" --gtest_brief=1 --gtest_filter='-*DeathTest*' > "$log" 2>&1; then
    echo "clean: $(basename "$test")"
  else
    cat "$log"
    echo "FAILED under valgrind: $(basename "$test")"
    return 255  # stops xargs
  fi
}
export -f run_one

find "$build/tests" -name '*_test' -type f -perm -u+x | sort |
  xargs -P "$jobs" -I{} bash -c 'run_one "$@"' _ {} "$logs" "$supp"
