# shellcheck shell=bash
# Debian systems in folders of their own, for whatever needs another Debian than the machine's or an untouched one. To be
# sourced, by scripts that set -euo pipefail; `purpose` names them in messages.
#
# A system is created once and kept. Mounts and processes of what runs in one are in name spaces of their own, and end
# with it.

say() { printf '%s\n' "$*"; }
die() { printf '%s: %s\n' "${purpose:-debian}" "$*" >&2; exit 1; }

# Runs a command; its output is shown only if it fails, which ends the script.
quietly() {
    local log
    log=$(mktemp)
    if "$@" >"$log" 2>&1; then
        rm -f "$log"
        return 0
    fi
    cat "$log" >&2
    rm -f "$log"
    die "failed: $*"
}

# Packages that lists name, one a line.
wanted_packages() { sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$@"; }

# Mirror from which this machine's own apt takes Debian's main archive.
debian_mirror() {
    local codename
    codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
    # shellcheck disable=SC2016 # apt's own variables
    apt-get indextargets --format '$(SITE) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 2>/dev/null |
        awk -v codename="$codename" '$2 == codename && $3 == "main" { print $1; exit }'
}

# debian_create <root> <suite>: the smallest system, unless it is there. Sets `created` to the mirror if it wasn't.
# One that was left in the middle of an installation is replaced.
debian_create() {
    local root=$1 suite=$2 from
    created=
    if [ -e "$root/corvane-base" ] && [ ! -e "$root/corvane-installing" ]; then
        return 0
    fi
    from=$(debian_mirror)
    [ -n "$from" ] || die "this machine's apt sources name no Debian archive to take Debian's $suite from"
    say "making a Debian ($suite) in $root"
    if ! command -v debootstrap >/dev/null; then
        quietly env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 apt-get install -y --no-install-recommends debootstrap
    fi
    rm -rf "$root"
    mkdir -p "$root"
    quietly debootstrap --variant=minbase "$suite" "$root" "$from"
    # A crash costs nothing but time.
    printf 'force-unsafe-io\n' >"$root/etc/dpkg/dpkg.cfg.d/corvane"
    # Proxy of the machine, if it has one.
    apt-config dump 2>/dev/null | grep -iE '^Acquire::(http|https)::Proxy' >"$root/etc/apt/apt.conf.d/corvane-proxy" ||
        rm "$root/etc/apt/apt.conf.d/corvane-proxy"
    # shellcheck disable=SC2034 # for the caller
    created=$from
    touch "$root/corvane-base"
}

# debian_install <root> <stamp> <run> <list>...: the packages of the lists, once for every state of the lists. <run> is
# the command that runs another one in the system.
debian_install() {
    local root=$1 stamp=$1/corvane-packages-$2 run=$3 state
    shift 3
    state=$(wanted_packages "$@" | sha256sum)
    [ "$(cat "$stamp" 2>/dev/null || true)" != "$state" ] || return 0
    say "installing packages into it"
    quietly "$run" apt-get update
    touch "$root/corvane-installing"
    # shellcheck disable=SC2046 # one word per package
    quietly "$run" env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
        apt-get install -y --no-install-recommends $(wanted_packages "$@")
    rm "$root/corvane-installing"
    quietly "$run" apt-get clean
    printf '%s\n' "$state" >"$stamp"
}

# debian_enter [--layer <folder>] [--beside] <root> <folder> <what:where>... -- <VARIABLE=value>... <command>...: runs a command
# there, in that folder of it, with folders of the machine mounted where they are wanted. With a layer the system stays
# as it is: what is changed goes to upper/ of that folder. With --beside the command runs on the machine itself, and finds
# the system in CORVANE_ROOT.
debian_enter() {
    local layer=
    if [ "$1" = --layer ]; then
        layer=$2
        shift 2
        mkdir -p "$layer/upper" "$layer/work" "$layer/merged"
    fi
    local beside=
    if [ "$1" = --beside ]; then
        beside=yes
        shift
    fi
    cp /etc/resolv.conf /etc/hosts "$1/etc/"
    # shellcheck disable=SC2016 # expanded by the inner shell
    unshare --mount --pid --fork --kill-child bash -euc '
        layer=$1 beside=$2 root=$3 folder=$4
        shift 4
        if [ -n "$layer" ]; then
            mount -t overlay overlay -o "lowerdir=$root,upperdir=$layer/upper,workdir=$layer/work" "$layer/merged"
            root=$layer/merged
        fi
        mount -t proc proc "$root/proc"
        mount --rbind /sys "$root/sys"
        mount --rbind /dev "$root/dev"
        mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
        while [ "$1" != -- ]; do
            mkdir -p "$root/${1#*:}"
            mount --bind "${1%%:*}" "$root/${1#*:}"
            shift
        done
        shift
        if [ -n "$beside" ]; then
            mount -t proc proc /proc # of the name space of processes that the command is in
            exec env CORVANE_ROOT="$root" "$@"
        fi
        exec env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
            TERM="${TERM:-dumb}" chroot "$root" bash -euc '\''cd "$1"; shift; exec env "$@"'\'' bash "$folder" "$@"
    ' bash "$layer" "$beside" "$@"
}
