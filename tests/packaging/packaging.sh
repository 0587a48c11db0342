#!/usr/bin/env bash
# packaging.sh CHECK: one test of the built libraries. The environment says what CMakeLists.txt knows.
set -euo pipefail
export LC_ALL=C

here=$(dirname "${BASH_SOURCE[0]}")
release=$WORK/release
scratch=$WORK/scratch/$1
libraries=(base/libTavbase.so base/libTavsystem.so libTavdevice.so)
# The namespaces of each library. Weak symbols of the others are theirs as well: what is compiled from a
# header into several of them.
declare -A namespaces=([libTavbase.so]='Tavbase|TavubufferDynamic' [libTavsystem.so]='Tavsystem' [libTavdevice.so]='Tavdevice|TavDevice|SerialProtocol|main|TestSerial')
most_bytes=$((300 * 1024))

status=0
complain()
{
    echo "packaging: $*" >&2
    status=1
}

# grep -q ends at the first match, and what feeds it would fail.
found()
{
    grep "$@" >/dev/null
}

dynamic() # LIBRARY TAG: the values of that tag in the dynamic section
{
    readelf -dW "$1" | sed -n "s/.*($2) .*\[\(.*\)\]/\1/p"
}

check_release()
{
    (cd "$SOURCE" && "$CMAKE" --preset release -B "$release" -DCMAKE_CXX_COMPILER="$CXX" \
        -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12 -DTAVDEVICE_WARNINGS_AS_ERRORS=ON \
        -DTAVDEVICE_BUILD_TESTS=OFF -DTAVDEVICE_BUILD_BENCHMARKS=OFF \
        -DTAVDEVICE_BUILD_EXAMPLES=OFF -DTAVDEVICE_BUILD_VIRTUAL_UNIT=OFF)
    "$CMAKE" --build "$release" --target Tavbase Tavsystem Tavdevice
}

check_soname()
{
    local library name
    for library in "${libraries[@]}"; do
        name=$(dynamic "$release/$library" SONAME)
        [[ $name == "${library##*/}.1" ]] || complain "$library has the SONAME '$name'"
    done
}

check_needed()
{
    local library unexpected
    for library in "${libraries[@]}"; do
        [[ $(dynamic "$release/$library" NEEDED) == *libc.so* ]] || complain "$library needs no C library?"
        unexpected=$(dynamic "$release/$library" NEEDED |
            grep -vxE 'lib(Tavbase|Tavsystem|Tavdevice)\.so\.1|libstdc\+\+\.so\.6|libgcc_s\.so\.1|lib[cm]\.so\.6|ld-linux[^/]*\.so\.[0-9]+') ||
            continue
        complain "$library needs" $unexpected
    done
}

check_exports()
{
    local library own all names unexpected
    all=$(IFS='|'; echo "${namespaces[*]}")
    for library in "${libraries[@]}"; do
        own=${namespaces[${library##*/}]}
        # Type and name, without what stands before a name: what the compiler makes of a class, or the
        # result type of a function template.
        names=$(nm -DC --defined-only "$release/$library" | cut -d' ' -f2- | sed -E \
            -e 's/^(.) (typeinfo|typeinfo name|vtable|VTT|guard variable) for /\1 /' \
            -e 's/^(.) (non-)?virtual thunk to /\1 /' \
            -e "s/^(.) [^(]* ((std|__gnu_cxx|$all)::)/\1 \2/")
        unexpected=$(grep -vE -e "^[A-TX-Z] ($own)\b" -e "^[VWu] (std|__gnu_cxx|$all)\b" <<<"$names") || true
        [[ -z $unexpected ]] || complain "$library exports"$'\n'"$unexpected"
        grep -qE "^T ($own)\b" <<<"$names" || complain "$library exports nothing of its own"
    done
}

check_hardening()
{
    local library file checked=""
    for library in "${libraries[@]}"; do
        file=$release/$library
        readelf -dW "$file" | found -E 'BIND_NOW|\(FLAGS_1\).*\bNOW\b' || complain "$library: not bound at once"
        readelf -lW "$file" | found GNU_RELRO || complain "$library: relocations stay writable"
        readelf -lW "$file" | found -E 'GNU_STACK .* RW +0x' || complain "$library: executable stack"
        if readelf -lW "$file" | found -E '^ +LOAD .* RWE '; then
            complain "$library: a part is writable and executable"
        fi
        if readelf -dW "$file" | found TEXTREL; then
            complain "$library: text relocations"
        fi
        nm -D --undefined-only "$file" | found ' __stack_chk_fail' || complain "$library: no stack protector"
        checked+=$(nm -D --undefined-only "$file" | grep -E ' __[a-z_]+_chk(@|$)') || true
    done
    [[ -n $checked ]] || complain "no checked function of the C library is called: not fortified"
}

check_size()
{
    local library bytes
    for library in "${libraries[@]}"; do
        strip -o "$scratch/stripped.so" "$release/$library"
        bytes=$(stat -c %s "$scratch/stripped.so")
        printf '%-16s %7d bytes of %d\n' "${library##*/}" "$bytes" "$most_bytes"
        ((bytes < most_bytes)) || complain "$library has grown too large"
    done
}

names() # the names in the output of nm, without versions
{
    awk '{ print $NF }' | sed 's/@.*//' | sort -u
}

patterns() # a list with * in the names, as regular expressions
{
    sed -e 's/[].[^$\\]/\\&/g' -e 's/\*/.*/g'
}

# unknown: of the names read, those that are neither defined by the kit nor harmless.
unknown()
{
    local list=$here/harmless-imports.txt
    sort -u | comm -23 - "$scratch/kit-names.txt" >"$scratch/uncovered.txt"
    grep -xf <(sed -n 's/^!//p' "$list" | patterns) "$scratch/uncovered.txt" || true
    grep -vxf <(grep -vE '^(#|!|$)' "$list" | patterns) "$scratch/uncovered.txt" || true
}

# Each function that the libraries import is stood in for by the kit or known to be harmless.
look_at_imports() # BUILD
{
    local library left
    xargs -d '\n' nm -g --defined-only <"$WORK/kit-objects.txt" | grep -E ' [TW] ' | names | grep -v '^_Z' \
        >"$scratch/kit-names.txt"
    for library in "${libraries[@]}"; do
        nm -D --defined-only "$1/$library"
    done | names >"$scratch/own-names.txt"
    for library in "${libraries[@]}"; do
        nm -D --undefined-only "$1/$library"
    done | names | comm -23 - "$scratch/own-names.txt" >"$scratch/imports.txt"

    comm -12 "$scratch/imports.txt" "$scratch/kit-names.txt" | found -x open || complain "the kit covers no open()"
    [[ $(printf '%s\n' socket memcpy _ZNSt10filesystem6removeERKNS_7__cxx114pathE | unknown | wc -l) == 2 ]] ||
        complain "this test has become blind"
    left=$(unknown <"$scratch/imports.txt")
    [[ -z $left ]] || complain "the kit does not stand in for these, nor are they known to be harmless:"$'\n'"$left"
    wc -l <"$scratch/imports.txt" | sed 's/$/ imports/'
}

check_imports()
{
    look_at_imports "$release"
}

check_imports_here()
{
    look_at_imports "$BUILD"
}

mkdir -p "$scratch"
"check_$1"
exit $status
