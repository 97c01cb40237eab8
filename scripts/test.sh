#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
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
    -DVMWF_BUILD_TESTS=ON \
    -DVMWF_SANITIZE="$sanitize"
cmake --build "$build_dir" --parallel "$(nproc)"
ctest --test-dir "$build_dir" --output-on-failure --no-tests=error --parallel "$(nproc)" --timeout 300

# Root reads and writes every file, so the tests of unreadable files and read-only folders can only
# prove something as an ordinary user: when run as root, run the suite once more as one.
if [ "$(id -u)" = "0" ] && command -v runuser > /dev/null; then
    test_user=vmwf-test
    id "$test_user" > /dev/null 2>&1 || useradd --system --no-create-home --shell /usr/sbin/nologin "$test_user"
    chown -R "$test_user" "$build_dir"
    if ! runuser -u "$test_user" -- test -r "$build_dir/CTestTestfile.cmake"; then
        chown -R "$(id -u):$(id -g)" "$build_dir"
        echo "The folders above $build_dir are closed to other users; the unprivileged pass is left out." >&2
        exit 0
    fi
    status=0
    runuser -u "$test_user" -- env -u XDG_RUNTIME_DIR HOME=/nonexistent \
        ctest --test-dir "$build_dir" --output-on-failure --no-tests=error --parallel "$(nproc)" --timeout 300 || status=$?
    chown -R "$(id -u):$(id -g)" "$build_dir"
    exit $status
fi
