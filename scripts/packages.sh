# The Debian packages that the commands need, and their installation.

readonly build_packages=(
    g++ cmake ninja-build ccache
    libspdlog-dev libfmt-dev libtiff-dev libpng-dev libhdf5-dev libarchive-dev zlib1g-dev libcli11-dev nlohmann-json3-dev
    libgtest-dev libgmock-dev libbenchmark-dev hdf5-tools python3
)
readonly clang_packages=(clang-14 libclang-rt-14-dev)
readonly count_packages=(valgrind)
readonly check_packages=(
    "${clang_packages[@]}" "${count_packages[@]}" clang-format-14 clang-tidy-14 shellcheck doxygen groff-base zsh
)
readonly package_packages=(dpkg-dev debhelper lintian pkg-config)
readonly lock_patience=300  # seconds

is_installed() {
    [[ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# as_root <command>...: through sudo unless this is root already.
as_root() {
    if ((EUID == 0)); then "$@"; else sudo "$@"; fi
}

apt_get() {
    as_root env LC_ALL=C DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout="$lock_patience" "$@"
}

# `apt-get update` waits for no lock: it is repeated while another process holds that of the package lists.
update_package_lists() {
    local output deadline=$((SECONDS + lock_patience))
    until output=$(apt_get update -q 2>&1); do
        if [[ $output != *'Could not get lock'* ]] || ((SECONDS >= deadline)); then
            printf '%s\n' "$output" >&2
            return 1
        fi
        sleep 2
    done
    printf '%s\n' "$output"
}

# install_packages <package>...: those that are missing.
install_packages() {
    local package missing=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then return 0; fi
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        fail "these packages are missing, and there is no sudo: ${missing[*]}"
    fi
    printf 'installing %s\n' "${missing[*]}"
    logged 'apt-get update' update_package_lists
    logged 'apt-get install' apt_get install -q -y --no-install-recommends "${missing[@]}"
}
