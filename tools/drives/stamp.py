"""usage: stamp.py FILE [SAMPLES SECONDS]

Copies standard input to FILE, each line behind the time since it began: that of the run, virtual where the run's is.
Each SECONDS a line of SAMPLES tells what the parent process, which is the program, takes then: time, resident and
anonymous memory and heap in KiB, descriptors, threads."""

import os
import select
import sys
import time


def sizes(path, *names):
    with open(path, encoding="ascii") as file:
        lines = {name: rest for name, _, rest in (line.partition(":") for line in file)}
    return [int(lines[name].split()[0]) for name in names]


def heap(process):
    with open(f"/proc/{process}/maps", encoding="utf-8") as file:
        for line in file:
            if line.rstrip().endswith("[heap]"):
                begin, end = line.split()[0].split("-")
                return (int(end, 16) - int(begin, 16)) // 1024
    return 0


def sample(process):
    resident, anonymous, threads = sizes(f"/proc/{process}/status", "VmRSS", "RssAnon", "Threads")
    return resident, anonymous, heap(process), len(os.listdir(f"/proc/{process}/fd")), threads


def main():
    begin = time.monotonic()
    file = os.open(sys.argv[1], os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND, 0o644)
    samples = os.open(sys.argv[2], os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND, 0o644) if sys.argv[2:] else -1
    pause = float(sys.argv[3]) if samples >= 0 else None
    due = pause
    rest = b""
    while True:
        wait = None if due is None else max(due - (time.monotonic() - begin), 0)
        if not select.select([0], [], [], wait)[0]:
            os.write(samples, ("%.3f %d %d %d %d %d\n" % (due, *sample(os.getppid()))).encode())
            due += pause
            continue
        part = os.read(0, 65536)
        if not part:
            break
        moment = time.monotonic() - begin
        *lines, rest = (rest + part).split(b"\n")
        os.write(file, b"".join(b"%.6f %s\n" % (moment, line) for line in lines))
    if rest:
        os.write(file, b"%.6f %s\n" % (time.monotonic() - begin, rest))


main()
