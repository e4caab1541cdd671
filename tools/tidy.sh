#!/usr/bin/env bash
# clang-tidy over the sources of src, or over those changed since a revision: for each change before it lands.
# Usage: tools/tidy.sh BUILD [REV]   BUILD: a folder configured for clang++ (made if it is not there)
# A source that was clean is not looked at again until it, a header or the rules change: what the
# preprocessor makes of it is the key, in ~/.cache/quorix-tidy.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:?a folder configured for clang++}
since=${2:-}
cache=${XDG_CACHE_HOME:-$HOME/.cache}/quorix-tidy
mkdir -p "$cache"
rules=$(cat .clang-tidy && clang-tidy --version)
[ -f "$build/compile_commands.json" ] ||
  cmake -S . -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DQUORIX_TESTS=OFF >/dev/null

look() {
  local source=$1 key found
  key=$(set -o pipefail
    clang++ -std=c++20 -E -CC -D__clang_analyzer__ -DQUORIX_VERSION='""' -Iinclude -Isrc "$source" 2>/dev/null |
      sed "s|$PWD/||g" | cat - <(echo "$rules") | sha256sum | cut -c1-32) || key=
  [ -n "$key" ] && [ -f "$cache/$key" ] && return
  found=$(clang-tidy -p "$build" --quiet --extra-arg=-D__clang_analyzer__ "$source" 2>/dev/null) && [ -z "$found" ] || {
    printf '%s\n' "$source:" "$found"
    return 1
  }
  [ -z "$key" ] || touch "$cache/$key"
}
export -f look
export build cache rules

if [ -n "$since" ]; then
  git diff --name-only --diff-filter=d "$since" -- 'src/*.cpp'
else
  git ls-files 'src/*.cpp'
fi | xargs -r -P "$(nproc)" -I{} bash -c 'look {}'
