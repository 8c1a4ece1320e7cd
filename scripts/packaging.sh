# What users get: exported symbols, the installed tree, Debian packages.

symbols() {
    build release "${installed_targets[@]}"
    packaging/symbols/check "$@" build/release/lib
}

# The tree is moved after its installation, since no file in it may depend on where it was.
consumer() {
    build release "${installed_targets[@]}"
    rm -rf build/consumer
    cmake --install build/release --prefix build/consumer/as-installed
    mv build/consumer/as-installed build/consumer/moved
    build/consumer/moved/bin/qrapi --version
    tests/consumer/check build/consumer/moved build/consumer/work
}

# The packages are unpacked into a folder instead of the system, so the loader needs its path.
package() {
    local name root=build/package/root libraries
    own_files >"$logs/packaged"
    packaging/build "$logs/packaged" build/package build/packages
    mkdir -p "$root"
    for name in build/packages/*.deb; do dpkg-deb --extract "$name" "$root"; done
    libraries=$PWD/$(dirname "$(find "$root" -name libqrapi.so)")
    LD_LIBRARY_PATH=$libraries "$root/usr/bin/qrapi" --version
    LD_LIBRARY_PATH=$libraries tests/consumer/check "$root/usr" build/package/work --programs-only
    printf 'the packages are\n%s\n' "$(ls build/packages/*.deb)"
}
