#!/bin/sh
# The plug-in exports exactly the functions its version script names: no more, no fewer.
# usage: check_exports.sh PLUGIN EXPORTS_MAP
set -eu
actual=$(nm -D --defined-only --format=posix "$1" | cut -d' ' -f1 | sort)
expected=$(sed -n '/global:/,/local:/p' "$2" | tr ' ;' '\n\n' | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' \
  | grep -v -E '^(global|local)$' | sort)
if [ "$actual" != "$expected" ]; then
  echo "exported symbols differ from the version script:"
  printf '%s\n' "$expected" > /tmp/expected.$$
  printf '%s\n' "$actual" | diff /tmp/expected.$$ - || true
  rm -f /tmp/expected.$$
  exit 1
fi
echo "$(printf '%s\n' "$actual" | wc -l) symbols, as named"
