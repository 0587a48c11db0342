"""A drive: a script, a program on the virtual unit, and what the two have left behind."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

from .timeline import EVER

ROOT = pathlib.Path(__file__).resolve().parents[2]
TRACK = ROOT / "examples" / "trip-recorder" / "drive.csv"  # lies in the folder of each run
STAMP = pathlib.Path(__file__).with_name("stamp.py")
REAL_LIMIT = 600  # seconds: a run that takes longer hangs; a machine that is busy elsewhere makes one of seconds long

TIMED = re.compile(r"^ *(\d+\.\d+) s  (.*)$")


class Script:
    """A script of the virtual unit. What the run needs besides stands in comments: `# program NAME`, and
    `# record ID`, the driver that the card has on record before."""

    def __init__(self, lines):
        self.lines = list(lines)

    def text(self):
        return "".join(line + "\n" for line in self.lines)

    def comment(self, word):
        return next((line.split()[2] for line in self.lines if line.startswith(f"# {word} ")), None)

    def unit(self, option):
        return next((line.split()[2] for line in self.lines if line.startswith(f"unit {option} ")), None)

    @property
    def program(self):
        return self.comment("program")


class Run:
    """What is known after a run."""

    def __init__(self, script, seconds, status, errors, folder):
        self.script = script
        self.seconds = seconds  # after which the program was to end by itself
        self.status = status
        self.errors = errors
        self.log = self._timed(folder / "log")
        self.journal = self._timed(folder / "journal")
        self.steps = [(t, text[8:]) for t, text in self.log if text.startswith("script: ")]
        self.lines = self._stamped(folder / "out")
        self.samples = self._samples(folder / "samples")
        self.card = folder / "card"
        self.recording = folder / "recording"
        # A program that was killed has not told what it did at that very moment.
        self.cut = next((t for t, text in self.log if "was ended by" in text), None)

    def opened(self, port):
        """When the program opened it first, 0.0 when it never did; a path below /dev."""
        path = self.recording / (port + ".port")
        lines = path.read_text(errors="replace").splitlines() if path.exists() else []
        return next((float(line.split()[0]) for line in lines if line.endswith("! opened")), 0.0)

    @staticmethod
    def _timed(path):
        if not path.exists():
            return []
        found = map(TIMED.match, path.read_text(errors="replace").splitlines())
        return [(float(match[1]), match[2]) for match in found if match]

    @staticmethod
    def _stamped(path):
        lines = []
        if path.exists():
            for line in path.read_text(errors="replace").split("\n")[:-1]:
                time, _, text = line.partition(" ")
                lines.append((float(time), text))
        return lines

    @staticmethod
    def _samples(path):
        """(time, resident, anonymous, heap, descriptors, threads)"""
        return [tuple(map(float, line.split())) for line in path.read_text().splitlines()] if path.exists() else []

    @property
    def end(self):
        """Nothing later is known."""
        return max([t for t, _ in self.lines] + [t for t, _ in self.log] + [t for t, _ in self.journal] + [0.0])

    def first_step(self, *words):
        return next((t for t, step in self.steps if step in words), EVER)


class Build:
    """Where the programs are."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)

    @classmethod
    def make(cls):
        """That of the preset `dev`, up to date."""
        folder = ROOT / "build" / "dev"
        if not (folder / "build.ninja").exists():
            subprocess.run(["cmake", "--preset", "dev"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", folder, "--target", "virtual-unit", "unit-monitor", "trip-recorder"],
                       cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        return cls(folder)

    @property
    def virtual_unit(self):
        return self.folder / "virtual-unit" / "virtual-unit"

    def program(self, name):
        return self.folder / "examples" / name / name


def command(build, script, folder, seconds, *, fast=True, record=True, samples=None):
    """The command line of a run in an empty folder, which gets a card and the script.

    samples: seconds between two looks at what the program takes, which go to the file `samples`"""
    (folder / "script").write_text(script.text())
    shutil.copy(TRACK, folder)
    (folder / "card" / "db").mkdir(parents=True)
    if known := script.comment("record"):
        (folder / "card" / "db" / "driver-id.json").write_text('{"driver-id":"%s"}' % known)
    # The program takes the place of the shell: what the unit tells it reaches nobody else.
    stamp = [sys.executable, "-S", "-E", STAMP, folder / "out"]
    stamp += [folder / "samples", samples] if samples else []
    inside = f'exec "$0" "$@" > >(exec {shlex.join(map(str, stamp))}) 2>&1'
    return ([build.virtual_unit, "run"] + ["--fast"] * fast +
            ["--script", folder / "script", "--sdcard", folder / "card", "--log", folder / "log",
             "--journal", folder / "journal"] + ["--record", folder / "recording"] * record +
            ["--", "bash", "-c", inside, build.program(script.program), "--seconds", str(seconds),
             "--log", folder / "library.log"])


def perform(build, script, seconds, keep=None, limit=REAL_LIMIT, **how):
    """Runs it in a folder of its own, and calls keep(run) while that is still there. Returns what that gives.

    limit: seconds of the real time; how: as of command()"""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="random-drive-"))
    try:
        try:
            done = subprocess.run(command(build, script, folder, seconds, **how), cwd=folder, stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=limit,
                                  env={**os.environ, "LC_ALL": "C.UTF-8", "TZ": "UTC"})
            status, errors = done.returncode, done.stdout.decode(errors="replace")
        except subprocess.TimeoutExpired as hang:
            status, errors = None, (hang.stdout or b"").decode(errors="replace")
        run = Run(script, seconds, status, errors, folder)
        return keep(run) if keep else run
    finally:
        shutil.rmtree(folder, ignore_errors=True)
