#!/usr/bin/env bash
# Builds kiv-server and the database module with ThreadSanitizer (GCC, whose runtime is a shared
# library that the module links as well) and sends them a bounded load of concurrent mixed
# requests into one worker with eight threads. Fails on any failed request or any report.
#
#   tests/faults/tsan.sh [BUILD_DIR] [REQUESTS]     defaults: build/tsan, 1200
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$PWD
build=${1:-$root/build/tsan}
requests=${2:-1200}

flags=-fsanitize=thread
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKIV_TESTS=OFF -DKIV_BENCH=OFF \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" \
    -DCMAKE_SHARED_LINKER_FLAGS="$flags" -DCMAKE_MODULE_LINKER_FLAGS="$flags" >"$build.configure.log" 2>&1 ||
    { cat "$build.configure.log" >&2; exit 1; }
cmake --build "$build" --target kiv-server kivdatabase -j "$(nproc)"

reports=$build/tsan-reports
mkdir -p "$reports"
# halt_on_error=0: every race is reported, not only the first; the run fails on any report.
TSAN_OPTIONS="log_path=$reports/report halt_on_error=0 second_deadlock_stack=1" \
    timeout --kill-after=10 900 python3 tests/faults/load.py concurrency \
    --server "$build/server/kiv-server" --module "$build/database/libkivdatabase.so" \
    --requests "$requests" --sanitizer-log "$reports"
