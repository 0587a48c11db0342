"""Copies standard input to a file, each line behind the virtual time since it began: that of the run."""

import os
import sys
import time

begin = time.monotonic()
file = os.open(sys.argv[1], os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_APPEND, 0o644)
rest = b""
while part := os.read(0, 65536):
    moment = time.monotonic() - begin
    *lines, rest = (rest + part).split(b"\n")
    os.write(file, b"".join(b"%.6f %s\n" % (moment, line) for line in lines))
if rest:
    os.write(file, b"%.6f %s\n" % (time.monotonic() - begin, rest))
