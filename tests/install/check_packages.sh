#!/usr/bin/env bash
# check_packages.sh DIRECTORY: unpacks the packages there into an empty root, and uses them as others would:
# each header alone, a CMake project, pkg-config, the programs, the program of README.md, and utils/ on a
# platform that has nothing of ours. Only the system's own libraries come from outside that root.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
packages=$(cd "$1" && pwd)
work=$packages/check
root=$work/root
rm -rf "$work"
mkdir -p "$root"

say() { printf -- '-- %s\n' "$*"; }
fail() { echo "$*" >&2; exit 1; }

say "unpack"
names=()
for package in "$packages"/*.deb; do
  dpkg-deb --extract "$package" "$root"
  names+=("$(dpkg-deb --field "$package" Package)")
done
mapfile -t names < <(printf '%s\n' "${names[@]}" | sort)
echo "${names[*]}"
twice=$(for package in "$packages"/*.deb; do dpkg-deb --fsys-tarfile "$package" | tar -t | grep -v '/$'; done |
  sort | uniq -d)
[[ -z $twice ]] || fail "In more than one package: $twice"
find "$root" -type f -printf '%P\n' | sort

PKG_CONFIG_PATH=$(dirname "$(find "$root" -name zqpool.pc)")
export PKG_CONFIG_PATH
libraries=$(readlink -f "$(pkg-config --variable=libdir zqpool)")
export LD_LIBRARY_PATH=$libraries
read -ra flags < <(pkg-config --cflags --libs zqpool)

say "the soname is the package's name, so that two ABIs can be installed side by side"
for library in "$libraries"/lib*.so; do
  soname=$(objdump -p "$library" | sed -n 's/^ *SONAME *//p')
  echo "$(basename "$library"): $soname"
  [[ " ${names[*]} " == *" libzqpool${soname#*.so.} "* ]] || fail "No package is named for $soname"
  [[ -e $libraries/$soname ]] || fail "There is no $soname"
done

say "the programs"
"$root/usr/bin/zqpool" --version
"$root/usr/sbin/zqpoold" --version

say "each installed header alone"
headers=0
while IFS= read -r header; do
  g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only "${flags[@]}" -x c++ - \
    <<<"#include \"$header\""
  headers=$((headers + 1))
done < <(cd "$root/usr/include/zqpool" && find . -name '*.h' -printf '%P\n' | sort)
((headers > 0))
say "$headers headers compile alone"

say "a project that finds zqpool with CMake"
cmake -G Ninja -S "$here/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$root/usr" \
  -DCMAKE_BUILD_TYPE=Debug
cmake --build "$work/consumer"
"$work/consumer/consumer"

say "the same with pkg-config"
g++ -std=c++17 "$here/consumer/main.cpp" -o "$work/with-pkg-config" "${flags[@]}"
"$work/with-pkg-config"

say "the program of README.md asks the installed service"
g++ -std=c++17 "$source/examples/ten_lines.cpp" -o "$work/ten_lines" "${flags[@]}"
(umask 077 && echo shared >"$work/s3-secret")
coproc service {
  exec "$root/usr/sbin/zqpoold" --listen 127.0.0.1:0 --no-access-key \
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
unset LD_LIBRARY_PATH
diff <(cd "$here/external_platform/include" && find . -type f -printf '%P\n' | sort) \
  <(sort "$source/cmake/seam_headers.txt")
cmake -G Ninja -S "$here/external_platform" -B "$work/external" -DZQPOOL_SOURCE="$source" \
  -DCMAKE_BUILD_TYPE=Debug
cmake --build "$work/external"
"$work/external/product"
say "done"
