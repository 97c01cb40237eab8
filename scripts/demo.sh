#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The end-to-end demo on the bundled sample data: builds the tools and shows what the library
# finds, in two languages.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/dependencies.sh

build_dir=${1:-build}
# The same settings as the test command, so that either may run first in one build folder: the demo
# builds only what it runs, the tests build the rest.
cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVMWF_WERROR=ON -DVMWF_SANITIZE=OFF
cmake --build "$build_dir" --parallel "$(nproc)" --target vmworkflow VmWorkflowHost VmWorkflowSamplePlugin

tool="$build_dir/bin/vmworkflow"
# Per-user folders of the demo stay inside the build folder.
export XDG_DATA_HOME="$PWD/$build_dir/demo-home"
export XDG_CACHE_HOME="$PWD/$build_dir/demo-home/cache"
result_file="$PWD/$build_dir/demo-home/QuarterlyExport-result.txt"
mkdir -p "$XDG_DATA_HOME"
rm -f "$result_file"

step() { printf '\n$ vmworkflow %s\n' "$*"; "$tool" "$@"; }

step list
step list --filter "IsExecutable=true"
step products "alpha,beta:2017,gamma,delta:2015"
step list --sort "IsTemplate:0,Name:0"
step list --filter "IsTemplate=false"
step --locale de-DE show Id_MonthlyReportTemplate
step --locale fr-FR list --sort Name
step show "Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}" --json
step new-name "My monthly report"

# Run one workflow for real: the library starts the host application VmWorkflowHost, the host
# runs the sample plug-in, and this process follows the run from its beginning to its end.
step run "Id_QuarterlyExport_{0a9b8c7d-6e5f-4a3b-9c2d-1e0f9a8b7c6d}" --wait --set "ResultFile=$result_file"
printf '\n$ cat %s   # what the sample plug-in did\n' "${result_file#"$PWD"/}"
cat "$result_file"
step running
