# Directory trees of Debian releases, for scripts that source this. They are made on the spot from
# the mirror that this machine uses, and kept as archives, so that each use begins with a clean tree.
# Needs root. Callers set `root`, the folder of the checkout.
# shellcheck shell=bash
: "${root:?}"

# Clients can crash older versions of the OPC UA library: take it from Debian's next release.
next_release=forky

trees=$root/build/packaging/trees
mkdir -p -- "$trees" "$root/build/packages"
chown --reference="$root" -- "$root/build" "$root/build/packages"

say() {
    printf '\n== %s\n' "$*"
}

fail() {
    printf 'talvensor: %s\n' "$*" >&2
    exit 1
}

# code_name NUMBER
code_name() {
    case $1 in
    12) echo bookworm ;;
    13) echo trixie ;;
    *) fail "Debian $1: packages are made for 12 and 13" ;;
    esac
}

# The runtime packages of the next release that go with ours, see companions_of.
opcua_runtime=(libopen62541-1.4)
mbedtls_runtime=(libmbedcrypto16 libmbedx509-7)
opcua_development=(libopen62541-1.4-dev libopen62541-1.4-tools)
mbedtls_development=(libmbedtls-dev libmbedtls21)

# companions_of RELEASE: what RELEASE lacks, or has only in versions with known holes.
companions_of() {
    echo "${opcua_runtime[@]}"
    [[ $1 != bookworm ]] || echo "${mbedtls_runtime[@]}"
}

# Settings of apt on this machine that are needed to reach its mirror and to accept what it has.
apt_settings() {
    apt-config dump Acquire::http
    apt-config dump Acquire::https
    apt-config dump Acquire::Retries
    apt-config dump Acquire::Check-Date
    apt-config dump Acquire::Check-Valid-Until
}

# sources RELEASE: lines for apt.
sources() {
    local mirror security key=signed-by=/usr/share/keyrings/debian-archive-keyring.gpg
    mirror=$("$root/setup/mirror" Debian)
    security=$("$root/setup/mirror" Debian-Security)
    echo "deb [$key] $mirror $1 main"
    echo "deb [$key] $mirror $1-updates main"
    echo "deb [$key] $security $1-security main"
}

next_sources() {
    echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg]" \
        "$("$root/setup/mirror" Debian) $next_release main"
}

# preferences RELEASE ARCHITECTURE: nothing of the next release but the OPC UA library. The packages
# are listed by name: src: covers the machine's own architecture alone.
preferences() {
    local packages=("${opcua_runtime[@]}" "${opcua_development[@]}") package
    [[ $1 != bookworm ]] || packages+=("${mbedtls_runtime[@]}" "${mbedtls_development[@]}")
    printf 'Package: *\nPin: release n=%s\nPin-Priority: -1\n' "$next_release"
    for package in "${packages[@]}"; do
        printf '\nPackage: %s %s:%s\nPin: release n=%s\nPin-Priority: 990\n' \
            "$package" "$package" "$2" "$next_release"
    done
}

# tree NAME RELEASE RECIPE OPTION...: prints the archive of a tree that mmdebstrap makes with these
# options. It is made if it is not there, or was made by another RECIPE, or more than a week ago:
# it has the security fixes of its day.
tree() {
    local archive=$trees/$1.tar release=$2 recipe=$3
    shift 3
    recipe+=$'\n'$(sources "$release")
    if [[ -z $(find "$archive" -mtime -7 2>/dev/null) || $(<"$archive.recipe") != "$recipe" ]]; then
        say "make the tree $(basename -- "$archive" .tar)" >&2
        rm -f -- "$archive.recipe"
        sources "$release" >"$archive.list"
        mmdebstrap --quiet --dpkgopt=force-unsafe-io --aptopt="$(apt_settings)" \
            --hook-dir=/usr/share/mmdebstrap/hooks/maybe-merged-usr \
            "$@" "$release" "${archive%.tar}.new.tar" "$archive.list" >"$archive.log" 2>&1 || {
            cat -- "$archive.log" >&2
            return 1
        }
        mv -- "${archive%.tar}.new.tar" "$archive"
        printf '%s\n' "$recipe" >"$archive.recipe"
    fi
    echo "$archive"
}

# build_tree RELEASE ARCHITECTURE: prints the archive of a tree with all that is needed to build
# packages for ARCHITECTURE and to check them; it has the companions in /companions.
build_tree() {
    local release=$1 architecture=$2 native folder=$trees/$1-$2 for_target=() companion wanted=()
    native=$(dpkg --print-architecture)
    local tools=(apt build-essential ca-certificates blhc ccache devscripts lintian python3)
    if [[ $architecture != "$native" ]]; then
        tools+=("crossbuild-essential-$architecture")
        for_target=(--host-architecture "$architecture" --build-profiles "cross,nocheck")
    fi
    for companion in $(companions_of "$release"); do wanted+=("$companion:$architecture"); done
    mkdir -p -- "$folder/debian"
    cp -- "$root/debian/control" "$root/debian/changelog" "$folder/debian/"
    next_sources >"$folder/next.list"
    preferences "$release" "$architecture" >"$folder/next.pref"
    tree "$release-$architecture" "$release" \
        "${tools[*]}"$'\n'"$(cat "$folder"/next.* && sed '/^$/q' "$root/debian/control")" \
        --variant=apt --architectures="$(printf '%s\n' "$native" "$architecture" | uniq | paste -sd,)" \
        --include="$(IFS=, && echo "${tools[*]}")" \
        --customize-hook="copy-in '$folder/next.list' /etc/apt/sources.list.d" \
        --customize-hook="copy-in '$folder/next.pref' /etc/apt/preferences.d" \
        --customize-hook="copy-in '$folder/debian' /tmp" \
        --customize-hook="chroot \"\$1\" sh -ec 'apt-get -q update && cd /tmp && \
            apt-get -q --yes --no-install-recommends ${for_target[*]} build-dep ./ && rm -r debian'" \
        --customize-hook="chroot \"\$1\" sh -ec 'mkdir /companions && cd /companions && \
            apt-get -q -o APT::Sandbox::User=root download ${wanted[*]}'"
}

# test_tree RELEASE: prints the archive of a tree as a small machine has it, with systemd.
test_tree() {
    local included=apt,ca-certificates,dbus,man-db,passwd,systemd,systemd-sysv
    tree "$1-machine" "$1" "$included" --variant=apt --include="$included"
}

# enter TREE COMMAND...: runs a command in a tree. Mounts and processes end with it. It has a network
# if WITH_NETWORK is set, else only loopback; BIND=SOURCE:TARGET makes one more folder available.
enter() {
    local tree=$1 network=(--net)
    [[ -z ${WITH_NETWORK-} ]] || network=()
    shift
    # shellcheck disable=SC2016 # for the inner shell
    BIND=${BIND-} WITH_NETWORK=${WITH_NETWORK-} unshare --mount --pid --ipc "${network[@]}" --fork --kill-child bash -c '
        set -eu
        tree=$1
        shift
        [[ -n $WITH_NETWORK ]] || ip link set lo up
        mount -t proc proc "$tree/proc"
        mount --rbind /dev "$tree/dev"
        if [[ -n $BIND ]]; then
            mkdir -p "$tree${BIND#*:}"
            mount --bind "${BIND%%:*}" "$tree${BIND#*:}"
        fi
        exec chroot "$tree" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 "$@"
    ' enter "$tree" "$@"
}
