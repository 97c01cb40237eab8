#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries the library the way a new user and a third party would, from a Release build of its own:
#   1. installs it under a temporary prefix and runs the installed tools with nothing set by hand;
#   2. builds tests/consumer (a program and a plug-in) against that prefix alone, once with CMake
#      and once with pkg-config, and runs a sample workflow and the outside plug-in through the
#      installed host;
#   3. generates the API reference with Doxygen, where any warning fails;
#   4. builds the Debian package, installs it (as root, with apt-get, which pulls its
#      dependencies), runs the installed tools and the consumer against it, and removes it again.
#
#   scripts/package-test.sh [BUILD_DIR]          default build-package
set -euo pipefail
cd "$(dirname "$0")/.."
source_dir=$PWD

bash scripts/dependencies.sh --with-packaging

build_dir=${1:-build-package}
work=$(mktemp -d)
installed_package=
cleanup()
{
    if [ -n "$installed_package" ]; then
        dpkg --purge "$installed_package" > /dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

step() { printf '\n== %s ==\n' "$*"; }
fail() { echo "package-test: $*" >&2; exit 1; }
passed=0
check() { passed=$((passed + 1)); echo "ok: $*"; }

sample_run=Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}
consumer_run=Id_ConsumerCheck_{3c0e5b1a-7d2f-4e6a-9b8c-0d1e2f3a4b5c}

# A fresh user: per-user data, runtime folder, a temporary folder of its own (each run leaves the copy
# of the workflow it launched there, and $work goes at the end) and nothing of the hub's environment.
fresh_user()
{
    local home
    home=$(mktemp -d "$work/user.XXXXXX")
    mkdir -m 0700 "$home/runtime" "$home/tmp"
    unset VELMORA_APPLICATIONS_PATH XDG_CONFIG_DIRS XDG_DATA_DIRS KV7_LOG_FILE
    export XDG_DATA_HOME="$home/data" XDG_RUNTIME_DIR="$home/runtime" XDG_CONFIG_HOME="$home/config" \
        XDG_CACHE_HOME="$home/cache" TMPDIR="$home/tmp"
    export QT_QPA_PLATFORM=offscreen
}

# The installed tool on its own sample data: products known, some workflows runnable, one run
# carried out through the installed host and the sample plug-in.
check_installed_tool()
{
    local tool=$1 where=$2
    (
        fresh_user
        local out="$work/tool-$where.txt" result="$XDG_DATA_HOME/result.txt"
        "$tool" products alpha > "$out"
        grep -q "Alpha Studio .* installed" "$out" || { cat "$out"; fail "$where: the tool does not know the sample products"; }
        "$tool" list > "$out"
        grep -q "runs here" "$out" || { cat "$out"; fail "$where: no sample workflow can run"; }
        timeout 120 "$tool" run "$sample_run" --wait --set "ResultFile=$result" > "$out"
        grep -q "finished .* with status 0" "$out" || { cat "$out"; fail "$where: the run did not finish well"; }
        grep -q "^Exit 0" "$result" || fail "$where: the sample plug-in left no result"
        compgen -G "$TMPDIR/Temp_Quarterly export_{*}.workflow" > /dev/null \
            || fail "$where: the run left its copy of the workflow outside the user's temporary folder"
    )
    check "$where: the installed vmworkflow knows the products, lists runnable workflows and runs one"
}

# The consumer program: lists the given folders and runs one workflow through the host.
check_consumer()
{
    local consumer=$1 plugin=$2 sample_dir=$3 where=$4
    (
        fresh_user
        [ -n "${5:-}" ] && export XDG_DATA_DIRS="$5"
        local folder="$work/consumer-workflows-$where" out="$work/consumer-$where.txt"
        mkdir -p "$folder"
        sed "s|@PLUGIN@|$plugin|" tests/consumer/Consumer.workflow.in > "$folder/Consumer.workflow"
        timeout 120 "$consumer" "$sample_dir/workflows/templates;$sample_dir/workflows/user" "$sample_run" \
            "ResultFile=$folder/sample-result.txt" > "$out" || { cat "$out"; fail "$where: the sample run failed"; }
        grep -q "^Exit 0" "$folder/sample-result.txt" || fail "$where: the sample plug-in left no result"
        status=0
        timeout 120 "$consumer" "$folder" "$consumer_run" "ConsumerResultFile=$folder/result.txt" \
            ConsumerExitStatus=5 > "$out" || status=$?
        [ "$status" -eq 5 ] || { cat "$out"; fail "$where: the outside plug-in's run ended with $status, not 5"; }
        grep -q "^Host VmWorkflowHost$" "$folder/result.txt" || fail "$where: the outside plug-in did not run in the host"
        grep -q "^Id $consumer_run$" "$folder/result.txt" || fail "$where: the outside plug-in ran another workflow"
        compgen -G "$TMPDIR/Temp_Consumer check_{*}.workflow" > /dev/null \
            || fail "$where: the run left its copy of the workflow outside the user's temporary folder"
    )
    check "$where: the consumer lists the samples and runs a sample and an outside plug-in through the installed host"
}

step "Release build of what an installation holds ($build_dir)"
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DVMWF_WERROR=ON -DVMWF_BUILD_TESTS=OFF -DVMWF_BUILD_BENCH=OFF -DVMWF_SANITIZE=OFF \
    -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$source_dir/=" > "$work/configure.log" || { cat "$work/configure.log"; exit 1; }
cmake --build "$build_dir" --parallel "$(nproc)"

step "Installation under a temporary prefix"
prefix="$work/prefix"
cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"
for file in lib/libVmWorkflowCore.so lib/libOstrelAdapter.so bin/vmworkflow bin/VmWorkflowHost bin/vmworkflow-browser \
    bin/libVmWorkflowSamplePlugin.so include/VmWorkflowCore/WorkflowPlugin.h \
    include/VmWorkflowCore/VmWorkflowCoreVersion.h share/Velmora/Applications/VmWorkflowHost.xml \
    share/vmworkflow/products/Products.xml; do
    find "$prefix" -path "$prefix/${file%%/*}*/${file##*/}" | grep -q . || fail "the installation lacks $file"
done
if grep -rl --binary-files=text -F "$source_dir" "$prefix" > "$work/leaks.txt"; then
    cat "$work/leaks.txt"
    fail "installed files carry the path of the source tree"
fi
check "the installation holds the libraries, headers, tools, host, plug-in and sample data, and no source path"
check_installed_tool "$prefix/bin/vmworkflow" "prefix"

step "Consumer built with CMake against the prefix alone"
cmake -S tests/consumer -B "$work/consumer-cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" > "$work/consumer-configure.log" \
    || { cat "$work/consumer-configure.log"; exit 1; }
cmake --build "$work/consumer-cmake"
# The hub finds the installed host's manifest among the data folders; a prefix other than /usr is
# named there by the embedding environment.
check_consumer "$work/consumer-cmake/workflow-consumer" "$work/consumer-cmake/libConsumerPlugin.so" \
    "$prefix/share/vmworkflow" "cmake" "$prefix/share:/usr/share"

step "Consumer built with pkg-config against the prefix alone"
pc_dir=$(dirname "$(find "$prefix" -name VmWorkflowCore.pc)")
export PKG_CONFIG_PATH="$pc_dir"
pc_flags=$(pkg-config --cflags --libs VmWorkflowCore OstrelAdapter)
libdir=$(pkg-config --variable=libdir VmWorkflowCore)
sampledir=$(pkg-config --variable=sampledir VmWorkflowCore)
mkdir -p "$work/consumer-pc"
# shellcheck disable=SC2086
g++ -std=c++17 -O2 -fPIC -Wall -Wextra -Wpedantic -Werror tests/consumer/consumer.cpp -o "$work/consumer-pc/workflow-consumer" \
    $pc_flags "-Wl,-rpath,$libdir"
# shellcheck disable=SC2086
g++ -std=c++17 -O2 -fPIC -shared -Wall -Wextra -Wpedantic -Werror tests/consumer/ConsumerPlugin.cpp \
    -o "$work/consumer-pc/libConsumerPlugin.so" $(pkg-config --cflags --libs VmWorkflowCore)
unset PKG_CONFIG_PATH
check_consumer "$work/consumer-pc/workflow-consumer" "$work/consumer-pc/libConsumerPlugin.so" "$sampledir" \
    "pkg-config" "$prefix/share:/usr/share"

step "API reference (Doxygen, warnings fail)"
rm -rf "$build_dir/api"
VMWF_DOXYGEN_OUTPUT="$build_dir/api" VMWF_DOXYGEN_VERSION=$(sed -n 's/^project(VmWorkflowCore VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) \
    VMWF_DOXYGEN_GENERATED="$build_dir/include" doxygen docs/Doxyfile
[ -f "$build_dir/api/html/index.html" ] || fail "doxygen wrote no reference"
check "the API reference was generated without a warning"

step "Debian package"
rm -f "$build_dir"/*.deb
(cd "$build_dir" && cpack -G DEB > "$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; exit 1; }
deb=$(ls "$build_dir"/*.deb)
dpkg-deb --field "$deb" Package Version Depends
dpkg-deb --field "$deb" Depends | grep -q "libqt6core6" || fail "the package does not depend on Qt"
check "the package $(basename "$deb") was built with its library dependencies"

if [ "$(id -u)" -ne 0 ]; then
    echo "Not root: installing the package is left out."
else
    step "Installing the Debian package"
    package=$(dpkg-deb --field "$deb" Package)
    if dpkg-query -W -f='${Status}' "$package" 2> /dev/null | grep -q "install ok installed"; then
        fail "$package is installed already; remove it first"
    fi
    installed_package=$package
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$PWD/$deb" > "$work/apt.log" \
        || { cat "$work/apt.log"; exit 1; }
    check "$package installed with apt-get"
    check_installed_tool /usr/bin/vmworkflow "package"
    cmake -S tests/consumer -B "$work/consumer-package" -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Werror" > "$work/consumer-package.log" \
        || { cat "$work/consumer-package.log"; exit 1; }
    cmake --build "$work/consumer-package"
    check_consumer "$work/consumer-package/workflow-consumer" "$work/consumer-package/libConsumerPlugin.so" \
        /usr/share/vmworkflow "package"
fi

echo
echo "package-test: $passed passed, 0 failed"
