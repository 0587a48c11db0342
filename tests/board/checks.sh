#!/bin/sh
# On the board: runs the examples against the peripherals behind the kernel's drivers, and says what came of it, a
# line each: "ok - NAME" or "not ok - NAME: WHY".
cd /tmp || exit

passed=0
failed=0
again=0 # second chances

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

carry_out()
{
    case $1 in
        board-unit) timeout 150 "$@" >out 2>&1 ;;
        *) "$@" >out 2>&1 ;;
    esac
    status=$?
}

# check NAME STATUS COMMAND...: passes when COMMAND ends with STATUS. A program on the unit gets a second chance, which is
# told: where the host has no time for it, the emulated processor is too slow for what the library waits for.
check()
{
    name=$1
    wanted=$2
    shift 2
    carry_out "$@"
    if [ "$status" -ne "$wanted" ] && [ "$1" = board-unit ]; then
        echo "once more: $name"
        sed 's/^/    /' out | tail -n 40
        again=$((again + 1))
        put_card_in # the first run may have come to the power-off
        rm -rf recording /mnt/sdcard/trips
        carry_out "$@"
    fi
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

card_is_mounted()
{
    grep -q ' /mnt/sdcard ' /proc/mounts
}

put_card_in() # it may be there already; the kernel takes its time to find it
{
    looks=0
    until card_is_mounted || mount -t ext4 /dev/mmcblk3 /mnt/sdcard 2>/dev/null || [ "$looks" -eq 50 ]; do
        looks=$((looks + 1))
        sleep 0.2
    done
    card_is_mounted
}

end()
{
    [ "$again" -eq 0 ] || echo "board: $again of them at the second run"
    echo "board: $passed passed, $failed failed"
    [ "$failed" -eq 0 ]
    exit
}

check "the card is found" 0 put_card_in

# Every script says in its head what it is run with, "# run: PROGRAM ARGUMENT...", with what status that ends if it is
# not 0, "# status: 1", how often a line is printed, if that matters, "# prints: 200 event 77", and what the first
# requests are that reach a device, "# requests of i2c-1:", a line each behind "#   ".
for script in /board/scripts/*.script; do
    put_card_in # power-off has it unmounted
    name=$(basename "$script" .script)
    status=$(sed -n 's/^# status: //p' "$script")
    rm -rf recording
    # shellcheck disable=SC2046 # words
    check "$name" "${status:-0}" board-unit --script "$script" --record recording $(sed -n 's/^# run: //p' "$script")
    [ "$name" != power-off ] || check "power-off: the card is unmounted" 1 card_is_mounted
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

! grep -q board.checks=scripts /proc/cmdline || end

# left LINE BEFORE WANTED COMMAND...: passes when COMMAND leaves a line with all the settings that are wanted, words of
# stty, though it has had others BEFORE.
left()
{
    line=$1
    before=$2
    wanted=$3
    shift 3
    timeout 60 board-unit --script /tmp/key.script sh /board/settings "$line" "$before" "$@" >settings 2>/dev/null
    missing=$(echo "$wanted" | tr ',' '\n' | while read -r word; do
        grep -qF " $word " settings || echo "not $word"
    done)
    same "what $1 makes of $(basename "$line")" "" "$missing"
}

echo "unit key 00A1B2C3D4E5" >/tmp/key.script
hostile="1200 parenb cstopb cs7 -cread ignbrk brkint parmrk -ignpar istrip inlcr igncr icrnl ixon
    opost onlcr isig icanon iexten echo echoe echok min 9 time 9"
serial="cs8,-parenb,-cstopb,-crtscts,cread,clocal,ignpar,-ignbrk,-brkint,-parmrk,-istrip,-inlcr,-igncr,-icrnl,-ixon"
serial="$serial,-opost,-onlcr,-isig,-iexten,-echo,-echoe,-echok"
left /dev/ttymxc0 "$hostile" "$serial,speed 9600 baud,icanon,min = 1,time = 0" gps-monitor --seconds 5
left /dev/ttymxc2 "$hostile" "$serial,speed 9600 baud,-icanon,min = 0,time = 0" driver-id
left /dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0 "$hostile" \
    "$serial,speed 115200 baud,icanon,min = 1,time = 0" alert
# The module's line is opened without waiting for a carrier, and the rest of its settings stays what it was. Speed and
# frame are nothing to its driver, which keeps its own: 9600 baud, eight bits.
left /dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0 "$hostile ixoff ixany -clocal" \
    "speed 9600 baud,cread,clocal,-ixon,-ixoff,-ixany,-icrnl,-inlcr,-igncr,\
-opost,-icanon,-echo,-echoe,-isig,min = 9,time = 9,ignbrk,brkint,parmrk,istrip,iexten,echok" modem-info

# once_printed TEXT COMMAND...: waits in the background until what is checked next has printed a text, then carries out a
# command.
once_printed()
{
    rm -f out
    (
        looks=0
        until grep -q "$1" out 2>/dev/null || [ "$looks" -eq 600 ]; do
            looks=$((looks + 1))
            sleep 0.2
        done
        shift
        "$@"
    ) &
}

# A UART that loses its driver hangs up who has it open. The driver takes it again afterwards.
uart_of() # ttymxc0
{
    uart=$(basename "$(readlink -f "/sys/class/tty/$1/device")")
    echo "${uart%%:*}"
}
gps_uart=$(uart_of ttymxc0)
reader_uart=$(uart_of ttymxc2)
uarts=$(readlink -f "/sys/bus/platform/devices/$gps_uart/driver")
hang_up()
{
    echo "$1" >"$uarts/unbind"
}
take_again() # UART LINE
{
    echo "$1" >"$uarts/bind"
    udevadm settle
    test -c "/dev/$2"
}
cat >/tmp/hung-up.script <<'END'
expect program prints 8 satellites within 90
expect program prints nothing received within 90
+0 end
END
once_printed "8 satellites" hang_up "$gps_uart"
check "a receiver whose line is hung up" 0 board-unit --script /tmp/hung-up.script gps-monitor
check "the receiver's line is there again" 0 take_again "$gps_uart" ttymxc0
check "a receiver after the hang-up" 0 board-unit --script /board/scripts/gps-fix.script gps-monitor
cat >/tmp/hung-up.script <<'END'
expect program prints The reader is there within 90
expect program prints The reader gave no answer within 90
+0 end
END
once_printed "The reader is there" hang_up "$reader_uart"
check "a key reader whose line is hung up" 1 board-unit --script /tmp/hung-up.script driver-id
check "the key reader's line is there again" 0 take_again "$reader_uart" ttymxc2
check "a key reader after the hang-up" 0 board-unit --script /board/scripts/key.script driver-id

# processor_time PROGRAM: hundredths of a second that it has used.
processor_time()
{
    awk '{ print $14 + $15 }' "/proc/$(pidof "$1")/stat"
}

# An event driver that is no more: whoever waits for it is told so at once, each time.
end_event_driver()
{
    echo 1 >/sys/class/cuse/tav_event/abort
    timeout 5 cat /dev/tav_event >/dev/null 2>dead
    before=$(processor_time ignition-light)
    sleep 5
    echo $(($(processor_time ignition-light) - before)) >used
}
rm -f dead used
cat >/tmp/no-driver.script <<'END'
+5 ignition on
expect program prints event 1 within 90
+10 end
END
once_printed "event 1" end_event_driver
check "an application whose event driver dies ends in good order" 0 \
    board-unit --script /tmp/no-driver.script ignition-light
wait
check "... it was dead" 0 grep -q "not connected" dead
check "... and has taken less than a second of the five for it" 0 test "$(cat used)" -lt 100

# The devices belong to the packages' group, so that an application needs not be root.
for device in /dev/ttymxc0 /dev/ttymxc2 /dev/tav_event; do
    check "$device is for the group alone" 0 test "$(board-unit stat -c '%G %a' $device)" = "tavdevice 660"
done
check "an ordinary user of the group sounds the alerts" 0 \
    board-unit --script /board/scripts/alert.script su driver -c /usr/bin/alert
check "an ordinary user of the group talks to the module" 0 \
    board-unit --script /board/scripts/modem-identity.script su driver -c /usr/bin/modem-info

# What is on the card: see tools/board for what another machine finds there. How hard the braking was, and how soon a
# thing is seen, depends on how fast the emulator is.
{
    echo "unit track /board/drive.csv"
    sed 's/harsh braking 0.6 g/harsh braking/; s/ within [0-9]*/ within 20/' /board/drive.script
} >/tmp/trip.script
check "a trip" 0 board-unit --script /tmp/trip.script trip-recorder
check "the card is unmounted before the power goes" 1 card_is_mounted
put_card_in
trip=$(echo /mnt/sdcard/trips/*.csv)
same "the trip's remarks" "driver 00A1B2C3D4E5
harsh braking" "$(cut -d, -f6 "$trip" | sed '1d; s/ [0-9.]* g$//' | grep .)"

# Times are longer than 32 bits. Behind all the rest: some programs here may not bear the date.
check "a receiver in the year 2040" 0 board-unit --date 2214000000 --script /board/scripts/gps-fix.script \
    gps-monitor --log /mnt/sdcard/log
check "the log in the year 2040" 0 grep -q "2040.*GPS data: " /mnt/sdcard/log

sync # the log is left to the kernel, which takes half a minute; the record that follows is not
(cd /mnt/sdcard && md5sum log trips/* | sed 's/^/card: /')
echo "unit key 0BADC0FFEE01" >/tmp/key.script
check "another driver, just before the power goes" 0 board-unit --script /tmp/key.script driver-id
end
