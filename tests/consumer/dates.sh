#!/usr/bin/env bash
# dates.sh CHECK: one test of the package on a 32-bit target, after 2038. The environment says what CMakeLists.txt
# knows. Where 32-bit programs can be neither compiled nor run it says so and ends with 77.
set -euo pipefail

here=$(dirname "${BASH_SOURCE[0]}")
tree=$WORK/dates/tree
strict=(-std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Werror)
long_times=(-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)
date=2222222222 # in 2040

fail()
{
    echo "dates: $*" >&2
    exit 1
}

skip()
{
    echo "skipped: $*"
    exit 77
}

# The unit's architecture, under emulation; on a 32-bit machine, that machine's own.
find_compiler()
{
    compiler=$CXX run=(env) target=(-DCMAKE_CXX_COMPILER="$CXX")
    if [[ $POINTER_BYTES != 4 ]]; then
        compiler=$(command -v arm-linux-gnueabihf-g++) || skip "no arm-linux-gnueabihf-g++"
        local emulator
        emulator=$(command -v qemu-arm-static || command -v qemu-arm) || skip "no qemu-arm (qemu-user-static)"
        run=("$emulator" -L /usr/arm-linux-gnueabihf)
        target=(-DCMAKE_TOOLCHAIN_FILE="$SOURCE/cmake/toolchains/arm-linux-gnueabihf.cmake")
    fi
}

check_build()
{
    rm -rf "$tree"
    "$CMAKE" -S "$SOURCE" -B "$WORK/dates/build" -G Ninja "${target[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12 \
        -DTAVDEVICE_WARNINGS_AS_ERRORS=ON -DTAVDEVICE_BUILD_TESTS=OFF -DTAVDEVICE_BUILD_EXAMPLES=OFF \
        -DTAVDEVICE_BUILD_VIRTUAL_UNIT=OFF -DTAVDEVICE_BUILD_BENCHMARKS=OFF
    "$CMAKE" --build "$WORK/dates/build"
    "$CMAKE" --install "$WORK/dates/build" --prefix "$tree" >/dev/null
}

# run_application PROGRAM: in a directory as the unit would find it in 2040
run_application()
{
    local directory output
    directory=$(mktemp -d "$WORK/dates/run.XXXXXX")
    mkdir "$directory/db"
    head -c 1000 /dev/zero >"$directory/log"
    touch -d @$date "$directory/db" "$directory/log"
    [[ $(stat -c %Y "$directory/db") == "$date" ]] || skip "the file system of $WORK keeps no dates beyond 2038"
    output=$(TZ=UTC "${run[@]}" "$@" "$directory") || fail "the application failed: $output"
    rm -rf "$directory"
    [[ $'\n'$output$'\n' == *$'\ndates: all well\n'* ]] || fail "the application said: $output"
}

check_cmake()
{
    local macros bytes build
    for macros in "" "${long_times[*]}"; do
        bytes=$([[ -z $macros ]] && echo 4 || echo 8)
        build=$WORK/dates/cmake-$bytes
        rm -rf "$build"
        "$CMAKE" -S "$here/dates" -B "$build" -G Ninja "${target[@]}" \
            -DCMAKE_CXX_FLAGS="$macros -DTIME_BYTES=$bytes" \
            -DCMAKE_PREFIX_PATH="$tree" -DCMAKE_FIND_ROOT_PATH="$tree" -DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON
        grep -q "^Tavdevice_DIR:PATH=$tree/" "$build/CMakeCache.txt" || fail "another Tavdevice was found"
        "$CMAKE" --build "$build"
        run_application "$build/dates"
    done
}

check_pkg_config()
{
    local -a flags macros
    local bytes
    eval "flags=($(PKG_CONFIG_LIBDIR=$tree/lib/pkgconfig pkg-config --cflags --libs tavdevice))"
    for bytes in 4 8; do
        macros=("-DTIME_BYTES=$bytes")
        if ((bytes == 8)); then
            macros+=("${long_times[@]}")
        fi
        "$compiler" "${strict[@]}" "${macros[@]}" "$here/dates/main.cpp" -o "$WORK/dates/pkg_config-$bytes" \
            "${flags[@]}" -Wl,-rpath,"$tree/lib"
        run_application "$WORK/dates/pkg_config-$bytes"
    done
}

# layout [FLAG...]: the size, alignment, bases and virtual functions of every class of the installed headers
layout()
{
    local dump=$WORK/dates/layout
    rm -rf "$dump"
    mkdir "$dump"
    (cd "$tree/include/Tavdevice" && find . -name '*.h' | sort | sed 's|^\./\(.*\)|#include "\1"|') >"$dump/all.cpp"
    "$compiler" -std=c++20 "$@" -fsyntax-only -fdump-lang-class="$dump/classes" -I "$tree/include/Tavdevice" \
        "$dump/all.cpp"
    # Each class is a paragraph; its addresses in the compiler's memory go.
    awk -v RS= -v ORS='\n\n' '/^(Class|Vtable for) (Tav|SerialProtocol|Tavubuffer)/' "$dump/classes" |
        sed -E 's/ \((0x)+[0-9a-f]+\)//g'
}

# What an application compiles does not depend on its macros, and the package does not choose them for it.
check_headers()
{
    local short long
    short=$(layout) long=$(layout "${long_times[@]}")
    grep -q '^Class Tavdevice::Modem::Module3G$' <<<"$short" || fail "no class was found"
    diff <(echo "$short") <(echo "$long") || fail "classes differ with the macros"
    grep -c '^Class' <<<"$short" | sed 's/$/ classes/'
    if grep -rnE '\b(std::time_t|time_t|off_t|ino_t|blkcnt_t|fsblkcnt_t|fpos_t|timespec|timeval|itimerspec|rlimit|dirent|struct stat(v?fs)?)\b' \
        "$tree/include" | grep -vE ':[[:space:]]*(//|\*|/\*)'; then
        fail "these depend on the macros"
    fi
    if grep -rE '_TIME_BITS|_FILE_OFFSET_BITS' "$tree/lib" --include='*.cmake' --include='*.pc'; then
        fail "the package hands the macros on"
    fi
}

find_compiler
mkdir -p "$WORK/dates"
"check_$1"
