#!/usr/bin/env bash
# Configures and builds one build tree. Usage: build.sh BUILD_DIR [CMAKE_ARGS...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$root}"
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$dir" -G Ninja "${launcher[@]}" "$@" >/dev/null
cmake --build "$dir"
