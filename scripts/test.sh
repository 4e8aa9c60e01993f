#!/usr/bin/env bash
# Installs what is missing, builds with warnings as errors, and runs every test.
# Usage: test.sh [--asan] [--tsan] [--no-apps] [ctest args...]
#   --asan / --tsan also build and run the tests under AddressSanitizer+UBSan / ThreadSanitizer.
#   --no-apps leaves out the matrix of real applications (label apps: GNOME Text Editor, KWrite,
#   LibreOffice, Firefox, Chromium), and does not install them: for a quick run while working.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
variants=(plain)
ctest_args=()
apps=true
for arg in "$@"; do
    case "$arg" in
        --no-apps) apps=false ;;
        --asan) variants+=(asan) ;;
        --tsan) variants+=(tsan) ;;
        *) ctest_args+=("$arg") ;;
    esac
done
if $apps; then "$root/scripts/setup.sh" --test-apps; else "$root/scripts/setup.sh"; fi

for v in "${variants[@]}"; do
    case "$v" in
        plain) dir="$root/build"; flags=() ;;
        asan) dir="$root/build-asan"; flags=(-DMENDWISE_SANITIZE_ADDRESS=ON -DMENDWISE_BUILD_BENCH=OFF) ;;
        tsan) dir="$root/build-tsan"; flags=(-DMENDWISE_SANITIZE_THREAD=ON -DMENDWISE_BUILD_BENCH=OFF) ;;
    esac
    echo "== $v build"
    "$root/scripts/build.sh" "$dir" -DMENDWISE_WERROR=ON "${flags[@]}"
    echo "== $v tests"
    export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
    export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
    export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$root/tests/tsan.supp}
    # The real applications run once, in the plain build: under the sanitizers they would test
    # the same code again at several times the cost.
    skip=()
    if [ "$v" != plain ] || ! $apps; then skip=(-LE apps); fi
    ctest --test-dir "$dir" --output-on-failure "${skip[@]}" "${ctest_args[@]}"
done
