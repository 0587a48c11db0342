#!/bin/sh
# On the board, in place of checks.sh: the unit monitor for the time that the script has, in the board's own time, with
# faults and unplugging. Each fifteen seconds a look from outside at what it takes; what it took in the first quarter is
# not to be exceeded in the last one.
cd /tmp || exit
export LC_ALL=C.UTF-8
seconds=$(sed -n 's/^\([0-9]*\) end$/\1/p' /board/soak.script)
until mount -t ext4 /dev/mmcblk3 /mnt/sdcard 2>/dev/null; do
    sleep 0.2
done
mkdir -p /mnt/sdcard/db

board-unit --script /board/soak.script unit-monitor --seconds $((seconds + 60)) --log /mnt/sdcard/log >out 2>&1 &
unit=$!
while kill -0 $unit 2>/dev/null; do
    sleep 15
    program=$(pidof unit-monitor) || continue
    resident=$(sed -n 's/^VmRSS:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$program/status" 2>/dev/null)
    threads=$(sed -n 's/^Threads:[^0-9]*\([0-9]*\).*/\1/p' "/proc/$program/status" 2>/dev/null)
    descriptors=$(ls "/proc/$program/fd" 2>/dev/null | wc -l)
    [ -z "$resident" ] || [ -z "$threads" ] || echo "$resident $descriptors $threads" >>samples
done
wait $unit
status=$?

passed=0
failed=0
check() # NAME COMMAND...
{
    name=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
        echo "ok - $name"
    else
        failed=$((failed + 1))
        echo "not ok - $name"
        tail -n 20 out | sed 's/^/    /'
    fi
}

flat() # COLUMN MORE
{
    awk -v column="$1" -v more="$2" '{ all[NR] = $column }
        END { part = int(NR / 4); if (part < 1) exit 1
              for (i = 1; i <= part; ++i) { if (all[i] > first) first = all[i]; if (all[NR + 1 - i] > last) last = all[NR + 1 - i] }
              exit last > first + more }' samples
}

check "the unit monitor ends in good order" test $status -eq 0
check "its memory stays what it was" flat 1 1024
check "its descriptors stay what they were" flat 2 6
check "its threads stay what they were" flat 3 1
check "its log goes on to the end" test "$(wc -l </mnt/sdcard/log)" -gt 10
for figure in "resident KiB" descriptors threads; do
    column=$((${column:-0} + 1))
    echo "soak: $figure: $(awk -v column=$column 'NR == 1 || $column < least { least = $column } $column > most { most = $column }
        END { print least " to " most }' samples)"
done
echo "soak: samples: $(wc -l <samples)"
echo "soak: steps: $(grep -c '^[0-9]' /board/soak.script)"
echo "soak: lines of the program: $(wc -l <out)"
echo "board: $passed passed, $failed failed"
[ $failed -eq 0 ]
