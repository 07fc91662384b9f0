#!/usr/bin/env bash
# Sets up, builds from nothing and runs every test: a normal build and an
# AddressSanitizer + UndefinedBehaviorSanitizer build, then the fuzz targets' gate.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

# The browser tests need Chromium, its driver, Node.js and npm.
export KIV_SETUP_BROWSER=${KIV_SETUP_BROWSER:-1}
bash scripts/setup.sh

jobs=$(nproc)
run_suite() {
    local dir=$1
    shift
    cmake -S "$root" -B "$dir" -G Ninja "$@"
    cmake --build "$dir" -j "$jobs"
    ctest --test-dir "$dir" --output-on-failure -j "$jobs" --timeout 600
}

echo "== normal build =="
run_suite build/release -DCMAKE_BUILD_TYPE=RelWithDebInfo
echo "== sanitizer build =="
run_suite build/asan -DCMAKE_BUILD_TYPE=Debug -DKIV_SANITIZE=ON

if [[ "${KIV_TSAN:-1}" == 1 && -f tests/faults/tsan.sh ]]; then
    echo "== thread sanitizer build under concurrent requests =="
    bash tests/faults/tsan.sh "$root/build/tsan"
fi

if [[ -x scripts/fuzz.sh ]] || [[ -f scripts/fuzz.sh ]]; then
    # Every committed corpus, then a fixed number of runs from a fixed seed: the same result
    # on every run. Longer, random exploration: scripts/fuzz.sh all SECONDS.
    echo "== fuzz gate =="
    bash scripts/fuzz.sh gate
fi
echo "all test stages passed"
