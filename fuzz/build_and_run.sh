#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the required-products expression fuzzer (libFuzzer, AddressSanitizer, UndefinedBehavior-
# Sanitizer) and runs it on the kept corpus in one process, then merges what added coverage back.
#   fuzz/build_and_run.sh [SECONDS] [OUTPUT_DIR]      defaults: 600, build-fuzz (git-ignored)
# Needs clang++-14 (or clang++), libclang-rt-14-dev and the Qt 6 Core development files.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
out=${2:-build-fuzz}
corpus=fuzz/corpus/productexpression
mkdir -p "$out/found" "$out/artifacts"
clangxx=$(command -v clang++-14 || command -v clang++)

# Qt is built position independent, so its users must be too; libFuzzer supplies main().
"$clangxx" -std=c++17 -g -O1 -fPIC -fno-omit-frame-pointer \
    -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -I src $(pkg-config --cflags Qt6Core) \
    fuzz/fuzz_productexpression.cpp src/manager/ProductExpression.cpp \
    $(pkg-config --libs Qt6Core) -o "$out/fuzz_productexpression"

# New inputs go to $out/found; the kept corpus is only read.
"$out/fuzz_productexpression" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$out/artifacts/" "$out/found" "$corpus"

# Keep the corpus small: only inputs that add coverage to what it already holds join it.
"$out/fuzz_productexpression" -merge=1 -max_len=4096 "$corpus" "$out/found"
