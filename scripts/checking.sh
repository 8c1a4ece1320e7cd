# What a change has to pass: the steps of `./dev check`.

check_format() {
    own_files '*.cpp' '*.h' >"$logs/sources"
    [[ -s $logs/sources ]]
    xargs -a "$logs/sources" -d '\n' clang-format-14 --dry-run -Werror
}

# changed_files <pattern>...: those that differ from the newest commit that is 12 hours old; all if there is none.
changed_files() {
    local base
    base=$(git -c safe.directory="$PWD" rev-list -1 --before='12 hours ago' HEAD) || return 1
    if [[ -z $base ]]; then
        own_files "$@"
    else
        git -c safe.directory="$PWD" diff --name-only --diff-filter=d "$base" -- "$@"
    fi
}

# tidy <listing command>: clang-tidy on the listed files, except tests and what the clang build does not compile.
tidy() {
    sed -nE "s|^ *\"file\": \"$PWD/(.*)\",?\$|\1|p" build/asan/compile_commands.json | sort -u >"$logs/compiled"
    [[ -s $logs/compiled ]]
    "$1" '*.cpp' ':!tests' | sort -u | comm -12 - "$logs/compiled" >"$logs/tidied"
    xargs -a "$logs/tidied" -d '\n' -r -n 1 -P "$jobs" clang-tidy-14 -p build/asan --quiet
}

# Every bash script, and through `dev` what it sources; and the examples that the Python modules document.
check_scripts() {
    local file first scripts=()
    own_files >"$logs/files"
    while IFS= read -r file; do
        IFS= read -r first <"$file" || true
        if [[ $first == '#!'*bash ]]; then scripts+=("$file"); fi
    done <"$logs/files"
    ((${#scripts[@]} > 0))
    shellcheck --external-sources --check-sourced "${scripts[@]}"
    python3 -B -m doctest scripts/*.py
}

# In a shell of its own: `set -e` has no effect in a function that an `if` calls.
step() {
    local name=$1 begin=$SECONDS
    shift
    logged "$name" bash ./dev --step "$@"
    ok "$name ($((SECONDS - begin)) s)"
}

check() {
    mkdir -p "$logs"
    step 'format' check_format
    step 'shell scripts' check_scripts
    step 'documentation' check_documentation
    step 'clang with thread safety analysis; tests under address and undefined behaviour sanitizers' \
        without_address_spread bash ./dev --step sanitized_tests asan
    step 'clang-tidy on what changed' tidy changed_files
    step 'tests under the thread sanitizer' without_address_spread bash ./dev --step sanitized_tests tsan
    step 'counts of instructions' counts
    step 'symbols' symbols
    step 'installed tree and its consumers' consumer
    step 'packages' package
    step 'sample of the sweep' sweep --sample 1 --pairs 5 --quiet
    step 'fuzzers, 20 s each' fuzz 20
    step 'campaign of one minute' soak --minutes 1 --seed 5
    echo 'check passed'
}
