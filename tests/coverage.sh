#!/usr/bin/env bash
# Runs the tests of a coverage build and reports which lines of platform/ and VelaSwitchTable/ they
# run. Fails when it is less than nine in ten of either. The lines that no test runs are listed in
# uncovered.txt in the build's folder. Of a template, every instance counts.
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "$0")/.."

rm -rf "$build/profiles"
# What the tests run does not depend on how often they do.
export VELA_KILLS=1 VELA_SCHEDULES=60
export LLVM_PROFILE_FILE="$build/profiles/%p-%m.profraw" GTEST_TOTAL_SHARDS=$(nproc)
shards=()
for tests in table_tests agent_tests tool_tests; do
    for ((shard = 0; shard < GTEST_TOTAL_SHARDS; ++shard)); do
        GTEST_SHARD_INDEX=$shard "$build/tests/$tests" --gtest_brief=1 \
            --gtest_filter='-Profiles/Audit*48*:Safety.*:Tool.linesHaveTheirShape' &
        shards+=($!)
    done
    for shard in "${shards[@]}"; do wait "$shard"; done
    shards=()
done
llvm-profdata merge -sparse "$build"/profiles/*.profraw -o "$build/tests.profdata"

objects=("$build/libVelaSwitchTable.so" -object "$build/libVelaPlatform.so"
         -object "$build/tests/table_tests" -object "$build/tests/agent_tests" -object "$build/velatable")
llvm-cov report "${objects[@]}" -instr-profile "$build/tests.profdata" platform VelaSwitchTable \
    2> "$build/llvm-cov.log" | awk '
    NF == 13 && $1 != "Filename" { printf "%-60s %5d lines %5d not run %8s\n", $1, $8, $9, $10 }'
llvm-cov show "${objects[@]}" -instr-profile "$build/tests.profdata" platform VelaSwitchTable 2>> "$build/llvm-cov.log" |
    grep -E '^/|^ +[0-9]+\| +0\|' > "$build/uncovered.txt" || true

for part in platform VelaSwitchTable; do
    covered=$(llvm-cov report "${objects[@]}" -instr-profile "$build/tests.profdata" "$part" 2>> "$build/llvm-cov.log" |
              awk '$1 == "TOTAL" { sub("%", "", $10); print $10 }')
    echo "$part: $covered % of the lines"
    awk -v covered="$covered" 'BEGIN { exit covered < 90 }'
done
