#!/usr/bin/env bash
# Installs every build and test dependency from Debian's packages. Safe to run again:
# it only asks apt for what is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libsqlite3-dev sqlite3
    libboost1.81-dev zlib1g-dev libssl-dev openssl libcli11-dev libtomlplusplus-dev libsodium-dev
    unixodbc unixodbc-dev odbc-postgresql libsqliteodbc postgresql
    python3 python3-prometheus-client curl
    libsystemd-dev systemd dpkg-dev logrotate
)
# Extra groups, asked for by the test script when it runs those suites.
if [[ "${KIV_SETUP_BROWSER:-0}" == 1 ]]; then
    packages+=(chromium chromium-driver nodejs)
    # Some images ship a Node.js build that bundles npm and conflicts with Debian's npm
    # package: ask for the package only when no npm is on the path.
    command -v npm >/dev/null 2>&1 || packages+=(npm)
fi
if [[ "${KIV_SETUP_LOAD:-0}" == 1 ]]; then
    packages+=(wrk)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if ((${#missing[@]})); then
    echo "setup: installing ${missing[*]}"
    if [[ $(id -u) -ne 0 ]]; then
        echo "setup: need root to install packages" >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
    echo "setup: all packages present"
fi
