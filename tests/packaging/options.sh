#!/usr/bin/env bash
# options.sh BENCHMARKS|alone: the tree is configured with each combination of the options that say what is built, with
# and without the benchmarks (ON, OFF); "alone": where there is a compiler, CMake and Ninja and no package. The
# environment says what CMakeLists.txt knows. What is missing for the benchmarks is told, with status 77.
set -euo pipefail

build=$WORK/options-$1
rm -rf "$build"
mkdir -p "$build"

configure() # ARGUMENT...
{
    (cd "$SOURCE" && "$CMAKE" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="$CXX" "$@") >"$build/log" 2>&1
}

fail()
{
    cat "$build/log"
    echo "options: $*" >&2
    exit 1
}

if [[ $1 == alone ]]; then
    no_packages=()
    for package in Boost CLI11 GTest PkgConfig benchmark nlohmann_json spdlog; do
        no_packages+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON")
    done
    configure --preset release "${no_packages[@]}" || fail "the preset release needs a package"
    for option in TAVDEVICE_BUILD_TESTS TAVDEVICE_BUILD_VIRTUAL_UNIT; do
        grep "^-- $option is off: not found: " "$build/log" || fail "it is not told that $option is off"
    done
    grep -q '^TAVDEVICE_BUILD_EXAMPLES:BOOL=ON$' "$build/CMakeCache.txt" || fail "the examples are not built"
    ! configure -DTAVDEVICE_BUILD_TESTS=ON || fail "tests that were asked for are left out without a word"
    exit
fi

# In one folder, which knows the compiler from the second time on.
count=0
for sanitize in "" address; do
    for tests in ON OFF; do
        for examples in ON OFF; do
            for unit in ON OFF; do
                options=(-DTAVDEVICE_BUILD_TESTS=$tests -DTAVDEVICE_BUILD_EXAMPLES=$examples
                    -DTAVDEVICE_BUILD_VIRTUAL_UNIT=$unit -DTAVDEVICE_BUILD_BENCHMARKS="$1"
                    -DTAVDEVICE_SANITIZE=$sanitize -DCMAKE_UNITY_BUILD=$([[ -n $sanitize ]] && echo ON || echo OFF))
                if ! configure "${options[@]}"; then
                    missing=$(grep -oE 'Find(benchmark|spdlog)\.cmake' "$build/log" | head -n 1) || true
                    if [[ $1 == ON && -n $missing ]]; then
                        echo "skipped: the benchmarks' packages are missing (libbenchmark-dev, libspdlog-dev)"
                        exit 77
                    fi
                    fail "${options[*]}"
                fi
                count=$((count + 1))
            done
        done
    done
done
echo "$count combinations"
