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

# Stops the benchmark unless $work has MIB MiB free: need_space MIB
need_space() {
  local avail
  avail=$(df -m --output=avail "$work" | tail -1)
  if ((avail < $1)); then
    echo "needs $1 MiB free in $work; $avail MiB are"
    exit 1
  fi
}

# Stream, times, size and hash of every packet of a movie: the side data is
# left out, since a spherical box gives the first video packet some.
packets() { ffmpeg -nostdin -v quiet -i "$1" -map 0 -c copy -f framemd5 - | grep -v '^#' | cut -d, -f1-6 | md5sum; }

# The median or the fastest of one contender's runs in a compare.py result:
#   run_time RESULT.json LABEL median|fastest
run_time() {
  python3 -c 'import json, sys; r = json.load(open(sys.argv[1]))[sys.argv[2]]; print(r["seconds"] if sys.argv[3] == "median" else min(r["times"]))' "$@"
}

# Every run's seconds, in order: the spread says how far to trust a median.
spread() {
  python3 -c 'import json, sys
for label, r in json.load(open(sys.argv[1])).items():
    print(f"{label:>24}: runs " + " ".join(f"{t:.3f}" for t in r["times"]))' "$1"
}
