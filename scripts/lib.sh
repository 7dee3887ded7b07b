# Functions shared by ./run, ./test and the helper scripts. Sourced, not run.
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck disable=SC2034
bin_dir=$root/build/release/bin

# Progress goes to standard error; standard output belongs to the programs.
say() { printf '\033[1m==> %s\033[0m\n' "$*" >&2; }
note() { printf '    %s\n' "$*" >&2; }
fail() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

listed_packages() {
    cat "$@" | sed -e 's/#.*//' -e 's/[[:space:]]//g' -e '/^$/d'
}

# missing_packages LIST...: prints the listed packages that are not installed.
missing_packages() {
    local package
    local -A installed=()
    while read -r package; do
        installed[$package]=1
    done < <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' 2>/dev/null |
        sed -n 's/^installed //p')
    while read -r package; do
        [[ -n ${installed[$package]:-} ]] || printf '%s\n' "$package"
    done < <(listed_packages "$@")
    command -v node >/dev/null || printf 'nodejs\n'
    command -v npm >/dev/null || printf 'npm\n'
}

as_root() {
    if [[ $(id -u) -eq 0 ]]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "installing packages needs root; run as root, or install sudo"
    fi
}

# install_packages [LIST...]: installs the packages of packages.txt and of the given lists.
install_packages() {
    local missing
    command -v dpkg-query >/dev/null || fail "this needs Debian 12 or a system derived from it"
    mapfile -t missing < <(missing_packages "$root/scripts/packages.txt" "$@")
    if [[ ${#missing[@]} -eq 0 ]]; then
        say "All packages are there"
        return
    fi
    say "Installing ${#missing[@]} missing packages"
    note "${missing[*]}"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get update -qq </dev/null >&2
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
        "${missing[@]}" </dev/null >&2
}

# Prints the installed packages among those listed, with their versions.
installed_packages() {
    local listed
    mapfile -t listed < <(listed_packages "$root"/scripts/packages*.txt)
    dpkg-query -W -f='${db:Status-Status} ${Package} ${Version}\n' "${listed[@]}" nodejs npm \
        2>/dev/null | sed -n 's/^installed //p' || true
    command -v node npm || true
}

# build [TARGET...]: configures the release preset and builds the targets (all by default).
#
# CMake caches failed look-ups of tools and libraries, so the build is configured from scratch when
# a listed package was installed, removed or updated.
build() {
    local targets=() stamp=$root/build/release/packages.stamp packages
    [[ $# -eq 0 ]] || targets=(--target "$@")
    packages=$(installed_packages)
    if [[ ! -f $root/build/release/build.ninja || ! -f $stamp || $(<"$stamp") != "$packages" ]]; then
        say "Configuring build/release"
        rm -f "$stamp"
        (cd "$root" && cmake --preset release --fresh) >&2
        printf '%s\n' "$packages" >"$stamp"
    fi
    say "Building ${*:-everything}"
    (cd "$root" && cmake --build --preset release "${targets[@]}") >&2
}
