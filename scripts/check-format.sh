#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fails when a C++ file of the tree differs from what clang-format makes of it with the checked-in
# .clang-format; names the files. Reformat them with: clang-format -i FILE...
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/dependencies.sh --with-format
formatter=$(command -v clang-format-14 || command -v clang-format)

mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ ${#files[@]} -eq 0 ]; then
    echo "No C++ files found; run this in a clone of the repository." >&2
    exit 1
fi
unformatted=()
for file in "${files[@]}"; do
    if ! "$formatter" --dry-run --Werror "$file" > /dev/null 2>&1; then
        unformatted+=("$file")
    fi
done
if [ ${#unformatted[@]} -ne 0 ]; then
    echo "Not formatted as .clang-format says (${#unformatted[@]} files):" >&2
    printf '  %s\n' "${unformatted[@]}" >&2
    exit 1
fi
echo "All ${#files[@]} C++ files are formatted as .clang-format says."
