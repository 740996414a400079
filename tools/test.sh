#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: the ordinary build
# (unit, integration and fuzz-corpus tests), the unit tests again under
# AddressSanitizer and UndefinedBehaviorSanitizer, and the Debian package made
# from the ordinary build, installed and run.
set -euo pipefail
cd "$(dirname "$0")/.."

bash tools/setup.sh

jobs=$(nproc 2>/dev/null || echo 2)

cmake -S . -B build -G Ninja -DTAVREL_WERROR=ON
cmake --build build -j"$jobs"

# The core must build and pass its tests without FFmpeg.
cmake -S . -B build-core -G Ninja -DTAVREL_WERROR=ON -DTAVREL_WITH_VIDEO=OFF
cmake --build build-core -j"$jobs"

# Only what the unit tests run is built under the sanitizers (the test
# programs and the fuzz-corpus replays), with line tables for the reports.
cmake -S . -B build-asan -G Ninja -DTAVREL_WERROR=ON -DTAVREL_SANITIZE=ON \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g1"
mapfile -t unit_targets < <(cmake --build build-asan --target help |
  sed -n 's/^\(test_[a-z0-9_]*\|[a-z0-9_]*_fuzz_replay\): .*/\1/p' | grep -vx test_integration)
cmake --build build-asan -j"$jobs" --target "${unit_targets[@]}"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
echo "== sanitizer build: unit tests =="
ctest --test-dir build-asan --output-on-failure -j"$jobs" -LE integration -E _NOT_BUILT
echo "== core build without FFmpeg: unit tests =="
ctest --test-dir build-core --output-on-failure -j"$jobs" -LE integration
echo "== ordinary build: every test =="
ctest --test-dir build --output-on-failure -j"$jobs"
echo "== the Debian package: built, checked by lintian, installed, run, purged =="
bash tools/package_test.sh build
