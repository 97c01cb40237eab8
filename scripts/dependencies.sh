#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what the project needs on Debian 12 when run as root; otherwise says what to run.
set -euo pipefail

PACKAGES=(cmake ninja-build g++ qt6-base-dev qt6-base-dev-tools qt6-l10n-tools)
if [ "${1:-}" = "--with-packaging" ]; then
    # scripts/package-test.sh: the API reference, pkg-config, the Debian package and its check.
    PACKAGES+=(doxygen pkg-config dpkg-dev file)
fi
if [ "${1:-}" = "--with-fuzzing" ]; then
    PACKAGES+=(clang libclang-rt-14-dev)
fi
if [ "${1:-}" = "--with-format" ]; then
    PACKAGES+=(clang-format git)
fi
if [ "${1:-}" = "--with-memcheck" ]; then
    PACKAGES+=(valgrind)
fi

missing=()
for package in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

if [ "$(id -u)" -eq 0 ]; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update
    apt-get install -y --no-install-recommends "${missing[@]}"
else
    echo "Missing packages. Install them with:" >&2
    echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
    exit 1
fi
