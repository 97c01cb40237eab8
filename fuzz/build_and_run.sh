#!/usr/bin/env bash
# Builds the required-products expression fuzzer with clang's libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs it on the kept corpus.
#   fuzz/build_and_run.sh [SECONDS] [OUTPUT_DIR]     (defaults: 600 seconds, build-fuzz)
# Needs clang, libclang-rt-14-dev and qt6-base-dev: scripts/dependencies.sh --with-fuzzing.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
out=${2:-build-fuzz}
mkdir -p "$out"
clangxx=$(command -v clang++-14 || command -v clang++)

# Qt is built for position-independent executables; libFuzzer supplies main().
"$clangxx" -std=c++17 -g -O1 -fPIC -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -I src $(pkg-config --cflags Qt6Core) \
    fuzz/fuzz_productexpression.cpp src/manager/ProductExpression.cpp src/util/FileUtil.cpp \
    src/platform/Platform_unix.cpp \
    $(pkg-config --libs Qt6Core) -o "$out/fuzz_productexpression"

mkdir -p "$out/new-corpus"
"$out/fuzz_productexpression" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
    -print_final_stats=1 "$out/new-corpus" fuzz/corpus/productexpression
# Keep the corpus small: merge what the run found into the kept corpus, inputs that add coverage only.
"$out/fuzz_productexpression" -merge=1 fuzz/corpus/productexpression "$out/new-corpus"
