#!/bin/sh
# Sets up a Debian 12 machine from a fresh clone and runs one of the two jobs:
#
#   sh tools/setup.sh demo   installs what the library and the demo need,
#                            builds them and runs the demo on its built-in
#                            synthetic scene (outputs in demo_output/);
#   sh tools/setup.sh test   installs what every part needs, builds every
#                            part and runs every test.
#
# Only missing Debian packages are installed (apt-get update runs only when
# something is missing), through sudo when not run as root. Build trees:
# build-demo/ and build/.
set -eu

usage="usage: sh tools/setup.sh demo|test"
[ $# -eq 1 ] || { echo "$usage" >&2; exit 2; }
mode=$1
cd "$(dirname "$0")/.."

# Debian 12 package names. The demo job needs the library's compiler and
# build tools and what the command-line tool builds with; the test job adds
# what every test of every part runs with, and ccache, through which the test
# that configures the project once more without the optional parts' packages
# rebuilds the library from the cache instead of compiling it again.
demo_packages="cmake g++ make pkg-config libpng-dev libtiff-dev libcli11-dev nlohmann-json3-dev"
test_packages="$demo_packages libgtest-dev libbenchmark-dev binutils qemu-user
  python3 python3-numpy python3-pytest python3-venv python3-setuptools python3-wheel python3-tifffile
  libaravis-dev libusb-1.0-0-dev aravis-tools dpkg-dev file ccache"

case $mode in
  demo) packages=$demo_packages build_dir=build-demo ;;
  test) packages=$test_packages build_dir=build ;;
  *) echo "$usage" >&2; exit 2 ;;
esac

step() {
  echo
  echo "==> $*"
}

jobs=$(nproc 2>/dev/null || echo 2)

install_missing_packages() {
  missing=""
  for package in $packages; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing="$missing $package"
  done
  if [ -z "$missing" ]; then
    echo "All required Debian packages are installed."
    return
  fi
  if [ "$(id -u)" -eq 0 ]; then
    as_root=""
  elif command -v sudo >/dev/null 2>&1; then
    as_root="sudo"
    echo "Not running as root: installing packages through sudo."
  else
    echo "Missing Debian packages:$missing" >&2
    echo "Run this script as root, or install sudo, or install them yourself." >&2
    exit 1
  fi
  step "Updating the package lists (apt-get update)"
  $as_root apt-get update
  step "Installing missing Debian packages:$missing"
  # shellcheck disable=SC2086 # one word per package
  $as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y $missing
}

# Every optional part of the CMake project (each declared by a line
# `ksi_optional_part(NAME ...)` in a CMakeLists.txt), required: the test job
# leaves nothing out, and a part that cannot be built stops the configuration.
every_part_required() {
  find . -name CMakeLists.txt -not -path './build*' -exec \
    sed -n 's/^[[:space:]]*ksi_optional_part(\([A-Z0-9_]*\).*/-DKSI_BUILD_\1=ON/p' {} + | sort -u
}

configure() {
  launcher=""
  if command -v ccache >/dev/null 2>&1; then
    launcher="-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache"
  fi
  step "Configuring in $build_dir/${1:+ with $*}"
  # shellcheck disable=SC2086,SC2046 # lists of options
  cmake -S . -B "$build_dir" -DCMAKE_BUILD_TYPE=Release $launcher "$@"
}

# The main job of the demo mode: its build target and how it runs.
main_job_target=ksi-polarization
run_main_job() {
  step "Running ksi-polarization demo: a synthetic polarization scene through every output and both pictures"
  "$build_dir/cli/ksi-polarization" demo -o demo_output
}

# shellcheck disable=SC2086,SC2116 # the list on one line
step "Checking the Debian packages for '$mode': $(echo $packages)"
install_missing_packages

case $mode in
  demo)
    configure
    step "Building $main_job_target with $jobs parallel jobs"
    cmake --build "$build_dir" -j "$jobs" --target "$main_job_target"
    run_main_job
    ;;
  test)
    # shellcheck disable=SC2046 # one option per part
    configure $(every_part_required)
    step "Building every part with $jobs parallel jobs (the library's 4096 kernels take a few minutes)"
    cmake --build "$build_dir" -j "$jobs"
    step "Running every test"
    ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
    ;;
esac
