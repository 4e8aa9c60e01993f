#!/usr/bin/env bash
# Lines of C++ (.cpp/.h files the repository tracks) under tests/ against the rest, and their
# ratio. Every file under tests/ counts as test code: helpers, fakes, fuzz targets and tools.
# bench/ counts as code: benchmarks assert nothing and catch no fault; they are programs that
# print figures, kept apart from the tests (its share is printed too).
set -euo pipefail
cd "$(dirname "$0")/.."
count() { git ls-files -z -- "$@" | xargs -0 -r cat | wc -l; }
# A pathspec's * also matches across directories.
tests=$(count 'tests/*.cpp' 'tests/*.h')
bench=$(count 'bench/*.cpp' 'bench/*.h')
all=$(count '*.cpp' '*.h')
code=$((all - tests))
echo "tests: $tests lines"
echo "code:  $code lines (bench/ included: $bench)"
awk -v t="$tests" -v c="$code" 'BEGIN { printf "ratio: %.1f%% (target: at most 35%%)\n", 100 * t / c }'
