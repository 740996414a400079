# Sourced by the benchmarks.

# The build the benchmarks use: ./build unless TAVREL_BENCH_BUILD names
# another build folder.
build=${TAVREL_BENCH_BUILD:-build}

# Installs what is missing, configures the ordinary build and builds the
# given targets; then makes the work folder $work, removed on exit.
prepare_bench() {
  bash tools/setup.sh
  cmake -S . -B "$build" -G Ninja >/dev/null
  cmake --build "$build" --target "$@" >/dev/null
  work=$(mktemp -d "${TMPDIR:-/tmp}/tavrel-bench-XXXXXX")
  trap 'rm -rf "$work"' EXIT
}

# big_movie OUT MIB [SIZE] writes a movie of MIB
# MiB by looping (stream copy) a four-second lossless clip with AAC audio,
# so no gigabyte is ever encoded. The mp4 muxer writes the movie box last.
big_movie() {
  local out=$1 mib=$2 size=${3:-1440x720}
  local clip
  clip=$(mktemp "${TMPDIR:-/tmp}/tavrel-clip-XXXXXX.mp4")
  ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=$size:rate=30" -f lavfi \
    -i sine=frequency=440:sample_rate=48000 -t 4 -pix_fmt yuv420p -c:v libx264 \
    -preset ultrafast -qp 0 -c:a aac "$clip"
  ffmpeg -nostdin -v error -y -stream_loop -1 -i "$clip" -map 0 -c copy \
    -fs $((mib * 1024 * 1024)) "$out"
  rm -f "$clip"
}
