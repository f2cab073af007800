# shellcheck shell=bash
# Shared by the commands in this folder; to be sourced from the top of the tree.

# as_root COMMAND...: runs a command as the administrator.
as_root() {
    local sudo=()
    [[ $(id -u) == 0 ]] || sudo=(sudo)
    "${sudo[@]}" "$@"
}

# Installs the packages that are missing, if any; the only step that needs the network and root.
install_packages() {
    local missing=() package
    while read -r package; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done < <(grep -v -e '^#' -e '^$' scripts/packages)
    ((${#missing[@]})) || return 0

    echo "Installing ${missing[*]}"
    as_root apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# build PRESET [CMAKE-OPTION]...: configures and builds in build/PRESET.
build() {
    cmake --preset "$@"
    cmake --build --preset "$1" --parallel "$(nproc)"
}
