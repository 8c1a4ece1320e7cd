# The tests of the release build, those under the sanitizers, and mutants of the sources.

# summary_number <ctest log> 1|2: how many tests failed, or how many there are.
summary_number() {
    sed -nE "s/.* ([0-9]+) tests failed out of ([0-9]+).*/\\$2/p" "$1" | tail -n 1
}

run_tests() {
    local log=$logs/ctest-release.log status=0 failed total
    build release
    ctest --preset release -j "$waiting_jobs" --no-tests=error 2>&1 | tee "$log" || status=$?
    failed=$(summary_number "$log" 1)
    total=$(summary_number "$log" 2)
    if [[ -z $failed || -z $total ]] || ((total == 0)); then
        echo 'No test was found or ctest did not finish: that counts as a failure.' >&2
        failed=1 total=1
    elif ((status != 0 && failed == 0)); then
        echo "ctest ended with status $status: that counts as a failure." >&2
        failed=1
    fi
    echo "$((total - failed)) passed, $failed failed"
    ((failed == 0))
}

# The build runs the test programs as well, to ask for their cases.
sanitized_tests() {
    local preset=$1
    cmake --preset "$preset"
    cmake --build --preset "$preset" -j "$jobs"
    ctest --preset "$preset" -j "$jobs" --no-tests=error
}

# The mutants are made in a copy of the files. Signals go to the program that restores it.
mutants() {
    mkdir -p "$logs"
    own_files >"$logs/copied"
    exec scripts/mutants.py "$logs/copied" build/mutants "$@"
}
