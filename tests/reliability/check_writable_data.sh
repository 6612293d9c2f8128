#!/bin/sh
# check_writable_data.sh <library> <bound in bytes>: fails when the library's
# writable data (.data, .bss and their thread-local twins) grows past the
# bound. The library keeps no state between calls; a static scratch buffer or
# cache added to a kernel, which concurrent callers would share, shows here.
set -eu
total=$(size -A "$1" | awk '$1 ~ /^\.t?(data|bss)$/ { sum += $2 } END { print sum + 0 }')
echo "writable data: $total bytes, bound $2"
[ "$total" -le "$2" ]
