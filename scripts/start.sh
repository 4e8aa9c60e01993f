#!/usr/bin/env bash
# Installs what is missing, builds Mendwise and starts it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
"$root/scripts/build.sh" "$root/build-release" -DCMAKE_BUILD_TYPE=Release \
    -DMENDWISE_BUILD_TESTS=OFF -DMENDWISE_BUILD_BENCH=OFF
if [ -x "$root/build-release/app/mendwise" ]; then
    exec "$root/build-release/app/mendwise" "$@"
fi
# Until the tray application exists, the command-line rewrite tool is what there is to run.
exec "$root/build-release/app/mendwise-rewrite" "$@"
