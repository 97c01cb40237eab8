#!/usr/bin/env bash
# Builds the project and runs every test.
#   scripts/test.sh [BUILD_DIR]        plain build, warnings are errors
#   VMWF_SANITIZE=ON scripts/test.sh build-asan
#                                      the same under Address-, UndefinedBehavior- and LeakSanitizer
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/dependencies.sh

build_dir=${1:-build}
sanitize=${VMWF_SANITIZE:-OFF}
build_type=RelWithDebInfo
[ "$sanitize" = "ON" ] && build_type=Debug

cmake -S . -B "$build_dir" -G Ninja \
    -DCMAKE_BUILD_TYPE="$build_type" \
    -DVMWF_WERROR=ON \
    -DVMWF_SANITIZE="$sanitize"
cmake --build "$build_dir" --parallel "$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure --parallel "$(nproc)" --timeout 300
