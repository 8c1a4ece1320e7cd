# What the library costs: times and counts of instructions.

# bench [expression]: all figures, or those whose names match.
bench() {
    build release qrapi_bench
    build/release/bin/qrapi_bench --benchmark_out=build/bench.json --benchmark_out_format=json \
        --benchmark_filter="${1:-.}"
    echo "the whole report: $PWD/build/bench.json"
}

counts() {
    build release qrapi_counts
    benchmarks/count build/release/bin/qrapi_counts benchmarks/counts.txt "$@"
}
