#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer) and runs
# each for a set number of executions, one after the other, from the seeds in tests/fuzz/seeds.
# Prints, per target: executions, coverage (edges, features), time, and the verdict.
# Usage: fuzz.sh [RUNS] [TARGET...]   (RUNS default 100000; targets default all)
# Environment: FUZZ_BUILD_DIR (default build-fuzz), FUZZ_WORK (corpora and logs, default
# FUZZ_BUILD_DIR/work), FUZZ_SECONDS (stop a target after this long even if its runs are not
# done; default no limit). A failing input is kept in FUZZ_WORK as crash-*, leak-* or oom-*.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
runs=${1:-100000}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] &&
    targets=(messages_response stored_shortcut settings_load shortcut_description)
build=${FUZZ_BUILD_DIR:-$root/build-fuzz}
work=${FUZZ_WORK:-$build/work}

"$root/scripts/setup.sh" --fuzz
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja "${launcher[@]}" -DCMAKE_CXX_COMPILER=clang++ \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMENDWISE_BUILD_FUZZ=ON -DMENDWISE_BUILD_TESTS=OFF \
    -DMENDWISE_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" --target "${targets[@]/#/fuzz_}"

# Leaks on; a smaller quarantine and shorter allocation stacks than the defaults, which more
# than double the speed of the file-reading targets and still catch a use after free.
asan=detect_leaks=1:max_malloc_fill_size=0:quarantine_size_mb=16:malloc_context_size=8
status=0
printf '%-22s %12s %8s %8s %8s  %s\n' target executions edges features seconds verdict
for target in "${targets[@]}"; do
    corpus=$work/$target
    mkdir -p "$corpus"
    log=$work/$target.log
    start=$(date +%s)
    verdict=clean
    (cd "$work" && ASAN_OPTIONS=$asan UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
        QT_QPA_PLATFORM=offscreen "$build/tests/fuzz/fuzz_$target" -runs="$runs" \
        -max_len=4096 -max_total_time="${FUZZ_SECONDS:-0}" -artifact_prefix="$work/$target-" -print_final_stats=1 \
        "$corpus" "$root/tests/fuzz/seeds/$target") >"$log" 2>&1 || verdict="FAILED (see $log)"
    seconds=$(($(date +%s) - start))
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    coverage=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -1 || true)
    edges=$(echo "$coverage" | awk '{print $2}')
    features=$(echo "$coverage" | awk '{print $4}')
    printf '%-22s %12s %8s %8s %8s  %s\n' "$target" "${executions:-?}" "${edges:-?}" \
        "${features:-?}" "$seconds" "$verdict"
    [ "$verdict" = clean ] || status=1
done
exit $status
