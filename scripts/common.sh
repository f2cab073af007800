# shellcheck shell=bash
# Functions for the commands in this folder. Source this file from the top of the tree.

# as_root COMMAND...: runs a command as the administrator.
as_root() {
    local sudo=()
    [[ $(id -u) == 0 ]] || sudo=(sudo)
    "${sudo[@]}" "$@"
}

# packages_of SECTION...: prints the packages of these sections of scripts/packages, one on each line.
packages_of() {
    awk -v wanted=" $* " \
        '/^\[/ { in_section = index(wanted, " " substr($0, 2, length - 2) " "); next }
         in_section && /^[^#]/' scripts/packages
}

# install_dependencies DEPENDENCY...: installs what is missing. Only then does it need the network and
# root rights.
install_dependencies() {
    [[ -n $(apt-get satisfy -qq --simulate --no-install-recommends "$@" 2>&1) ]] || return 0
    as_root apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get satisfy -y -q --no-install-recommends "$@"
}

# install_packages SECTION...: installs the packages of these sections that are missing.
install_packages() {
    local packages
    mapfile -t packages < <(packages_of "$@")
    install_dependencies "${packages[@]}"
}

# build PRESET [CMAKE-OPTION]...: configures and builds in build/PRESET.
build() {
    cmake --preset "$@"
    cmake --build --preset "$1" --parallel "$(nproc)"
}
