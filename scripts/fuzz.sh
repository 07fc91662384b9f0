#!/usr/bin/env bash
# Builds the libFuzzer targets and runs each for a bounded time over a scratch copy of its
# seed corpus, so that the committed corpus never changes by running this.
#
#   scripts/fuzz.sh all SECONDS     every target this configuration builds
#   scripts/fuzz.sh NAME SECONDS    one target: fuzz/NAME_fuzz.cpp (NAME_fuzz is accepted too)
#
# Exits non-zero when any target crashes, leaks, times out on an input or is missing; the
# input that broke it is kept under build/fuzz/artifacts/NAME/.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

usage() {
    echo "usage: scripts/fuzz.sh all|NAME SECONDS" >&2
    exit 2
}
[[ $# -eq 2 ]] || usage
what=${1%_fuzz}
seconds=$2
[[ $seconds =~ ^[0-9]+$ ]] || usage

build=${KIV_FUZZ_BUILD_DIR:-$root/build/fuzz}
jobs=$(nproc)

if [[ $what != all && ! -f fuzz/${what}_fuzz.cpp ]]; then
    echo "fuzz: no fuzz/${what}_fuzz.cpp" >&2
    exit 2
fi

mkdir -p "$build"
if ! CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIV_FUZZ=ON -DKIV_TESTS=OFF -DKIV_BENCH=OFF >"$build/configure.log" 2>&1; then
    cat "$build/configure.log" >&2
    echo "fuzz: configuring $build failed" >&2
    exit 1
fi
grep '^-- fuzz:' "$build/configure.log" || true

if [[ $what == all ]]; then
    cmake --build "$build" --target kiv_fuzz_all -j "$jobs"
    mapfile -t targets < <(grep -v '^$' "$build/fuzz/fuzz_targets.txt" || true)
    # A source whose target was not configured (a library it names is missing) is reported,
    # not silently passed over.
    for source in fuzz/*_fuzz.cpp; do
        [[ -e $source ]] || continue
        name=$(basename "$source" .cpp)
        if ! printf '%s\n' "${targets[@]}" | grep -qx "$name"; then
            echo "fuzz: $name is not built in this configuration (see the cmake output)" >&2
        fi
    done
else
    cmake --build "$build" --target "${what}_fuzz" -j "$jobs"
    targets=("${what}_fuzz")
fi

failed=()
for target in "${targets[@]}"; do
    name=${target%_fuzz}
    scratch=$(mktemp -d)
    if [[ -d fuzz/corpus/$name ]]; then
        cp -R "fuzz/corpus/$name/." "$scratch/"
    fi
    artifacts=$build/artifacts/$name
    mkdir -p "$artifacts"
    options=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1
        -artifact_prefix="$artifacts/")
    if [[ -f fuzz/$name.dict ]]; then
        options+=(-dict="fuzz/$name.dict")
    fi

    echo "== fuzz $target for ${seconds}s =="
    # The outer timeout only guards against a target that ignores -max_total_time.
    if timeout --kill-after=10 $((seconds + 120)) "$build/fuzz/$target" "${options[@]}" "$scratch" \
        >"$build/$target.log" 2>&1; then
        tail -n 3 "$build/$target.log"
    else
        tail -n 40 "$build/$target.log" >&2
        echo "fuzz: $target FAILED; the input is in $artifacts/, the log in $build/$target.log" >&2
        failed+=("$target")
    fi
    rm -rf "$scratch"
done

if ((${#failed[@]})); then
    echo "fuzz: failed: ${failed[*]}" >&2
    exit 1
fi
if ((${#targets[@]} == 0)); then
    echo "fuzz: no targets were built" >&2
    exit 1
fi
echo "fuzz: ${#targets[@]} target(s) ran ${seconds}s each without failure"
