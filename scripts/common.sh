# Shared by the scripts: paths of the project and its builds, the necessary tools and their
# installation, and the build.
#
# BUILD_DIR is the directory for the builds if the checkout is read-only.

set -euo pipefail
project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
builds=$(realpath -m "${BUILD_DIR:-$project/build}")

# packages KEY: prints the strings of a list in pyproject.toml, one per line. Python may be missing.
packages() {
    awk -v start="$1 = [" 'index($0, start) == 1 { on = 1 } on { print } /\]/ { on = 0 }' \
        "$project/pyproject.toml" | grep -o '"[^"]*"' | tr -d '"'
}
mapfile -t build_packages < <(packages build-packages)
mapfile -t test_packages < <(packages test-packages)

# The interpreter to build for and test with, at every configuration.
export PYTHON="${PYTHON:-/usr/bin/python3}"

say() { printf '%s\n' "$*"; }

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# ---- Tools and packages ------------------------------------------------------------------------

is_installed() { [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }

has_apt() { command -v apt-get >/dev/null && command -v dpkg-query >/dev/null; }

# Prints the address of the Debian archive that this system uses.
debian_archive() { apt-get indextargets --format '$(REPO_URI)' | grep -m 1 '/debian/$'; }

# version_of TOOL COMMAND: prints the version of the installed tool, or of the package that would be
# installed; nothing if both are unknown.
version_of() {
    if command -v "$2" >/dev/null; then
        "$2" --version | sed -nE '1s/.* ([0-9]+(\.[0-9]+)+).*/\1/p'
    elif has_apt; then
        apt-cache policy "$1" 2>/dev/null | sed -nE 's/^ *Candidate: ([0-9]+:)?([0-9.]+).*/\2/p'
    fi
}

# check_version TOOL COMMAND MINIMUM: fails if the installed or installable version is older.
check_version() {
    local version
    version=$(version_of "$1" "$2")
    [ -z "$version" ] || [ "$(printf '%s\n' "$3" "$version" | sort -V | head -n 1)" = "$3" ] ||
        fail "$2 $version is too old: $3 or later is needed (Debian 12, Ubuntu 24.04 and later have it)."
}

# apt_install PACKAGE...: installs packages; prints the output of apt only if it fails.
apt_install() {
    local output
    output=$(DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" 2>&1) ||
        fail "$output"
}

# install_packages PACKAGE...: installs missing packages with apt. On other systems it only checks that
# the tools exist, as their packages have other names. Fails before any change if a tool is too old.
install_packages() {
    local missing=() package
    check_version g++ "${CXX:-g++}" 12
    check_version cmake cmake 3.25
    if ! has_apt; then
        for package in "${CXX:-g++}" cmake ninja python3; do
            command -v "$package" >/dev/null || missing+=("$package")
        done
        [ ${#missing[@]} -eq 0 ] || fail "Missing tools: ${missing[*]}.
Install the equivalents of these Debian packages: $*"
        return
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    [ "$(id -u)" -eq 0 ] || fail "Packages are missing. Install them with:
sudo apt-get install ${missing[*]}"
    say "Installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq || say "Some package lists could not be refreshed; continuing with the old ones."
    apt_install "${missing[@]}"
    check_version g++ "${CXX:-g++}" 12
    check_version cmake cmake 3.25
}

# install_browser: installs Chromium, Node.js and npm if they are missing. A failure is only reported: tests in
# the browser are skipped without them, and a build without npm makes static reports.
install_browser() {
    local missing=() program package
    for program in chromium:chromium node:nodejs npm:npm; do
        package=${program#*:}
        command -v "${program%:*}" >/dev/null || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if has_apt && [ "$(id -u)" -eq 0 ]; then
        say "Installing ${missing[*]}"
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" \
            >/dev/null 2>&1 && return 0
    fi
    say "Not installed: ${missing[*]}. Tests in the browser are skipped."
}

# ---- The build ---------------------------------------------------------------------------------

# show_progress: prints the progress of a build on one line; without a terminal only the last step.
show_progress() {
    local line steps=
    while IFS= read -r line; do
        case $line in
            \[*/*\]*)
                steps=${line%%\]*}
                steps=${steps#\[}
                [ ! -t 1 ] || printf '\rBuilding: %s ' "$steps"
                ;;
        esac
    done
    if [ -n "$steps" ]; then
        if [ -t 1 ]; then printf '\n'; else say "Built in ${steps#*/} steps."; fi
    fi
}

# build PRESET OPTION...: configures and builds in the directory PRESET of the builds.
build() {
    local folder=$builds/$1
    mkdir -p "$folder"
    (cd "$project" && cmake --preset "$1" -B "$folder" "${@:2}") >"$folder/build.log" 2>&1 || {
        cat "$folder/build.log" >&2
        fail "The build could not be set up; the log is $folder/build.log."
    }
    NINJA_STATUS='[%f/%t] ' cmake --build "$folder" 2>&1 | tee "$folder/build.log" | show_progress || {
        grep -v '^\[' "$folder/build.log" >&2 || true
        fail "The build failed; the log is $folder/build.log."
    }
}
