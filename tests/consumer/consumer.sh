#!/usr/bin/env bash
# consumer.sh CHECK: one test of the installed tree. The environment says what CMakeLists.txt knows.
set -euo pipefail

here=$(dirname "${BASH_SOURCE[0]}")
tree=$WORK/tree
strict=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Werror)

fail()
{
    echo "consumer: $*" >&2
    exit 1
}

install_tree() # PREFIX [ARGUMENT...]
{
    local prefix=$1
    shift
    rm -rf "$prefix"
    mkdir -p "$prefix" # a component may be empty
    "$CMAKE" --install "$BUILD" --prefix "$prefix" "$@" >/dev/null
}

# build_with_cmake PREFIX NAME: the application by find_package(), in a build directory of that name.
build_with_cmake()
{
    rm -rf "${WORK:?}/$2"
    "$CMAKE" -S "$here/application" -B "$WORK/$2" -G Ninja -DCMAKE_CXX_COMPILER="$CXX" -DCMAKE_PREFIX_PATH="$1" \
        -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON
    grep -q "^Tavdevice_DIR:PATH=$1/" "$WORK/$2/CMakeCache.txt" || fail "another Tavdevice was found"
    "$CMAKE" --build "$WORK/$2"
    run_application "$WORK/$2/consumer"
}

# build_with_pkg_config PREFIX PROGRAM: the application by one line, as a makefile would have it.
build_with_pkg_config()
{
    local -a flags
    # They are text for a shell: a blank in the prefix stands there as "\ ".
    eval "flags=($(PKG_CONFIG_PATH=$1/$LIBDIR/pkgconfig pkg-config --cflags --libs tavdevice))"
    [[ " ${flags[*]} " == *" -I$1/"* ]] || fail "unexpected flags: ${flags[*]}"
    "$CXX" "${strict[@]}" "$here/application/main.cpp" -o "$2" "${flags[@]}"
    LD_LIBRARY_PATH=$1/$LIBDIR run_application "$2"
}

run_application()
{
    local directory output
    directory=$(mktemp -d)
    output=$("$1" "$directory") || fail "the application failed: $output"
    rm -rf "$directory"
    # The log's last line may come after the application's own.
    [[ $'\n'$output$'\n' == *$'\nconsumer: all well\n'* ]] || fail "the application said: $output"
    echo "$output"
}

headers() # PREFIX: the installed headers, as they are included
{
    (cd "$1/include/Tavdevice" && find . -name '*.h' | sed 's|^\./||' | sort)
}

check_install()
{
    install_tree "$tree"
    local file
    for file in libTavbase libTavsystem libTavdevice; do
        [[ -L $tree/$LIBDIR/$file.so && -L $tree/$LIBDIR/$file.so.1 ]] || fail "$file is not there"
    done
}

check_cmake()
{
    build_with_cmake "$tree" cmake
    if "$CMAKE" -S "$here/application" -B "$WORK/cmake" -DTAVDEVICE_VERSION_WANTED=2 2>/dev/null; then
        fail "version 1 was taken for version 2"
    fi
}

check_pkg_config()
{
    build_with_pkg_config "$tree" "$WORK/consumer_pkg_config"
}

# A tree that was installed in one place and carried to another.
check_moved()
{
    rm -rf "$WORK/moved"
    mkdir "$WORK/moved"
    install_tree "$WORK/moved/before"
    mv "$WORK/moved/before" "$WORK/moved/after"
    build_with_cmake "$WORK/moved/after" moved/cmake
    build_with_pkg_config "$WORK/moved/after" "$WORK/moved/consumer"

    # The virtual unit finds its own library there; 3: it cannot run on this machine.
    local unit=$WORK/moved/after/bin/virtual-unit seconds status=0
    if [[ -x $unit ]]; then
        seconds=$("$unit" run --fast -- sh -c 'a=$(date +%s); sleep 1000; echo $(($(date +%s) - a))') || status=$?
        [[ $status == 3 || $seconds == 1000 ]] || fail "virtual time in the moved tree: $seconds, status $status"
    fi
}

# A tree staged under DESTDIR, as for a package or for the root of another machine.
check_staged()
{
    local root=$WORK/staged flags link
    rm -rf "$root"
    DESTDIR=$root "$CMAKE" --install "$BUILD" --prefix /usr >/dev/null
    [[ $(ls "$root") == usr ]] || fail "installed outside of /usr: $(ls "$root")"

    # A cross build: the root of the target is put in front of every directory, once. By a path without a
    # blank, since pkgconf puts a root that has one there a second time.
    link=$(mktemp -d)
    ln -s "$root" "$link/root"
    flags=$(PKG_CONFIG_SYSROOT_DIR=$link/root PKG_CONFIG_LIBDIR=$link/root/usr/$LIBDIR/pkgconfig \
        pkg-config --cflags --libs tavdevice)
    [[ $flags =~ ^-I([^ ]+)\ -L([^ ]+)\ -lTavdevice\ -lTavsystem\ -lTavbase\ *$ &&
        ${BASH_REMATCH[1]} -ef $root/usr/include/Tavdevice && ${BASH_REMATCH[2]} -ef $root/usr/$LIBDIR ]] ||
        fail "flags for a cross build: $flags"
    rm -r "$link"
    if grep -rlF "$WORK" "$root" --include='*.cmake' --include='*.pc'; then
        fail "the place of staging stands in the files above"
    fi
    build_with_cmake "$root/usr" staged-cmake
}

# What a packager splits: the unit gets the libraries alone.
check_components()
{
    local component unexpected
    for component in runtime devel tools; do
        install_tree "$WORK/$component" --component $component
        (cd "$WORK/$component" 2>/dev/null && find . ! -type d || true) | sort >"$WORK/$component.txt"
    done
    unexpected=$(grep -vE "^\./$LIBDIR/lib(Tavbase|Tavsystem|Tavdevice)\.so\.1(\.[0-9.]+)?$" "$WORK/runtime.txt") || true
    [[ -z $unexpected ]] || fail "in the component runtime: $unexpected"
    [[ $(wc -l <"$WORK/runtime.txt") == 6 ]] || fail "the component runtime is not whole"
    unexpected=$(grep -vE "^\./(include/Tavdevice/.*\.h|$LIBDIR/(cmake/Tavdevice/.*\.cmake|pkgconfig/tavdevice\.pc|lib[A-Za-z]+\.so))$" "$WORK/devel.txt") || true
    [[ -z $unexpected ]] || fail "in the component devel: $unexpected"
    unexpected=$(grep -vE "^\./(bin/|$LIBDIR/tavdevice/|share/(bash-completion/completions|man/man[15]|tavdevice/virtual-unit/scripts)/)" "$WORK/tools.txt") || true
    [[ -z $unexpected ]] || fail "in the component tools: $unexpected"
    diff <(cd "$tree" && find . ! -type d | sort) <(sort "$WORK"/{runtime,devel,tools}.txt) ||
        fail "the components are not the whole tree"
}

# Every installed header compiles on its own, with nothing but the installed tree.
check_headers()
{
    local header failed=0 count=0
    while read -r header; do
        printf '#include "%s"\n#include "%s"\n' "$header" "$header" |
            "$CXX" "${strict[@]}" -fsyntax-only -I "$tree/include/Tavdevice" -x c++ - ||
            { echo "consumer: $header does not stand alone" >&2; failed=1; }
        count=$((count + 1))
    done < <(headers "$tree")
    ((count > 0)) || fail "no header is installed"
    echo "$count headers"
    return $failed
}

# Each header of the libraries is either installed or named as private, so that none is forgotten.
check_complete()
{
    local private
    private=$(grep -vE '^(#|$)' "$here/private-headers.txt" | sort)
    diff <(cd "$SOURCE" && find . -mindepth 2 -name '*.h' ! -path './build/*' ! -path './tests/*' \
        ! -path './benchmarks/*' ! -path './tools/*' ! -path './examples/*' ! -path './virtual-unit/*' | sed 's|^\./||' | sort) \
        <({ headers "$tree"; echo "$private"; } | sort) ||
        fail "marked <: neither installed nor in private-headers.txt; >: private and yet installed, or gone"
}

"check_$1"
