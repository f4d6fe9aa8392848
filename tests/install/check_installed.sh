#!/usr/bin/env bash
# check_installed.sh BUILD_DIR: installs that build into a folder of its own, and uses it as others
# would: each header alone, a CMake project, pkg-config, the service with the program of README.md, and
# utils/ on a platform that has nothing of ours.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
build=$(cd "$1" && pwd)
work=$build/install-check
rm -rf "$work"
mkdir -p "$work"

say() { printf -- '-- %s\n' "$*"; }

say "install"
cmake --install "$build" --prefix "$work/first" >"$work/install.log"
# Moved, so that nothing can rest on where it was installed to.
mv "$work/first" "$work/installed"
installed=$work/installed
find "$installed" -type f -printf '%P\n' | sort
PKG_CONFIG_PATH=$(dirname "$(find "$installed" -name zqpool.pc)")
export PKG_CONFIG_PATH
read -ra flags < <(pkg-config --cflags --libs zqpool)

say "each installed header alone"
headers=0
while IFS= read -r header; do
  g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only "${flags[@]}" -x c++ - \
    <<<"#include \"$header\""
  headers=$((headers + 1))
done < <(cd "$installed/include/zqpool" && find . -name '*.h' -printf '%P\n' | sort)
((headers > 0))
say "$headers headers compile alone"

say "a project that finds zqpool with CMake"
cmake -G Ninja -S "$here/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$installed"
cmake --build "$work/consumer"
"$work/consumer/consumer"

say "the same with pkg-config"
g++ -std=c++17 "$here/consumer/main.cpp" -o "$work/with-pkg-config" "${flags[@]}" \
  -Wl,-rpath,"$(pkg-config --variable=libdir zqpool)"
"$work/with-pkg-config"

say "the program of README.md asks the installed service"
g++ -std=c++17 "$source/examples/ten_lines.cpp" -o "$work/ten_lines" "${flags[@]}" \
  -Wl,-rpath,"$(pkg-config --variable=libdir zqpool)"
(umask 077 && echo shared >"$work/s3-secret")
coproc service {
  exec "$(find "$installed" -name zqpoold -type f)" --listen 127.0.0.1:0 --no-access-key \
    --state "$work/state" --scenario "$source/examples/scenario.json" \
    --s3-secret-file "$work/s3-secret" --access-log "$work/access.log"
}
service_id=$!
trap 'kill "$service_id" 2>/dev/null || true' EXIT
IFS= read -r -t 20 ready <&"${service[0]}"
url=$(sed -n 's|.*"url": "\(file:[^"]*\)".*|\1|p' "$source/examples/scenario.json" | head -n 1)
"$work/ten_lines" 127.0.0.1 "${ready##*:}" key "$url" | tee "$work/record"
grep -qF "\"url\": \"$url\"" "$work/record"
kill "$service_id"
wait "$service_id"
trap - EXIT

say "utils/ on a platform that has nothing of ours"
diff <(cd "$here/external_platform/include" && find . -type f -printf '%P\n' | sort) \
  <(sort "$source/cmake/seam_headers.txt")
cmake -G Ninja -S "$here/external_platform" -B "$work/external" -DZQPOOL_SOURCE="$source"
cmake --build "$work/external"
"$work/external/product"
say "done"
