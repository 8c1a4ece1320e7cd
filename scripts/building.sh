# Building a preset, and the demo.

readonly installed_targets=(detector/all tools/all)  # what `cmake --install` needs: libraries, tool and its texts

# build <preset> [target]...
build() {
    local preset=$1
    shift
    printf 'building %s ...\n' "$preset" >&2
    logged "configure $preset" cmake --preset "$preset"
    logged "build $preset" cmake --build --preset "$preset" -j "$jobs" ${1:+--target "$@"}
}

# The sanitizers of these compilers can't run where the kernel spreads addresses too widely.
without_address_spread() {
    if setarch "$(uname -m)" -R true 2>/dev/null; then
        setarch "$(uname -m)" -R "$@"
    else
        "$@"
    fi
}

demo() {
    local picture=$PWD/build/demo.tif
    build release qrapi_command
    build/release/bin/qrapi snap --picture phantom --exposure 100 --output "$picture"
    echo 'A simulated detector was opened, exposed for 100 ms, and its frame written as a 16-bit TIFF:'
    echo "$picture"
}
