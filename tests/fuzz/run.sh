#!/usr/bin/env bash
# Fuzzes every target, or the ones named, each for that long. What is found lies in build-fuzz/found, and belongs
# into corpus/TARGET once it is mended.
# Usage: tests/fuzz/run.sh HOURS|SECONDSs [TARGET ...]     (0.5 is half an hour, 30s are thirty seconds)
set -uo pipefail
cd "$(dirname "$0")/../.."

time=${1:-1}
shift || true
case $time in
  *s) seconds=${time%s} ;;
  *) seconds=$(/usr/bin/python3 -c "print(int(3600 * float('$time')))") ;;
esac
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(mtz ccp4 sections run groups formfactors operators info map report fcalc batch)
seconds_each=$seconds

folder=build-fuzz
tools/build.sh "$folder" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORIX_SANITIZE=ON \
  -DQUORIX_FUZZ=ON || exit 1
mkdir -p "$folder/found"

one() {
  local target=$1 corpus=$folder/corpus/$1 log=$folder/$1.log
  mkdir -p "$corpus"
  QUORIX_FUZZ_TARGET=$target ASAN_OPTIONS=allocator_may_return_null=1:detect_leaks=0 \
    "$folder/tests/fuzz/fuzz_all" -seed=1 -max_total_time="$seconds_each" -max_len=65536 -timeout=20 -rss_limit_mb=4096 \
    -malloc_limit_mb=1024 -artifact_prefix="$PWD/$folder/found/$target-" -print_final_stats=1 \
    "$PWD/$corpus" "$PWD/tests/fuzz/corpus/$target" >"$log" 2>&1
  local status=$?
  printf '%-12s %12s executions%s\n' "$target" "$(sed -n 's/stat::number_of_executed_units: *//p' "$log")" \
    "$([ $status -eq 0 ] || echo ", a FAULT: see $log")"
  return $status
}
export -f one
export folder seconds_each
printf '%s\n' "${targets[@]}" | xargs -P "$(nproc)" -I {} bash -c 'one {}'
