# What ./run and ./check share: installing what is missing, building a preset.
# Everything here reports on standard error, so that the output of a program
# that is run stays clean.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

headline() { printf '\n==> %s\n' "$*" >&2; }

die() {
    printf '%s\n' "$*" >&2
    exit 1
}

# need PACKAGE=PROOF...: sees to it that the Debian packages are there. PROOF is
# a command or, with its full path, a file of the package; looking for it takes no time, asking the
# package manager would.
need() {
    local pair missing=() as_root=()
    for pair in "$@"; do
        case ${pair#*=} in
            /*) [[ -e ${pair#*=} ]] ;;
            *) command -v "${pair#*=}" >/dev/null ;;
        esac || missing+=("${pair%%=*}")
    done
    ((${#missing[@]} == 0)) && return

    ((EUID == 0)) || as_root=(sudo -n)
    if ! command -v apt-get >/dev/null || ! "${as_root[@]}" true 2>/dev/null; then
        die "Missing packages: ${missing[*]}. Installing them takes apt-get and root." \
            "As root: apt-get install ${missing[*]}"
    fi
    headline "installing ${missing[*]}"
    # An update that fails for one source may still do for these packages.
    "${as_root[@]}" apt-get -qq update </dev/null >&2 ||
        printf 'The package lists could not all be updated; going on.\n' >&2
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install --yes --no-install-recommends "${missing[@]}" </dev/null >&2 ||
        die "Could not install: ${missing[*]}"
}

# build PRESET: configures when that was never done or the presets have changed
# (Ninja itself sees every other change), and builds.
build() (
    cd "$root"
    command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    if [[ ! build/$1/build.ninja -nt CMakePresets.json ]]; then
        cmake --preset "$1" >&2
    fi
    cmake --build --preset "$1" >&2
)
