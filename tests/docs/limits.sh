#!/usr/bin/env bash
# limits.sh: whether docs/limits.md names what there is. Each of its entries ("###") has a header, which names the page
# in turn, and a test of this build. And whether SECURITY.md does. The environment says what CMakeLists.txt knows.
set -euo pipefail

page=$SOURCE/docs/limits.md
failures=0

complain()
{
    echo "docs/limits.md: $*" >&2
    failures=$((failures + 1))
}

# What the test programs list: "Instance/Suite." and below it "  Test/parameter  # GetParam() = ..." are Suite.Test for a
# reader.
declare -A tests
while read -r name; do
    tests[$name]=1
done < <(find "$BUILD/tests" -name '*_test' -type f -executable -exec {} --gtest_list_tests ';' |
    awk '/^[^ ]/ { sub(/^.*\//, "", $1); suite = $1 } /^  / { sub(/\/.*/, "", $1); print suite $1 }' | sort -u)

# Each code span of an entry, behind the entry's title; and a line with the title alone.
spans()
{
    awk '
        /^##/ { title = /^### / ? substr($0, 5) : ""; if (title != "") print title "\t" }
        !/^##/ && title != "" {
            for (rest = $0; match(rest, /`[^`]+`/); rest = substr(rest, RSTART + RLENGTH))
                print title "\t" substr(rest, RSTART + 1, RLENGTH - 2)
        }' "$page"
}

declare -A headers shown
while IFS=$'\t' read -r title span; do
    if [[ -z $span ]]; then
        headers[$title]=0 shown[$title]=0
    elif [[ $span == */*.h ]]; then
        headers[$title]=1
        if [[ ! -f $SOURCE/$span ]]; then
            complain "$title: there is no $span"
        elif ! grep -qF docs/limits.md "$SOURCE/$span"; then
            complain "$title: $span does not name this page"
        fi
    elif [[ $span =~ ^[A-Z][A-Za-z0-9]*\.[A-Z][A-Za-z0-9]*$ ]]; then
        shown[$title]=1
        if [[ -z ${tests[$span]:-} ]]; then
            complain "$title: there is no test $span"
        fi
    fi
done < <(spans)

for title in "${!headers[@]}"; do
    ((headers[$title])) || complain "$title: no header"
    ((shown[$title])) || complain "$title: no test"
done
((${#headers[@]} > 0)) || complain "no entry"

# SECURITY.md names tests and fuzz targets.
while read -r name; do
    [[ -n ${tests[$name]:-} ]] || complain "SECURITY.md: there is no test $name"
done < <(grep -oE '`[A-Z][A-Za-z0-9]*\.[A-Z][A-Za-z0-9]*[a-z]`' "$SOURCE/SECURITY.md" | grep -vE '\.(Test)`|SuiteName' | tr -d '`')
while read -r name; do
    [[ -f $SOURCE/tests/fuzz/$name.cpp ]] || complain "SECURITY.md: there is no fuzz target $name"
done < <(grep -oE 'fuzz target [A-Za-z0-9]+' "$SOURCE/SECURITY.md" | sed 's/.* //')
echo "${#headers[@]} entries, $failures complaints"
((failures == 0))
