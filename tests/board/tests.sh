#!/bin/sh
# On the board, in place of checks.sh: the scripts on the virtual unit, which runs here as on a developer's ARM board,
# and the libraries' own test programs, two at a time, a line each. A processor that is emulated takes some twenty times
# as long as the host: the tests that are long because they do a thing a great many times are left out.
cd /tmp
export LC_ALL=C.UTF-8
export GTEST_FILTER='-*LoadTest.*:*.AThousandExchanges*:*.TenMegabytes*:*.AMegabyte*:*EveryCharacterOfUnicode*'

if [ $# -eq 0 ]; then
    date -s '2026-03-01 08:00:00' >/dev/null # there is no battery behind the clock
    cp -r /board/programs/. / # where the tests that run them look for them
    for script in /board/scripts/*.script; do
        name="$(basename "$script" .script) on the virtual unit"
        wanted=$(sed -n 's/^# status: //p' "$script")
        # shellcheck disable=SC2046 # words
        timeout 300 virtual-unit run --fast --script "$script" -- $(sed -n 's/^# run: //p' "$script") >script.out 2>&1
        status=$?
        if [ "$status" -eq "${wanted:-0}" ]; then
            echo "ok - $name"
            echo 1 0 0 >"$name.counts"
        else
            echo "not ok - $name: status $status"
            sed 's/^/    /' script.out
            echo 0 1 0 >"$name.counts"
        fi
    done
    ls /board/tests | xargs -n 1 -P 2 "$0"
    cat ./*.counts | awk '{ good += $1; bad += $2; off += $3 }
        END { printf "board: %d passed, %d failed, %d skipped\n", good, bad, off; exit bad != 0 }'
    exit
fi

# One program; its counts go to a file.
start=$(date +%s)
timeout 900 "/board/tests/$1" >"$1.out" 2>&1
status=$?
seconds=$(($(date +%s) - start))
good=$(sed -n 's/^\[  PASSED  \] \([0-9]*\) tests\{0,1\}\.$/\1/p' "$1.out")
bad=$(sed -n 's/^ *\([0-9]*\) FAILED TESTS\{0,1\}$/\1/p' "$1.out")
off=$(sed -n 's/^\[  SKIPPED \] \([0-9]*\) tests\{0,1\}, listed below:$/\1/p' "$1.out")
if [ "$status" -eq 0 ] && [ "${good:-0}" -gt 0 ]; then
    echo "ok - $1: $good tests, $seconds s"
else
    echo "not ok - $1: status $status, $seconds s"
    grep -v '  OK \]' "$1.out" | tail -n 60 | sed 's/^/    /'
    bad=${bad:-1}
fi
echo "${good:-0} ${bad:-0} ${off:-0}" >"$1.counts"
