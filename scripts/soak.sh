#!/usr/bin/env bash
# Lets five clients load the real service while sticks come and go, and checks whether it has
# grown, lost an event or answered late. Usage: soak.sh [SECONDS] [SEED]   (1800, a random one)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${CM_BUILD:-build/dev}
[ -f "$build/build.ninja" ] ||
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target soak >/dev/null
words=(--seconds "${1:-1800}" --samples "$PWD/$build/Tests/Endurance/soak-samples")
[ $# -lt 2 ] || words+=(--seed "$2")
exec "$build/Tests/Endurance/soak" "${words[@]}"
