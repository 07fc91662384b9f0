#!/usr/bin/env bash
# Builds the libFuzzer targets and runs them, in one of two ways:
#
#   scripts/fuzz.sh gate [NAME...]   the test command's stage: each target (every one this
#                                    configuration builds, or the named ones) runs its whole
#                                    committed corpus, then a fixed number of inputs mutated
#                                    from a fixed seed. Nothing depends on time, so the outcome
#                                    is the same on every run and machine.
#   scripts/fuzz.sh all SECONDS      exploration: every target for SECONDS, from a scratch copy
#   scripts/fuzz.sh NAME SECONDS     of its corpus, so the committed corpus never changes
#
# NAME is fuzz/NAME_fuzz.cpp (NAME_fuzz is accepted too). A target's gate runs are set by a
# line "// fuzz-gate-runs: N" in its source (20000 without one).
#
# Exits non-zero when any target crashes, leaks, takes over a minute on one input or is
# missing; the input that broke it is kept under build/fuzz/artifacts/NAME/ (see
# docs/fuzzing.md for what to do with it).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

# The gate's seed and the run count of a target that names none.
gate_seed=1
default_gate_runs=20000

usage() {
    echo "usage: scripts/fuzz.sh gate [NAME...] | all SECONDS | NAME SECONDS" >&2
    exit 2
}
[[ $# -ge 1 ]] || usage
mode=explore
if [[ $1 == gate ]]; then
    mode=gate
    shift
    names=("${@%_fuzz}")
    [[ $# -gt 0 ]] || names=(all)
else
    [[ $# -eq 2 && $2 =~ ^[0-9]+$ ]] || usage
    names=("${1%_fuzz}")
    seconds=$2
fi

build=${KIV_FUZZ_BUILD_DIR:-$root/build/fuzz}
jobs=$(nproc)

for name in "${names[@]}"; do
    if [[ $name != all && ! -f fuzz/${name}_fuzz.cpp ]]; then
        echo "fuzz: no fuzz/${name}_fuzz.cpp" >&2
        exit 2
    fi
done

mkdir -p "$build"
if ! CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DKIV_FUZZ=ON -DKIV_TESTS=OFF -DKIV_BENCH=OFF >"$build/configure.log" 2>&1; then
    cat "$build/configure.log" >&2
    echo "fuzz: configuring $build failed" >&2
    exit 1
fi
grep '^-- fuzz:' "$build/configure.log" || true

failed=()
if [[ ${names[0]} == all ]]; then
    cmake --build "$build" --target kiv_fuzz_all -j "$jobs"
    mapfile -t targets < <(grep -v '^$' "$build/fuzz/fuzz_targets.txt" || true)
    # A source whose target was not configured (a library it names is missing) is reported,
    # not silently passed over; the gate fails on it.
    for source in fuzz/*_fuzz.cpp; do
        [[ -e $source ]] || continue
        name=$(basename "$source" .cpp)
        if ! printf '%s\n' "${targets[@]}" | grep -qx "$name"; then
            echo "fuzz: $name is not built in this configuration (see the cmake output)" >&2
            if [[ $mode == gate ]]; then
                failed+=("$name")
            fi
        fi
    done
else
    targets=("${names[@]/%/_fuzz}")
    cmake --build "$build" --target "${targets[@]}" -j "$jobs"
fi

# The runs a target's source asks of the gate.
gate_runs() {
    local runs
    runs=$(sed -n 's|^[[:space:]]*//[[:space:]]*fuzz-gate-runs:[[:space:]]*\([0-9][0-9]*\).*|\1|p' \
        "fuzz/$1_fuzz.cpp" | head -n 1)
    echo "${runs:-$default_gate_runs}"
}

# Writes the corpus of a target as libFuzzer's -seed_inputs list (comma-separated, no line
# break), in byte order of the names so that the order never depends on the file system, and
# prints how many files it holds.
corpus_list() {
    local name=$1 list=$2 files=()
    rm -f "$list"
    if [[ -d fuzz/corpus/$name ]]; then
        mapfile -t files < <(find "$root/fuzz/corpus/$name" -type f | LC_ALL=C sort)
    fi
    if printf '%s\n' "${files[@]}" | grep -q ,; then
        echo "fuzz: a file name in fuzz/corpus/$name holds a comma, which -seed_inputs cannot take" >&2
        exit 2
    fi
    if ((${#files[@]})); then
        (IFS=,; printf '%s' "${files[*]}") >"$list"
    fi
    echo "${#files[@]}"
}

# Where code and memory lie changes what some targets cover (comparisons of addresses in the
# code and in the sanitizers' checks), and so which inputs the fuzzer keeps. The gate runs its
# targets with address randomization turned off, as setarch does for one process, and with
# the usual stack size limit, which decides where the libraries are mapped.
fixed_addresses=()
if [[ $mode == gate ]]; then
    if ! ulimit -s 8192 2>/dev/null; then
        echo "fuzz: cannot set the stack size limit to 8 MiB; the gate's inputs may differ from other machines'" >&2
    fi
    if setarch "$(uname -m)" --addr-no-randomize true 2>/dev/null; then
        fixed_addresses=(setarch "$(uname -m)" --addr-no-randomize)
    else
        echo "fuzz: this system refuses to turn off address randomization (setarch);" \
            "the inputs the gate tries may then differ between runs" >&2
    fi
fi

for target in "${targets[@]}"; do
    name=${target%_fuzz}
    artifacts=$build/artifacts/$name
    mkdir -p "$artifacts"
    options=(-timeout=60 -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$artifacts/")
    if [[ -f fuzz/$name.dict ]]; then
        options+=(-dict="fuzz/$name.dict")
    fi
    scratch=
    if [[ $mode == gate ]]; then
        # No corpus folder is given: libFuzzer then writes nothing, reloads nothing, and runs
        # the committed inputs in the order of the list before it mutates them.
        runs=$(gate_runs "$name")
        list=$build/$target.inputs
        inputs=$(corpus_list "$name" "$list")
        if [[ -f $list ]]; then
            options+=(-seed_inputs=@"$list")
        fi
        options+=(-seed="$gate_seed" -runs=$((inputs + runs)) -use_cmp=0 -reload=0 -purge_allocator_interval=-1)
        limit=3600
        echo "== fuzz $target: $inputs corpus inputs, then $runs runs from seed $gate_seed =="
    else
        scratch=$(mktemp -d)
        if [[ -d fuzz/corpus/$name ]]; then
            cp -R "fuzz/corpus/$name/." "$scratch/"
        fi
        options+=(-max_total_time="$seconds" "$scratch")
        # Only guards against a target that ignores -max_total_time.
        limit=$((seconds + 120))
        echo "== fuzz $target for ${seconds}s =="
    fi

    # The outer timeout stops a hung process; it is far beyond any honest run.
    if timeout --kill-after=10 "$limit" "${fixed_addresses[@]}" "$build/fuzz/$target" "${options[@]}" \
        >"$build/$target.log" 2>&1; then
        grep -oE '#[0-9]+[[:space:]]+DONE.*' "$build/$target.log" | tail -n 1 || tail -n 3 "$build/$target.log"
    else
        tail -n 40 "$build/$target.log" >&2
        echo "fuzz: $target FAILED; the input is in $artifacts/, the log in $build/$target.log" >&2
        failed+=("$target")
    fi
    if [[ -n $scratch ]]; then
        rm -rf "$scratch"
    fi
done

if ((${#failed[@]})); then
    echo "fuzz: failed: ${failed[*]}" >&2
    exit 1
fi
if ((${#targets[@]} == 0)); then
    echo "fuzz: no targets were built" >&2
    exit 1
fi
if [[ $mode == gate ]]; then
    echo "fuzz: ${#targets[@]} target(s) passed the gate (corpus and fixed runs from seed $gate_seed)"
else
    echo "fuzz: ${#targets[@]} target(s) ran ${seconds}s each without failure"
fi
