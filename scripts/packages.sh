# Sourced by the other scripts: the Debian packages that the project needs, and their installation.
# Contacts no mirror if everything is installed.
# shellcheck shell=bash disable=SC2034

packages_build=(g++ cmake ninja-build pkgconf libdb5.3-dev libsodium-dev
    libarchive-dev libcli11-dev nlohmann-json3-dev libgtest-dev python3-dev pybind11-dev)
# The peers of the benchmarks.
packages_bench=(python3 libbenchmark-dev libsqlite3-dev liblmdb-dev libgdbm-dev libcdb-dev libisal-dev
    libxxhash-dev zlib1g-dev libabsl-dev libboost-dev python3-lmdb python3-gdbm)
packages_check=(clang-format clang-tidy mypy abigail-tools strace valgrind python3-distributed
    python3-fsspec python3-zarr fish)
packages_pip=(python3-pip python3-venv python3-setuptools python3-wheel)
# Clang for the fuzz targets: its run-time library has the fuzzer and the sanitizers.
packages_fuzz=(clang libclang-rt-dev)
packages_coverage=(gcovr)
# The site, and the lint of the man pages, which tests skip where this is not.
packages_docs=(doxygen mandoc libjs-lunr)
# Looks at the site.
packages_browser=(chromium)
# amd64's libdb5.3-dev has the header for both.
packages_i386=(g++-multilib libdb5.3:i386 libsodium-dev:i386 libgtest-dev:i386)
packages_i386_tools=(libarchive-dev:i386)
packages_debian=(dpkg-dev lintian debootstrap)
# Runs 32-bit programs where the kernel does not, and those of other processors. The compilers for
# those and g++-multilib cannot be installed together: each removes the other, and scripts/test
# reinstalls what it needs.
packages_emulator=(qemu-user)
packages_arm64=(g++-12-aarch64-linux-gnu libstdc++6:arm64 libdb5.3:arm64 libsodium-dev:arm64
    libgtest-dev:arm64)
packages_s390x=(g++-12-s390x-linux-gnu libstdc++6:s390x libdb5.3:s390x libsodium-dev:s390x
    libgtest-dev:s390x)

# packages_missing NAME...: those that are not installed, one a line.
packages_missing() {
    local name native installed
    native=$(dpkg --print-architecture)
    installed=$(dpkg-query -W -f '${Package}:${Architecture} ${db:Status-Status}\n' |
        sed -n 's/ installed$//p')
    for name in "$@"; do
        case $name in
            *:*) grep -qxF -e "$name" <<<"$installed" ;;
            *) grep -qxF -e "$name:$native" -e "$name:all" <<<"$installed" ;;
        esac || echo "$name"
    done
}

packages_as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo "$@"
    fi
}

packages_apt() {
    packages_as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Acquire::Retries=2 \
        -o Acquire::http::Timeout=20 -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@"
}

# packages_install NAME...: installs what is missing, and tries again where a mirror has a bad
# moment. PACKAGES_ATTEMPTS (3) bounds that.
packages_install() {
    local -a missing
    local attempt
    if ! command -v dpkg-query >/dev/null; then
        echo "This is no Debian system: these packages, or what has their role here, are needed: $*" >&2
        return 0
    fi
    mapfile -t missing < <(packages_missing "$@")
    if ((${#missing[@]} == 0)); then
        return 0
    fi
    if ((EUID != 0)) && ! command -v sudo >/dev/null; then
        echo "Missing packages; as root, run: apt-get install ${missing[*]}" >&2
        return 1
    fi
    echo "Installing ${missing[*]}"
    for ((attempt = 1; attempt <= ${PACKAGES_ATTEMPTS:-3}; ++attempt)); do
        ((attempt == 1)) || sleep $((5 * attempt))
        # An update that fails in part may still know all that is needed.
        packages_apt update || true
        if packages_apt install --no-install-recommends -y "${missing[@]}"; then
            return 0
        fi
    done
    echo "Could not install ${missing[*]}" >&2
    return 1
}

# packages_install_foreign ARCHITECTURE PACKAGE...: installs what builds programs for another machine
# alongside the native ones. A mirror may not have it, so there is one attempt, and on failure the
# system's list of architectures is restored.
packages_install_foreign() {
    local architecture=$1 added=0
    shift
    if [[ $(dpkg --print-architecture 2>/dev/null) != amd64 ]]; then
        echo "not an amd64 Debian system" >&2
        return 1
    fi
    if [[ -z $(packages_missing "$@") ]]; then
        return 0
    fi
    if ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
        packages_as_root dpkg --add-architecture "$architecture" || return 1
        added=1
    fi
    PACKAGES_ATTEMPTS=1 packages_install "$@" && return 0
    if ((added)); then
        packages_as_root dpkg --remove-architecture "$architecture"
        packages_apt update || true
    fi
    return 1
}
