# Shared by the scripts: the place of the project, the installation of packages.

set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# The interpreter to build for and test with, at every configuration.
export PYTHON="${PYTHON:-/usr/bin/python3}"

say() { printf '%s\n' "$*"; }

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "Installing packages needs root or sudo. Packages needed: ${wanted_packages[*]}"
    fi
}

# install_packages PACKAGE...: installs those that are missing, with apt; on other systems says
# what is needed and goes on, for the tools may be there under other names.
install_packages() {
    wanted_packages=("$@")
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        say "This system has no apt; needed are the counterparts of these Debian packages: $*"
        return
    fi
    local missing=() package
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    as_root apt-get update -qq || say "Some package lists could not be refreshed; going on with those at hand."
    as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

build_packages=(g++ cmake ninja-build python3 python3-dev libsqlite3-dev)
test_packages=(libgtest-dev libgmock-dev)

# build PRESET: configures and builds into build/PRESET.
build() {
    cmake --preset "$1" -S "$project" "${@:2}" >/dev/null
    cmake --build "$project/build/$1"
}
