# What the other scripts share. `dev` sources all of them, in the root of the tree.

readonly logs=build/logs
jobs=$(nproc)
waiting_jobs=$((jobs + 2))  # of programs that wait for clocks more than they compute
readonly jobs waiting_jobs

fail() {
    printf 'FAILED: %s\n' "$*" >&2
    exit 1
}

# logged <name> <command>...: runs the command; its output goes to a log that is shown only if it fails.
logged() {
    local name=$1 log
    shift
    mkdir -p "$logs"
    log="$logs/${name//[^A-Za-z0-9]/-}.log"
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        fail "$name (the whole output is in $log)"
    fi
}

ok() { printf 'ok  %s\n' "$*"; }

# own_files <pattern>...: files of this checkout, committed or new, that match and exist.
own_files() {
    local listing file
    listing=$(git -c safe.directory="$PWD" ls-files --cached --others --exclude-standard -- "$@") || return 1
    while IFS= read -r file; do
        if [[ -f $file ]]; then printf '%s\n' "$file"; fi
    done <<<"$listing"
}
