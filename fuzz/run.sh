#!/usr/bin/env bash
# Builds every libFuzzer target (clang, AddressSanitizer, UndefinedBehaviorSanitizer) and runs each
# for the given number of seconds on its seed corpus, one process after another. Fails when a
# target finds a crash, a hang, a sanitizer report or a broken property, or when a kept finding
# (fuzz/regressions/<target>/) fails again.
#   fuzz/run.sh [SECONDS] [BUILD_DIR]        defaults: 60, build-fuzz (git-ignored)
#   FUZZ_TARGETS="fuzz_xmlfiler fuzz_settings" fuzz/run.sh 600     only some targets
# New inputs go to BUILD_DIR/fuzz/found/<target>, findings to BUILD_DIR/fuzz/artifacts/<target>;
# the kept corpus is only read. Merge what adds coverage back by hand:
#   BUILD_DIR/fuzz/<target> -merge=1 fuzz/corpus/<name> BUILD_DIR/fuzz/found/<target>
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-60}
build_dir=${2:-build-fuzz}

bash scripts/dependencies.sh --with-fuzzing
clangxx=$(command -v clang++-14 || command -v clang++)

cmake -S . -B "$build_dir" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER="$clangxx" \
    -DVMWF_FUZZ=ON -DVMWF_BUILD_TESTS=OFF -DVMWF_BUILD_BENCH=OFF > /dev/null
cmake --build "$build_dir" --parallel "$(nproc)" --target vmwf_fuzzers

all_targets=(fuzz_xmlfiler fuzz_workflowfile fuzz_commonshape fuzz_settings fuzz_catalogueindex fuzz_xlfcatalog fuzz_productcatalog
    fuzz_manifest fuzz_registrysegment fuzz_hubframe fuzz_productexpression fuzz_proxytexts)
read -r -a targets <<< "${FUZZ_TARGETS:-${all_targets[*]}}"

# A whole registry segment is 32,768 bytes; everything else is a small text file.
max_len() {
    case "$1" in
        fuzz_registrysegment) echo 32768 ;;
        fuzz_productexpression|fuzz_proxytexts) echo 4096 ;;
        *) echo 65536 ;;
    esac
}

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export QT_QPA_PLATFORM=offscreen

status=0
summary=()
for target in "${targets[@]}"; do
    binary="$build_dir/fuzz/$target"
    corpus="fuzz/corpus/${target#fuzz_}"
    found="$build_dir/fuzz/found/$target"
    artifacts="$build_dir/fuzz/artifacts/$target"
    log="$build_dir/fuzz/$target.log"
    mkdir -p "$found" "$artifacts" "$corpus"

    # Every kept finding first: each must pass now.
    if [ -d "fuzz/regressions/$target" ] && [ -n "$(ls -A "fuzz/regressions/$target")" ]; then
        if ! "$binary" -runs=1 "fuzz/regressions/$target"/* > "$log.regressions" 2>&1; then
            echo "$target: a kept finding fails again; see $log.regressions" >&2
            status=1
        fi
    fi

    echo "== $target: $seconds s =="
    result=0
    "$binary" -max_total_time="$seconds" -max_len="$(max_len "$target")" -timeout=10 -rss_limit_mb=2560 \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$found" "$corpus" > "$log" 2>&1 || result=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
    cover=$(grep -o 'cov: [0-9]*' "$log" | tail -1 || true)
    if [ "$result" -ne 0 ]; then
        tail -40 "$log" >&2
        echo "$target: FAILED (exit $result); the input is in $artifacts" >&2
        summary+=("$target: FAILED after ${execs:-?} executions")
        status=1
    else
        summary+=("$target: ${execs:-?} executions in $seconds s, ${cover:-cov: ?}, no finding")
    fi
done

echo "== fuzz summary =="
printf '%s\n' "${summary[@]}"
exit $status
