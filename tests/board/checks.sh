#!/bin/sh
# On the board: runs the examples against the peripherals behind the kernel's drivers, and says what came of it, a
# line each: "ok - NAME" or "not ok - NAME: WHY".
cd /tmp || exit

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

# same NAME WANTED FOUND: passes when two texts are equal.
same()
{
    echo "$2" >wanted
    echo "$3" >found
    if diff wanted found >differences; then
        ok "$1"
    else
        not_ok "$1" "wanted < and found >" differences
    fi
}

# Every script says in its head what it is run with, "# run: PROGRAM ARGUMENT...", with what status that ends if it is
# not 0, "# status: 1", how often a line is printed, if that matters, "# prints: 200 event 77", and what the first
# requests are that reach a device, "# requests of i2c-1:", a line each behind "#   ".
for script in /board/scripts/*.script; do
    name=$(basename "$script" .script)
    status=$(sed -n 's/^# status: //p' "$script")
    rm -rf recording
    # shellcheck disable=SC2046 # words
    check "$name" "${status:-0}" board-unit --script "$script" --record recording $(sed -n 's/^# run: //p' "$script")
    times=$(sed -n 's/^# prints: \([0-9]*\) .*/\1/p' "$script")
    if [ -n "$times" ]; then
        line=$(sed -n 's/^# prints: [0-9]* //p' "$script")
        same "$name: $times times \"$line\"" "$times" "$(grep -cxF "$line" out)"
    fi
    port=$(sed -n 's/^# requests of \(.*\):$/\1/p' "$script")
    if [ -n "$port" ]; then
        wanted=$(sed -n 's/^#   //p' "$script")
        same "$name: the requests of $port" "$wanted" \
            "$(sed -n 's/^ *[0-9.]* ? "\([^"]*\)".*/\1/p' "recording/$port.port" | head -n "$(echo "$wanted" | wc -l)")"
    fi
done

# The devices belong to the packages' group, so that an application needs not be root.
for device in /dev/ttymxc0 /dev/ttymxc2 /dev/tav_event; do
    check "$device is for the group alone" 0 test "$(board-unit stat -c '%G %a' $device)" = "tavdevice 660"
done
check "an ordinary user of the group sounds the alerts" 0 \
    board-unit --script /board/scripts/alert.script su driver -c /usr/bin/alert
check "an ordinary user of the group talks to the module" 0 \
    board-unit --script /board/scripts/modem-identity.script su driver -c /usr/bin/modem-info

# Times are longer than 32 bits.
check "a receiver in the year 2040" 0 board-unit --date 2214000000 --script /board/scripts/gps-fix.script \
    gps-monitor --log /tmp/log
check "the log in the year 2040" 0 grep -q 2040 /tmp/log

echo "board: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
