# shellcheck shell=bash
# Shared by the commands in this folder; to be sourced from the top of the tree.

# as_root COMMAND...: runs a command as the administrator.
as_root() {
    local sudo=()
    [[ $(id -u) == 0 ]] || sudo=(sudo)
    "${sudo[@]}" "$@"
}

# install_packages SECTION...: installs what is missing of these sections of scripts/packages; the
# only step that needs the network and root.
install_packages() {
    local packages
    mapfile -t packages < <(awk -v wanted=" $* " \
        '/^\[/ { in_section = index(wanted, " " substr($0, 2, length - 2) " "); next }
         in_section && /^[^#]/' scripts/packages)
    if apt-get satisfy -qq --simulate --no-install-recommends "${packages[@]}" 2>&1 | grep -q .; then
        as_root apt-get update -q
        as_root env DEBIAN_FRONTEND=noninteractive \
            apt-get satisfy -y -q --no-install-recommends "${packages[@]}"
    fi
}

# build PRESET [CMAKE-OPTION]...: configures and builds in build/PRESET.
build() {
    cmake --preset "$@"
    cmake --build --preset "$1" --parallel "$(nproc)"
}
