#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs one of them.
#   tools/fuzz.sh TARGET SECONDS [extra libFuzzer flags]
# New inputs go to fuzz/findings/TARGET (not committed); crashes are written
# there too. Copy interesting ones into fuzz/corpus/TARGET.
set -euo pipefail
cd "$(dirname "$0")/.."
target=${1:?target, e.g. box_tree_fuzz}
seconds=${2:-60}
shift 2 || true

# Targets named video_* need the video pipeline; they get their own build.
video=OFF build=build-fuzz
if [[ $target == video_* ]]; then video=ON build=build-fuzz-video; fi

bash tools/setup.sh
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DTAVREL_FUZZ=ON -DTAVREL_TESTS=OFF \
  -DTAVREL_WITH_VIDEO="$video" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target "$target"

mkdir -p "fuzz/findings/$target"
exec ./"$build"/fuzz/"$target" -max_total_time="$seconds" -print_final_stats=1 \
  -artifact_prefix="fuzz/findings/$target/" "$@" "fuzz/findings/$target" "fuzz/corpus/$target"
