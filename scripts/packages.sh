# Installs the Debian packages that a job needs. Sourced by the scripts beside it.
#
#     install_packages NAME...
#
# Asks the package manager only for what is missing, through sudo where the caller is not root.

build_packages=( g++ cmake ninja-build pkg-config
    libcli11-dev libtomlplusplus-dev nlohmann-json3-dev libfmt-dev libarchive-dev zlib1g-dev )
python_packages=( pybind11-dev python3-dev python3-pytest )
test_packages=( libgtest-dev libbenchmark-dev binutils file python3 python3-mypy clang-14 clang man-db zsh fish babeltrace2 )
all_packages=( abigail-tools clang-tidy-14 doxygen libclang-rt-14-dev valgrind )
packaging_packages=( build-essential git lintian )
browser_packages=( chromium )
aarch64_packages=( g++-aarch64-linux-gnu qemu-user libgtest-dev:arm64 libtomlplusplus-dev:arm64 libfmt-dev:arm64
    libarchive-dev:arm64 zlib1g-dev:arm64 )
# Of pictures.py.
picture_packages=( "${browser_packages[@]}" babeltrace2 libdevel-nytprof-perl )

# Whether a package is installed: for this machine's architecture, or for that in NAME:ARCHITECTURE.
is_installed() {
    local architecture
    architecture=$( dpkg --print-architecture )
    case $1 in *:*) architecture=${1#*:} ;; esac
    dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null |
        grep -xE "($architecture|all) installed" >/dev/null
}

install_packages() {
    local missing=() package
    for package in "$@"; do
        if ! is_installed "$package"; then
            missing+=( "$package" )
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    local as_root=()
    if [ "$( id -u )" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "${0##*/}: missing packages: ${missing[*]}; install them as root, or install sudo" >&2
            return 1
        fi
        as_root=( sudo )
    fi
    echo "Installing: ${missing[*]}"
    for package in "${missing[@]}"; do
        case $package in *:*) "${as_root[@]}" dpkg --add-architecture "${package#*:}" ;; esac
    done
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
