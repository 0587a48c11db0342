"""Runs test programs for tools/mutate, inside of tools/mutation/sandbox: a request per line on standard input, an answer
per line on standard output. A run has processes and a /tmp of its own, which end with it."""

import json
import os
import pathlib
import re
import resource
import subprocess
import sys
import time

RECORD = pathlib.Path("/record/reached")
OUTPUT = pathlib.Path("/record/output")
NOBODY = 65534
UNPRIVILEGED = {
    "1": ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", "--no-new-privs", "--bounding-set=-all", "--inh-caps=-all"],
    "0": ["unshare", "--user", f"--map-user={NOBODY}", f"--map-group={NOBODY}", "setpriv", "--no-new-privs"],
}[sys.argv[1]]
WRAPPED = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "--propagation", "private",
           "sh", "-c", 'mount -t tmpfs -o mode=1777,size=512m run /tmp; '
           '[ ! -d /below-tmp ] || { mkdir -p "$0"; mount --bind /below-tmp "$0"; }; cd /tmp; "$@"; exit $?', sys.argv[2], *UNPRIVILEGED]


def limits(cpu):
    resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu + 1))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
    resource.setrlimit(resource.RLIMIT_FSIZE, (256 << 20, 256 << 20))
    os.setsid()


def run(request):
    environment = {"PATH": "/usr/bin:/bin:/usr/sbin:/sbin", "HOME": "/tmp", "LANG": "C.UTF-8", **request.get("environment", {})}
    if "records" in request:
        RECORD.write_bytes(bytes(request["records"]))
        RECORD.chmod(0o666)
        environment["TAV_MUTANT_RECORD"] = str(RECORD)
    begin = time.monotonic()
    with OUTPUT.open("wb") as output:
        process = subprocess.Popen(WRAPPED + request["command"], stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                   env=environment, preexec_fn=lambda: limits(request["processor_seconds"]))
        try:
            status = process.wait(request["seconds"])
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            status = "hangs"
    answer = {"status": status, "seconds": time.monotonic() - begin}
    if "records" in request:
        data = RECORD.read_bytes()
        answer["reached"] = [match.start() for match in re.finditer(b"\1", data)]
    if request.get("tells"):
        text = OUTPUT.read_bytes()
        answer["output"] = text[-request["tells"]:].decode("latin-1")
    OUTPUT.unlink()
    return answer


for line in sys.stdin:
    print(json.dumps(run(json.loads(line))), flush=True)
