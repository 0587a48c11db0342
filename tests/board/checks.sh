#!/bin/sh
# On the board: runs the examples against the peripherals behind the kernel's drivers, and says what came of it, a
# line each: "ok - NAME" or "not ok - NAME: WHY".
cd /tmp

passed=0
failed=0

ok()
{
    passed=$((passed + 1))
    echo "ok - $1"
}

not_ok()
{
    failed=$((failed + 1))
    echo "not ok - $1: $2"
    sed 's/^/    /' "$3" | head -n 40
}

# check NAME STATUS COMMAND...: passes when COMMAND ends with STATUS.
check()
{
    name=$1
    wanted=$2
    shift 2
    timeout 150 "$@" >out 2>&1
    status=$?
    if [ "$status" -eq "$wanted" ]; then
        ok "$name"
    else
        not_ok "$name" "status $status" out
    fi
}

# Every script says in its first line what it is run with, "# run: PROGRAM ARGUMENT...", and in the second, if it is
# not 0, with what status that ends: "# status: 1".
for script in /board/scripts/*.script; do
    status=$(sed -n '2s/^# status: //p' "$script")
    # shellcheck disable=SC2046 # words
    check "$(basename "$script" .script)" "${status:-0}" board-unit --script "$script" \
        $(sed -n '1s/^# run: //p' "$script")
done

echo "board: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
