#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the end-to-end launch test under valgrind's memcheck: the test process, which launches
# through the library, and every host it starts, which loads the sample plug-in and runs the
# workflow. Fails on any memory error or definite leak in any of them.
#   scripts/memcheck.sh [BUILD_DIR]        default: build (made by scripts/test.sh)
# Qt compiles regular expressions to machine code at run time; memcheck cannot follow that code
# and reports its deliberate reads past the end of a string, so the compiler is turned off here.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/dependencies.sh --with-memcheck

build_dir=${1:-build}
test_binary="$build_dir/tests/bin/tst_launchrun"
if [ ! -x "$test_binary" ]; then
    echo "No $test_binary: build the tests first (bash scripts/test.sh $build_dir)." >&2
    exit 1
fi

log_dir=$(mktemp -d)
trap 'rm -rf "$log_dir"' EXIT

status=0
# Children that fork and then exit without exec are copies of the test's heap, not programs of
# their own; memcheck follows every exec'd host.
QT_ENABLE_REGEXP_JIT=0 QT_QPA_PLATFORM=offscreen \
    valgrind --trace-children=yes --child-silent-after-fork=yes --vgdb=no \
    --leak-check=full --errors-for-leak-kinds=definite --error-exitcode=99 \
    --log-file="$log_dir/memcheck.%p.log" "$test_binary" || status=$?

processes=0
errors=0
for log in "$log_dir"/memcheck.*.log; do
    processes=$((processes + 1))
    command=$(sed -n 's/^==[0-9]*== Command: //p' "$log" | head -1)
    summary=$(sed -n 's/^==[0-9]*== ERROR SUMMARY: \([0-9]*\) errors.*/\1/p' "$log" | tail -1)
    if [ -z "$summary" ]; then
        # A host the test kills on purpose ends without a summary.
        echo "memcheck: ${command%% *}: ended without a summary (killed)"
        continue
    fi
    echo "memcheck: ${command%% *}: $summary errors"
    if [ "$summary" != "0" ]; then
        errors=$((errors + summary))
        cat "$log" >&2
    fi
done

if [ "$processes" -lt 2 ]; then
    echo "memcheck: expected the test and at least one host, saw $processes process(es)." >&2
    exit 1
fi
if [ "$status" -ne 0 ] || [ "$errors" -ne 0 ]; then
    echo "memcheck: FAILED (test exit $status, $errors errors in $processes processes)" >&2
    exit 1
fi
echo "memcheck: $processes processes, 0 errors, no definite leaks"
