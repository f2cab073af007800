# shellcheck shell=bash
# Functions for small Debian systems in folders under build/roots/, which are made once and kept between
# runs. Source this file after common.sh. Only root can make these systems and run something in them.

# need_root_rights WHAT: ends the command if these systems cannot be made here.
need_root_rights() {
    [[ $(id -u) == 0 ]] && unshare --mount --pid --fork true 2>/dev/null && return
    echo "$1 needs root rights and mounts of its own, so it cannot run here." >&2
    exit 1
}

# sources_of SUITE: prints a sources.list for this release, with the archives that this machine uses.
sources_of() {
    # apt replaces these variables, not the shell.
    # shellcheck disable=SC2016
    apt-get indextargets --format '$(LABEL) $(REPO_URI)' 'Created-By: Packages' 'Component: main' |
        awk -v suite="$1" '
            $1 == "Debian" && !main { main = $2 }
            $1 == "Debian-Security" && !security { security = $2 }
            END {
                if (!main) exit 1
                print "deb", main, suite, "main"
                print "deb", main, suite "-updates", "main"
                if (security) print "deb", security, suite "-security", "main"
            }'
}

# emulate ARCHITECTURE: lets this machine run programs of another architecture.
emulate() {
    local handler
    [[ $1 != "$(dpkg --print-architecture)" ]] || return 0
    install_packages emulation
    handler=qemu-$(dpkg-architecture -a "$1" -q DEB_HOST_GNU_CPU 2>/dev/null)
    mountpoint -q /proc/sys/fs/binfmt_misc ||
        mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
    # The package itself does this only if something like systemd runs.
    [[ -e /proc/sys/fs/binfmt_misc/$handler ]] ||
        cat "/usr/lib/binfmt.d/$handler.conf" >/proc/sys/fs/binfmt_misc/register
}

# make_root NAME SUITE ARCHITECTURE PACKAGE...: makes build/roots/NAME with these packages and a user
# "guest", unless it exists.
make_root() {
    local name=$1 suite=$2 architecture=$3 root sources
    root=$PWD/build/roots/$name
    shift 3
    [[ ! -e $root ]] || return 0
    emulate "$architecture"
    install_packages roots
    # apt knows an archive's name only once it has fetched its lists.
    sources=$(sources_of "$suite") || { apt-get update -q && sources=$(sources_of "$suite"); } || { echo "This machine's apt knows no Debian archive." >&2; return 1; }
    echo "Making $root"
    mkdir -p build/roots
    rm -rf "$root.part"
    debootstrap --variant=minbase --arch="$architecture" "$suite" "$root.part" \
        "$(awk 'NR == 1 { print $2 }' <<<"$sources")" >"$root.log" 2>&1 || { tail "$root.log" >&2; return 1; }
    echo "$sources" >"$root.part/etc/apt/sources.list"
    apt-config dump | grep -i -e '^Acquire::.*proxy' -e '^Acquire::Check-' \
        >"$root.part/etc/apt/apt.conf.d/00machine" || true
    in_root "$name.part" sh -ec '
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -q
        apt-get upgrade -y -q
        apt-get install -y -q --no-install-recommends "$@"
        apt-get clean
        useradd --create-home guest' sh "$@" >>"$root.log" 2>&1 || { tail "$root.log" >&2; return 1; }
    mv "$root.part" "$root"
}

# in_root NAME COMMAND...: runs a command as root in that system, with this tree at /kestrel. Its mounts
# and processes end with it.
in_root() {
    # shellcheck disable=SC2016
    unshare --mount --pid --fork --kill-child bash -euc '
        root=$1
        shift
        # Without a mount of its own at its root, a command in it could not do the same again.
        mount --bind "$root" "$root"
        mount -t proc proc "$root/proc"
        mount --rbind /dev "$root/dev"
        mkdir -p "$root/kestrel"
        mount --bind "$PWD" "$root/kestrel"
        exec chroot "$root" env -i --chdir=/kestrel PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"
        ' bash "$PWD/build/roots/$1" "${@:2}"
}
