"""The shortest script that still fails in the same way."""

import re
import time

from .run import Script

LONGEST = 900  # seconds that are spent on one


def shorter(lines, fails, until):
    """Leaves out as many lines as it can: halves at first, then smaller parts."""
    size = max(len(lines) // 2, 1)
    while True:
        begin = 0
        while begin < len(lines) and time.monotonic() < until:
            rest = lines[:begin] + lines[begin + size:]
            if len(rest) < len(lines) and fails(rest):
                lines = rest
            else:
                begin += size
        if size == 1 or time.monotonic() >= until:
            return lines
        size = max(size // 2, 1)


def rounder(lines, fails, until):
    """Rounds the times, where that makes no difference."""
    for i, line in enumerate(lines):
        match = re.match(r"(\+?)(\d+\.\d+) (.*)$", line)
        for digits in (0, 1, 2) if match else ():
            rounded = f"{match[1]}{float(match[2]):.{digits}f} {match[3]}"
            tried = lines[:i] + [rounded] + lines[i + 1:]
            if time.monotonic() < until and fails(tried):
                lines = tried
                break
    return lines


def reduce(script, fails):
    """fails(Script) tells whether it still does."""
    until = time.monotonic() + LONGEST
    kept = [line for line in script.lines if line.startswith(("# program", "unit date"))]
    rest = [line for line in script.lines if line not in kept]

    def still(lines):
        return fails(Script(kept + lines))

    return Script(kept + rounder(shorter(rest, still, until), still, until))
