#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for FUZZ_SECONDS (default 60), starting
# from its kept regression inputs. A crash leaves its input in build/fuzz/findings/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
seconds=${FUZZ_SECONDS:-60}
for program in build/fuzz/tests/fuzz/fuzz_*; do
  target=${program##*/fuzz_}
  corpus=build/fuzz/corpus/$target
  findings=build/fuzz/findings/$target
  mkdir -p "$corpus" "$findings"
  echo "== $target: $seconds s"
  dict=()
  [ -f "tests/fuzz/$target.dict" ] && dict=(-dict="tests/fuzz/$target.dict")
  "$program" -max_total_time="$seconds" -artifact_prefix="$findings/" -print_final_stats=1 \
      "${dict[@]}" "$corpus" "tests/fuzz/regressions/$target" 2>&1 | tail -n 12
done
