#!/usr/bin/env bash
# Installs what is needed, builds a release, and serves the example site on
# http://127.0.0.1:8080 (Ctrl-C stops it). The first run creates the sample database and
# an 'admin' account for /manage/ and /kiv-admin/; its password is printed once.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build/release --target kiv-server kivdatabase -j "$(nproc)"

exec build/release/server/kiv-server serve --root examples/site "$@"
