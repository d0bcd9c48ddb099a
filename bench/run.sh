#!/usr/bin/env bash
# Builds the benchmarks and runs all of them. Meant for a quiet machine: the load that is printed
# first should be near 0.
set -u

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd) || exit 1
. "$root/.ci/packages.sh"

build=$root/build/bench
env_file=$build/memory.ini  # the six streams of demo/board6.ini, recorded in memory

machine() {
    echo "cores     $(nproc)"
    echo "CPU       $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)"
    echo "kernel    $(uname -r)"
    echo "compiler  $(g++ --version | head -n 1)"
    echo "load      $(cut -d ' ' -f 1 /proc/loadavg)"
}

section() {
    printf '\n== %s\n' "$1"
    shift
    "$@" || fail "$1 failed"
}

need_for_building
need "[ -e /usr/include/benchmark/benchmark.h ]" libbenchmark-dev "measures the reports"
need "command -v busybox" busybox "the shell that the start is compared with"
need "command -v dash" dash "the shell that the round trip is compared with"
need "command -v ffmpeg" ffmpeg "what the encoders are compared with"
need "command -v gst-launch-1.0" gstreamer1.0-tools "what the JPEG encoder is compared with"
need "[ -e /usr/lib/x86_64-linux-gnu/gstreamer-1.0/libgstjpeg.so ]" gstreamer1.0-plugins-good "has the JPEG encoder"
need "[ -e /usr/include/sqlite3.h ]" libsqlite3-dev "what the disk database is compared with"
need "[ -e /usr/include/lmdb.h ]" liblmdb-dev "what the disk database is compared with"
need "[ -e /usr/include/rocksdb/db.h ]" librocksdb-dev "what the disk database is compared with"
install_missing

cmake -S "$root" --preset bench -B "$build" >/dev/null &&
    cmake --build "$build" >/dev/null || fail "the build failed; see: cmake --build $build"

cd "$build" || exit 1
sed 's/^\([a-z]*_database_type\) *=.*/\1 = 2/' "$root/demo/board6.ini" >"$env_file" || fail "cannot write $env_file"
machine
section "reports" bench/reports_bench
section "start" bench/start_bench ./qm7105 "$env_file"
section "round trip" bench/roundtrip_bench ./qm7105 "$env_file"
section "full load, real time" bench/full_load_bench "$env_file" --seconds 60
section "full load, stepped clock" bench/full_load_bench "$env_file" --seconds 60 --stepped
section "video" bench/video_bench ./qmtool
section "full load on disk, real time" bench/full_load_bench "$root/demo/board6.ini" --seconds 60
rm -rf board6
section "disk database" bench/db_bench --repetitions 3
