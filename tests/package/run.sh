#!/usr/bin/env bash
# Installs into a scratch prefix and uses it from outside: CMake package, pkg-config, programs, man
# pages, and every declared routine among the exported symbols.
set -euo pipefail
cd "$(dirname "$0")/../.."

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
tools/build.sh "${QUORIX_BUILD:-build}" -DQUORIX_TESTS=OFF
cmake --install "${QUORIX_BUILD:-build}" --prefix "$prefix" >/dev/null

export CMAKE_PREFIX_PATH=$prefix
cmake -S tests/package/outside -B "$scratch/outside" -G Ninja >/dev/null
cmake --build "$scratch/outside" >/dev/null
library=$(dirname "$(find "$prefix" -name libquorix.so)")
# The shared library finds its data beside itself; a program with the static one is told where they are.
unset ZENVI_DATA
"$scratch/outside/outside_quorix"
ZENVI_DATA=$prefix/share/quorix "$scratch/outside/outside_quorix_static"

export PKG_CONFIG_PATH=$library/pkgconfig
# shellcheck disable=SC2046
g++ -std=c++20 tests/package/outside/main.cpp -o "$scratch/by-pkg-config" $(pkg-config --cflags --libs quorix)
LD_LIBRARY_PATH=$library "$scratch/by-pkg-config"

"$prefix/bin/quorix" --version
map=$scratch/1ubq.ccp4
env -u ZENVI_DATA "$prefix/bin/quorix-map" 'P 21 21 21' 50.84 42.77 28.95 90 90 90 1.8 50 \
  examples/1ubq.mtz FWT PHWT '' "$map" >"$scratch/log" || { cat "$scratch/log"; exit 1; }
[ -s "$map" ]
for page in quorix quorix-map quorix-run; do
  man -l "$prefix/share/man/man1/$page.1" >/dev/null
done
module=$(find "$prefix" -path '*/quorix/__init__.py')
[ -n "$module" ]
env -u ZENVI_DATA PYTHONPATH="$(dirname "$(dirname "$module")")" /usr/bin/python3 tests/package/outside/use_module.py examples/1ubq.mtz
/usr/bin/python3 tools/check_names.py "$library/libquorix.so"
tests/package/setup_in_shells.sh "$prefix" "$scratch/moved to here"
echo "package: installs, links and runs from outside"
