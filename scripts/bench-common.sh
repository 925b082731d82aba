# Sourced by scripts/bench.sh and scripts/bench-smoke.sh: the peer packages, the Release build of
# every benchmark, and one benchmark run whose JSON and console output land in a results directory.

# Every bench/bench_*.cpp is one binary of the same name.
bench_binaries() {
  local src
  for src in bench/bench_*.cpp; do
    basename "$src" .cpp
  done
}

# Installs what is missing: Google Benchmark, the peer libraries, gnuplot for the chart and the
# distribution's own python3 for the report (a python3 earlier on PATH may lack nothing we use, but
# the report is run with /usr/bin/python3 so that it never depends on one).
bench_install_peers() {
  bash scripts/deps.sh libbenchmark-dev libuv1-dev libspdlog-dev libgoogle-glog-dev libcjson-dev \
    rapidjson-dev nlohmann-json3-dev libjansson-dev libdivsufsort-dev zlib1g-dev libboost-dev \
    libjemalloc-dev libssl-dev gnuplot-nox python3
}

# Configures the Release tree $1 and builds every benchmark in it, at most two jobs at a time.
bench_build() {
  local tree=$1 jobs
  jobs=$(nproc 2>/dev/null || echo 2)
  [ "$jobs" -le 2 ] || jobs=2
  cmake -S . -B "$tree" -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_BENCH=ON -DKRV_BUILD_TESTS=OFF \
    -DKRV_BUILD_EXAMPLES=OFF
  # shellcheck disable=SC2046
  cmake --build "$tree" -j "$jobs" --target $(bench_binaries)
}

# bench_run TREE OUTDIR NAME [ENV=VALUE...] BINARY [ARGS...]: runs BINARY from TREE with ARGS, its
# JSON report in OUTDIR/NAME.json, its console output in OUTDIR/NAME.log (also shown), and the load
# average before it appended to OUTDIR/load.txt.
bench_run() {
  local tree=$1 out=$2 name=$3
  shift 3
  local envs=()
  while [[ $1 == *=* ]]; do
    envs+=("$1")
    shift
  done
  local binary=$1
  shift
  echo "$name $(cut -d' ' -f1-3 /proc/loadavg)" >>"$out/load.txt"
  echo "== $name"
  env "${envs[@]}" "$tree/bench/$binary" --benchmark_out="$out/$name.json" --benchmark_out_format=json "$@" 2>&1 |
    tee "$out/$name.log"
}
