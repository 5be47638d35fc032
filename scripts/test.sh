#!/usr/bin/env bash
# The whole check: build and test the default and sanitizer builds (unit and
# integration tests, vxctl against the examples), build and briefly run the
# benchmarks, and run every fuzz target. Stops at the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."

FUZZ_RUNS=${FUZZ_RUNS:-50000}

# A fresh machine gets its packages first; this is a no-op once they are there.
scripts/install-deps.sh

echo "== default build and tests"
cmake --preset default
cmake --build --preset default
ctest --preset default

echo "== benchmarks"
for b in build/default/bench/bm_*; do
    [ -x "$b" ] && "$b" --benchmark_min_time=0.2
done

echo "== fuzz targets (${FUZZ_RUNS} inputs each)"
cmake --preset fuzz
cmake --build --preset fuzz
for t in build/fuzz/tests/fuzz/fuzz_*; do
    [ -x "$t" ] || continue
    corpus="build/fuzz/corpus/$(basename "$t")"
    mkdir -p "$corpus"
    extra=()
    # A target may bring a dictionary of its format's words.
    dict="tests/fuzz/$(basename "$t").dict"
    [ -f "$dict" ] && extra+=(-dict="$dict")
    # The keyset text target starts from the shipped presets (its first byte
    # chooses text).
    if [ "$(basename "$t")" = fuzz_keyset_text ]; then
        for p in presets/*.toml; do
            { printf '#'; cat "$p"; } >"$corpus/preset-$(basename "$p" .toml)"
        done
    fi
    log="build/fuzz/$(basename "$t").log"
    # The finding's own report is what a reader needs, so on failure show the
    # end of the log rather than libFuzzer's last lines.
    if ! "$t" -runs="$FUZZ_RUNS" -close_fd_mask=1 -max_len=4096 -print_final_stats=0 "${extra[@]}" "$corpus" >"$log" 2>&1; then
        grep -v '^INFO\|^#' "$log" | tail -n 60
        echo "$(basename "$t"): finding (full log in $log)"
        exit 1
    fi
    echo "$(basename "$t"): ${FUZZ_RUNS} inputs, no finding"
done

echo "== sanitizer build (ASan + UBSan) and tests"
cmake --preset asan
cmake --build --preset asan
ctest --preset asan
