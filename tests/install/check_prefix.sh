#!/usr/bin/env bash
# check_prefix.sh BUILD_DIRECTORY: installs that build into a prefix, moves the prefix, and runs the programs:
# outside /usr they find their libraries by themselves.
set -euo pipefail
prefix=$(cd "$1" && pwd)/prefix-check
rm -rf "$prefix" "$prefix.moved"
cmake --install "$1" --prefix "$prefix" >/dev/null
mv "$prefix" "$prefix.moved"
"$prefix.moved/bin/zqpool" --version
"$prefix.moved/sbin/zqpoold" --version
# ldd prints where each library was found.
ldd "$prefix.moved/bin/zqpool" "$prefix.moved/sbin/zqpoold" | grep -F libzq >"$prefix.moved/libraries"
if grep -vF "=> $prefix.moved/" "$prefix.moved/libraries"; then
  echo "A program takes a library from outside its prefix" >&2
  exit 1
fi
