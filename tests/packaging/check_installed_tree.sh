#!/usr/bin/env bash
# Checks what a user of the library gets, in one of two ways:
#
#   check_installed_tree.sh install <build dir> <work dir> <extension built: 0|1>
#       `cmake --install <build dir> --prefix <work dir>/prefix`;
#   check_installed_tree.sh deb <build dir> <work dir> <extension built: 0|1>
#       `cpack -G DEB` into <work dir>/package, the package's fields and
#       contents, then `dpkg -x` into <work dir>/root.
#
# Then, on the tree: the versioned library, its SONAME and $ORIGIN run-path,
# exactly the seven exported functions, the headers, the README, nothing of
# the tests; the example built against the tree with find_package and with
# pkg-config, run, and its images compared with those of the demo of the
# build tree; and the extension found beside the installed library with no
# library path; and the command-line tool's `info`, where it is installed.
# Tools come from the environment: CMAKE, CPACK, CC, NM,
# READELF, PKG_CONFIG; SOURCE_DIR is the project, VERSION its version.
# `condition && pass ... || fail ...`: pass only prints, so fail runs exactly
# when the condition is false.
# shellcheck disable=SC2015
set -euo pipefail

if [[ $# -ne 4 ]]; then
    echo "usage: $0 install|deb <build dir> <work dir> <extension built: 0|1>" >&2
    exit 2
fi
mode=$1 build_dir=$2 work_dir=$3 extension_built=$4
: "${CMAKE:?}" "${CPACK:?}" "${CC:?}" "${NM:?}" "${READELF:?}" "${PKG_CONFIG:?}" "${SOURCE_DIR:?}" "${VERSION:?}"
unset LD_LIBRARY_PATH

library=libkestrion_ksi_polarization_processor
soname=$library.so.0
package_file_name=kestrion_ksi_polarization_processor

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}
pass() {
    echo "ok: $*"
}

rm -rf "$work_dir"
mkdir -p "$work_dir"

case $mode in
install)
    "$CMAKE" --install "$build_dir" --prefix "$work_dir/prefix" >"$work_dir/install.log"
    prefix=$work_dir/prefix
    ;;
deb)
    "$CPACK" -G DEB -B "$work_dir/package" --config "$build_dir/CPackConfig.cmake" >"$work_dir/cpack.log" 2>&1 ||
        { cat "$work_dir/cpack.log" >&2; exit 1; }
    shopt -s nullglob
    debs=("$work_dir"/package/*.deb)
    [[ ${#debs[@]} -eq 1 ]] || { echo "FAIL: expected one .deb, found ${#debs[@]}" >&2; exit 1; }
    deb=${debs[0]}
    echo "package: $(basename "$deb"), $(stat -c %s "$deb") bytes"
    field() { dpkg-deb -f "$deb" "$1"; }
    [[ $(field Package) == kestrion-ksi-polarization-processor ]] && pass "Package: $(field Package)" ||
        fail "Package is '$(field Package)'"
    [[ $(field Version) == "$VERSION" ]] && pass "Version: $VERSION" || fail "Version is '$(field Version)', not $VERSION"
    [[ $(field Architecture) == "$(dpkg --print-architecture)" ]] && pass "Architecture: $(field Architecture)" ||
        fail "Architecture is '$(field Architecture)'"
    # dpkg-shlibdeps reads the library's NEEDED entries: the C and C++
    # runtime libraries, with versions.
    depends=$(field Depends)
    for runtime in libc6 libstdc++6 libgcc-s1; do
        [[ ", $depends" == *", $runtime (>= "* ]] && pass "Depends names $runtime with a version" ||
            fail "Depends ('$depends') does not name $runtime with a version"
    done
    # "<mode> <owner> <size> <date> <time> ./<path>[ -> <target>]"
    dpkg-deb -c "$deb" | awk '{ print substr($6, 2) }' >"$work_dir/contents.txt"
    echo "contents:"
    dpkg-deb -c "$deb" | sed 's/^/  /'
    grep -qx "/usr/lib/$soname" "$work_dir/contents.txt" && pass "the package holds /usr/lib/$soname" ||
        fail "the package has no /usr/lib/$soname"
    # Listed first, then searched: `grep -q` leaving a pipe early would fail
    # the whole pipeline under pipefail whenever tar was still writing.
    control_files=$(dpkg-deb --ctrl-tarfile "$deb" | tar -t)
    grep -qx './shlibs' <<<"$control_files" && pass "the package declares its shlibs" ||
        fail "the package has no shlibs file"
    dpkg-deb -x "$deb" "$work_dir/root"
    prefix=$work_dir/root/usr
    # Nothing outside /usr.
    outside=$(cd "$work_dir/root" && find . -mindepth 1 -maxdepth 1 ! -name usr)
    [[ -z $outside ]] && pass "everything lies under /usr" || fail "files outside /usr: $outside"
    ;;
*)
    echo "unknown mode '$mode'" >&2
    exit 2
    ;;
esac

# The library directory is wherever the real file went (lib/ or lib/<triplet>).
real_library=$(find "$prefix" -name "$library.so.$VERSION" -type f)
[[ -n $real_library ]] || { echo "FAIL: no $library.so.$VERSION under $prefix" >&2; exit 1; }
libdir=$(dirname "$real_library")
echo "libdir: ${libdir#"$prefix"/}"

# Versioned file, SONAME link, development link.
[[ -L $libdir/$soname && $(readlink "$libdir/$soname") == "$library.so.$VERSION" ]] &&
    pass "$soname -> $library.so.$VERSION" || fail "$soname is not a link to $library.so.$VERSION"
[[ -L $libdir/$library.so && $(readlink -f "$libdir/$library.so") == "$(readlink -f "$real_library")" ]] &&
    pass "$library.so links to the library" || fail "$library.so is not a link to the library"

dynamic=$("$READELF" -d "$real_library")
[[ $dynamic == *"Library soname: [$soname]"* ]] && pass "SONAME $soname" ||
    fail "SONAME is not $soname: $(grep SONAME <<<"$dynamic")"
# shellcheck disable=SC2016 # $ORIGIN is literal
[[ $dynamic == *'Library runpath: [$ORIGIN]'* ]] && pass 'run-path $ORIGIN' ||
    fail "run-path is not \$ORIGIN: $(grep -E 'RPATH|RUNPATH' <<<"$dynamic")"
"$CMAKE" -DLIBRARY="$real_library" -DNM="$NM" -P "$SOURCE_DIR/tests/core/check_exported_symbols.cmake" ||
    fail "exported symbols of the installed library"

for header in kestrion_ksi_polarization_processor.h kestrion_ksi_polarization_processor.hpp; do
    cmp -s "$prefix/include/$header" "$SOURCE_DIR/include/$header" && pass "include/$header" ||
        fail "include/$header is missing or differs from the source"
done
readme=$(find "$prefix/share/doc" -name README.md -print -quit 2>/dev/null || true)
[[ -n $readme ]] && cmp -s "$readme" "$SOURCE_DIR/README.md" && pass "${readme#"$prefix"/}" ||
    fail "no README.md under share/doc"
[[ -f $libdir/cmake/$package_file_name/$package_file_name-config.cmake &&
    -f $libdir/cmake/$package_file_name/$package_file_name-config-version.cmake ]] &&
    pass "CMake package and version file" || fail "no CMake package files under ${libdir#"$prefix"/}/cmake"
[[ -f $libdir/pkgconfig/$package_file_name.pc ]] && pass "pkg-config file" ||
    fail "no $package_file_name.pc under ${libdir#"$prefix"/}/pkgconfig"

# Only the product: every installed file is a library, header, program,
# package description or document, and none comes from the tests.
unexpected=$(cd "$prefix" && find . ! -type d | sed 's|^\./||' |
    grep -vE '^(lib|include|bin|share/doc)/' || true)
[[ -z $unexpected ]] && pass "only library, header, program and document directories" ||
    fail "unexpected files: $unexpected"
from_tests=$(cd "$prefix" && find . ! -type d | grep -iE 'gtest|gmock|benchmark|_test|double' || true)
[[ -z $from_tests ]] && pass "nothing of the tests or benchmarks" || fail "test files installed: $from_tests"

# The demo of the build tree gives the reference images.
"$build_dir/examples/polarization_demo" "$work_dir/images-build-tree" >/dev/null

check_consumer() {
    local how=$1 program=$2
    local linked
    linked=$(ldd "$program" | awk -v so="$soname" '$1 == so { print $3 }')
    [[ $(readlink -f "$linked") == "$(readlink -f "$real_library")" ]] &&
        pass "example built with $how loads the installed library" ||
        fail "example built with $how loads '$linked', not the installed library"
    if "$program" "$work_dir/images-$how" >"$work_dir/run-$how.log" 2>&1; then
        if diff -r "$work_dir/images-build-tree" "$work_dir/images-$how" >/dev/null; then
            pass "example built with $how writes the same images as the build tree's demo"
        else
            fail "example built with $how writes other images than the build tree's demo"
        fi
    else
        fail "example built with $how failed: $(cat "$work_dir/run-$how.log")"
    fi
}

# CMake: the example project on its own, finding the package in the tree.
if "$CMAKE" -S "$SOURCE_DIR/examples" -B "$work_dir/example-find-package" -DCMAKE_C_COMPILER="$CC" \
        -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >"$work_dir/example-find-package.log" 2>&1 &&
    "$CMAKE" --build "$work_dir/example-find-package" >>"$work_dir/example-find-package.log" 2>&1; then
    check_consumer find_package "$work_dir/example-find-package/polarization_demo"
else
    fail "example with find_package: $(tail -20 "$work_dir/example-find-package.log")"
fi

# The version file: this major version is served, the next is not.
version_probe=$work_dir/version-probe
mkdir -p "$version_probe"
cat >"$version_probe/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.18)
project(version_probe NONE)
find_package(kestrion_ksi_polarization_processor ${REQUESTED} CONFIG REQUIRED)
EOF
major=${VERSION%%.*}
"$CMAKE" -S "$version_probe" -B "$version_probe/same" -DREQUESTED="$major.0" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1 &&
    pass "find_package serves version $major.0" || fail "find_package refuses version $major.0"
! "$CMAKE" -S "$version_probe" -B "$version_probe/next" -DREQUESTED="$((major + 1)).0" \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1 &&
    pass "find_package refuses version $((major + 1)).0" || fail "find_package serves version $((major + 1)).0"

# pkg-config: one compiler line.
export PKG_CONFIG_PATH=$libdir/pkgconfig
[[ $("$PKG_CONFIG" --modversion "$package_file_name") == "$VERSION" ]] && pass "pkg-config version $VERSION" ||
    fail "pkg-config version is '$("$PKG_CONFIG" --modversion "$package_file_name")'"
# shellcheck disable=SC2046 # pkg-config prints one option per word
if "$CC" -o "$work_dir/example-pkg-config" "$SOURCE_DIR/examples/polarization_demo.c" \
        $("$PKG_CONFIG" --cflags --libs "$package_file_name") -lm \
        -Wl,-rpath,"$("$PKG_CONFIG" --variable=libdir "$package_file_name")" >"$work_dir/example-pkg-config.log" 2>&1; then
    check_consumer pkg-config "$work_dir/example-pkg-config"
else
    fail "example with pkg-config: $(cat "$work_dir/example-pkg-config.log")"
fi

# The extension beside the installed library, found with no library path.
if "$CC" -std=c99 -o "$work_dir/extension_beside_library" "$SOURCE_DIR/tests/packaging/extension_beside_library.c" \
        -I"$prefix/include" -L"$libdir" -l:"$soname" -ldl -Wl,-rpath,"$libdir" 2>"$work_dir/extension_beside_library.log" &&
    "$work_dir/extension_beside_library" "$extension_built"; then
    pass "extension check ($([[ $extension_built == 1 ]] && echo "found beside the library" || echo "none built"))"
else
    fail "extension beside the installed library: $(cat "$work_dir/extension_beside_library.log")"
fi

# The command-line tool, where it is installed: it finds the library of its
# own tree with no library path.
tool=$prefix/bin/ksi-polarization
if [[ -e $tool ]]; then
    if "$tool" info >"$work_dir/tool-info.log" 2>&1; then
        pass "bin/ksi-polarization info"
    else
        fail "bin/ksi-polarization info: $(cat "$work_dir/tool-info.log")"
    fi
fi

echo "installed files:"
(cd "$prefix" && find . ! -type d -printf '  %P %s bytes\n' | sort)
if [[ $failures -ne 0 ]]; then
    echo "$failures check(s) failed" >&2
    exit 1
fi
echo "all checks passed"
