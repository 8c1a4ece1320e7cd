# What runs longer than a test: sweep, campaign and fuzzers.

# Some of its processes mostly wait, on the real clock, so there are more of them than processors.
sweep() {
    build release qrapi_sweep
    build/release/bin/qrapi_sweep --jobs "$((jobs + 4))" "$@"
}

soak() {
    local preset=release options=()
    while (($# > 1)); do
        case $1 in
            --preset) preset=$2 ;;
            *) options+=("$1" "$2") ;;
        esac
        shift 2
    done
    if [[ $preset == asan ]]; then install_packages "${clang_packages[@]}"; fi
    build "$preset" qrapi_soak
    without_address_spread "build/$preset/bin/qrapi_soak" "${options[@]}" "$@"
}

# fuzz_one <seconds> <name>: runs a fuzzer on its seeds; new inputs go to build/fuzz. Prints one line, and for a crash
# how to repeat it.
fuzz_one() {
    local seconds=$1 name=$2 program=build/asan/bin/fuzz_$2 found=build/fuzz/corpus/$2 log=$logs/fuzz-$2.log
    local options status=ok runs rate first last input
    options=(-max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1)
    options+=(-artifact_prefix="build/fuzz/crashes/$name-")
    if [[ -f tests/fuzz/$name.dict ]]; then options+=("-dict=tests/fuzz/$name.dict"); fi
    mkdir -p "$found" build/fuzz/crashes
    "$program" "${options[@]}" "$found" "tests/fuzz/corpus/$name" >"$log" 2>&1 || status=CRASH
    runs=$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+).*/\1/p' "$log")
    rate=$(sed -nE 's/^stat::average_exec_per_sec: *([0-9]+).*/\1/p' "$log")
    first=$(sed -nE 's/^#[0-9]+\s+INITED +cov: ([0-9]+).*/\1/p' "$log" | head -n 1)
    last=$(sed -nE 's/^#[0-9]+\s.* cov: ([0-9]+).*/\1/p' "$log" | tail -n 1)
    if [[ $status == ok ]] && ((${runs:-0} == 0)); then status='NO RUNS'; fi
    printf '%-14s %9d runs %7d runs/s %5d edges, %4d new  %s\n' "$name" "${runs:-0}" "${rate:-0}" "${last:-0}" \
        "$((${last:-0} - ${first:-${last:-0}}))" "$status"
    if [[ $status == ok ]]; then return 0; fi
    input=$(sed -nE 's/.*Test unit written to (.*)/\1/p' "$log" | tail -n 1)
    printf '    the whole output: %s\n' "$log"
    if [[ -n $input ]]; then printf '    again: %s %s\n' "$program" "$input"; fi
}

fuzz() {
    local seconds=$1 names=() file lines=$logs/fuzzers crashes
    build asan fuzzers
    for file in tests/fuzz/*.cpp; do
        file=${file##*/}
        names+=("${file%.cpp}")
    done
    printf '%s\n' "${names[@]}" |
        without_address_spread xargs -P 2 -I '{}' bash ./dev --step fuzz_one "$seconds" '{}' | tee "$lines"
    crashes=$(grep -c ' CRASH$' "$lines" || true)
    echo "${#names[@]} fuzzers, $crashes crashes"
    (($(grep -c ' ok$' "$lines" || true) == ${#names[@]}))
}
