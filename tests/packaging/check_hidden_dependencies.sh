#!/usr/bin/env bash
# Configures the project with the optional parts' dependencies hidden, as on
# a machine with only a compiler and CMake, and checks that
#   - each part is left out with its status line naming what is missing;
#   - the library and the demo still build, and the demo runs;
#   - a part asked for explicitly with its dependency hidden stops the
#     configuration with an error naming the dependency.
#
#   check_hidden_dependencies.sh <build dir>
# The build directory is kept between runs so that a second run rebuilds
# nothing. Tools come from the environment: CMAKE, SOURCE_DIR, and LAUNCHER
# (a compiler launcher such as ccache, or empty).
set -euo pipefail

[[ $# -eq 1 ]] || { echo "usage: $0 <build dir>" >&2; exit 2; }
build_dir=$1
: "${CMAKE:?}" "${SOURCE_DIR:?}"

# find_package names to hide, and the status line each part must print.
# A part that joins the project adds its packages and its line here.
hidden_packages=(GTest benchmark CLI11)
expected_lines=(
    "Not building the test suite: missing GoogleTest (apt-get install libgtest-dev)"
    "Not building the benchmarks: missing Google Benchmark (apt-get install libbenchmark-dev)"
    "Not building the command-line tool ksi-polarization: missing CLI11 (apt-get install libcli11-dev)"
    "Not building the live-camera subcommands of ksi-polarization (Aravis): missing the command-line tool (KSI_BUILD_CLI)"
)

hide=()
for package in "${hidden_packages[@]}"; do
    hide+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
done
launcher=()
if [[ -n ${LAUNCHER:-} ]]; then
    launcher=("-DCMAKE_C_COMPILER_LAUNCHER=$LAUNCHER" "-DCMAKE_CXX_COMPILER_LAUNCHER=$LAUNCHER")
fi

failures=0
mkdir -p "$build_dir"
# A fresh cache every run: the parts start from AUTO.
rm -f "$build_dir/CMakeCache.txt"
"$CMAKE" -S "$SOURCE_DIR" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release "${launcher[@]}" "${hide[@]}" \
    >"$build_dir.configure.log" 2>&1 || { cat "$build_dir.configure.log"; exit 1; }
for line in "${expected_lines[@]}"; do
    if grep -qxF -- "-- $line" "$build_dir.configure.log"; then
        echo "ok: $line"
    else
        echo "FAIL: no status line '$line'" >&2
        failures=$((failures + 1))
    fi
done

echo "building the library and the demo"
"$CMAKE" --build "$build_dir" -j2 --target kestrion_ksi_polarization_processor polarization_demo \
    >"$build_dir.build.log" 2>&1 || { tail -30 "$build_dir.build.log"; exit 1; }
rm -rf "$build_dir.demo"
if "$build_dir/examples/polarization_demo" "$build_dir.demo" >/dev/null && [[ -s $build_dir.demo/dolp.pgm ]]; then
    echo "ok: the demo runs"
else
    echo "FAIL: the demo did not run" >&2
    failures=$((failures + 1))
fi

# Asked for explicitly, the test suite cannot do without GoogleTest.
if "$CMAKE" -S "$SOURCE_DIR" -B "$build_dir.required" -DKSI_BUILD_TESTS=ON -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON \
        >"$build_dir.required.log" 2>&1; then
    echo "FAIL: KSI_BUILD_TESTS=ON configured without GoogleTest" >&2
    failures=$((failures + 1))
elif grep -q "KSI_BUILD_TESTS=ON, but the test suite needs GoogleTest" "$build_dir.required.log"; then
    echo "ok: KSI_BUILD_TESTS=ON without GoogleTest is an error naming it"
else
    echo "FAIL: KSI_BUILD_TESTS=ON without GoogleTest failed for another reason:" >&2
    cat "$build_dir.required.log" >&2
    failures=$((failures + 1))
fi
rm -rf "$build_dir.required"

[[ $failures -eq 0 ]] || { echo "$failures check(s) failed" >&2; exit 1; }
echo "all checks passed"
