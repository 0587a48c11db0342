"""Random scripts. The same seed gives the same script."""

import random

from .run import TRACK, Script

PROGRAMS = ("unit-monitor", "trip-recorder")
KEYS = ("00A1B2C3D4E5", "0123456789AB", "FFFFFFFFFFFF", "000000000001", "a0b0c0d0e0f0")
REGISTRATIONS = ("none", "searching", "home", "roaming", "denied", "unknown")
ANSWERS = ("ERROR", "+CME ERROR: 10", "+CMS ERROR: 500", "NO CARRIER", "BUSY")
REPORTS = ("RING", "+CMTI: SM,1", "NO CARRIER", "+QIND: SMS DONE")
DATE = "2026-03-01T08:15:00Z"


def bytes_of_noise(dice):
    return dice.choice((1, 3, 17, 64, 255, 1024, 4096))


def late(dice):
    """Most devices are late enough to matter, and early enough to be waited for."""
    return dice.choice((1, 20, 90, 150, 450, 1200, 3100, 20_000, 600_000))


def real(dice, low, high):
    return f"{dice.uniform(low, high):.{dice.choice((0, 1, 3))}f}"


# Of each subject: what can happen to it, as (weight, how it is said).
STEPS = {
    "events": (
        (6, lambda d: "ignition on"), (6, lambda d: "ignition off"), (3, lambda d: "power low"),
        (3, lambda d: "power back"), (2, lambda d: f"trigger {d.choice((1, 2, 3, 5))} {d.randint(1, 5)}"),
        (1, lambda d: f"trigger {d.choice((0, 6, 7, 100, 255))} {d.randint(1, 20)}"),
    ),
    "pins": (
        (1, lambda d: f"pin {d.randint(100, 106)} refused"), (2, lambda d: f"pin {d.randint(100, 106)} well"),
    ),
    "reader": (
        (6, lambda d: f"key {d.choice(KEYS)}"), (4, lambda d: "key none"), (1, lambda d: "reader silent"),
        (1, lambda d: f"reader late {late(d)}"), (1, lambda d: "reader wrong"),
        (1, lambda d: f"reader cut {d.randint(0, 17)}"), (1, lambda d: f"reader noise {bytes_of_noise(d)}"),
        (4, lambda d: "reader well"),
    ),
    "gps": (
        (3, lambda d: "gps lost"), (3, lambda d: "gps found"), (1, lambda d: "gps reset"),
        (1, lambda d: "gps silent"), (1, lambda d: "gps wrong"), (1, lambda d: f"gps noise {bytes_of_noise(d)}"),
        (4, lambda d: "gps well"),
    ),
    "vehicle": (
        (2, lambda d: f"gps speed {real(d, 0, 400)}"), (1, lambda d: "gps stop"),
        (1, lambda d: f"gps position {real(d, -89, 89)} {real(d, -179, 179)}"), (2, lambda d: "gps drive"),
        (2, lambda d: "motion bump"), (3, lambda d: "motion crash"),
        (2, lambda d: f"motion brake {real(d, 0, 3)} {real(d, 0, 5)}"),
        (1, lambda d: f"motion corner {real(d, -3, 3)} {real(d, 0, 5)}"),
    ),
    "modem": (
        (1, lambda d: "modem unplug"), (2, lambda d: "modem plug"),
        (3, lambda d: f"modem signal {d.choice((*range(32), 99))}"),
        (3, lambda d: f"modem registration {d.choice(REGISTRATIONS)}"),
        (1, lambda d: "modem sim in"), (1, lambda d: "modem sim out"),
        (2, lambda d: f"modem supply {d.randint(0, 5000)}"),
        (1, lambda d: "modem stuck"), (1, lambda d: "modem silent"), (1, lambda d: f"modem late {late(d)}"),
        (1, lambda d: d.choice(("modem error", f"modem error {d.choice(ANSWERS)}"))),
        (1, lambda d: f"modem noise {bytes_of_noise(d)}"), (1, lambda d: f"modem report {d.choice(REPORTS)}"),
        (4, lambda d: "modem well"),
    ),
    "i2c": (
        (1, lambda d: "i2c dead"), (1, lambda d: "i2c refused"), (1, lambda d: "i2c nak"), (3, lambda d: "i2c well"),
    ),
    "buzzer": (
        (1, lambda d: "buzzer unplug"), (2, lambda d: "buzzer plug"), (1, lambda d: "buzzer silent"),
        (1, lambda d: "buzzer stuck"), (1, lambda d: f"buzzer late {late(d)}"), (3, lambda d: "buzzer well"),
    ),
    "sounder": (
        (1, lambda d: "sounder unplug"), (2, lambda d: "sounder plug"), (1, lambda d: "sounder refused"),
        (2, lambda d: "sounder well"),
    ),
    "card": (
        (1, lambda d: "card out"), (2, lambda d: "card in"), (2, lambda d: "card full"),
        (1, lambda d: "card read-only"), (1, lambda d: f"card slow {d.choice((1, 50, 700, 4000))}"),
        (1, lambda d: "card busy"), (3, lambda d: "card well"),
    ),
}

# What a line of the script can wait for without the risk that it never comes, once the program runs.
SIGNS = ("gps opened", "reader opened", "gps says RMC", "reader hears \\xAA", "events opened")


def pick(dice, subject):
    weights, makers = zip(*STEPS[subject])
    return dice.choices(makers, weights)[0](dice)


def fitting(dice, program):
    """The lines of the script that say how the unit is."""
    lines = [f"# program {program}", f"unit date {DATE}"]

    def maybe(probability, line):
        if dice.random() < probability:
            lines.append(line())

    maybe(0.4, lambda: "unit gps skm53")
    maybe(0.3, lambda: f"unit gps-fix-after {real(dice, 0, 20)}")
    maybe(0.3, lambda: f"unit track {TRACK.name}")
    maybe(0.3, lambda: f"unit seed {dice.randint(1, 1000)}")
    if dice.random() < 0.3:
        lines.append(f"unit key {dice.choice(KEYS)}")
        maybe(0.5, lambda: f"unit key-after {real(dice, 0, 20)}")
    maybe(0.2, lambda: f"unit modem {dice.choice(('absent', 'no-sim'))}")
    maybe(0.3, lambda: f"unit modem-signal {dice.choice((*range(32), 99))}")
    maybe(0.3, lambda: f"unit modem-registration {dice.choice(REGISTRATIONS)}")
    maybe(0.2, lambda: f"unit ignition-after {real(dice, 0, 20)}")
    maybe(0.1, lambda: f"unit crash-after {real(dice, 0, 20)}")
    maybe(0.3, lambda: "unit power-loss drop")
    maybe(0.3, lambda: f"# record {dice.choice(KEYS[:4])}")
    return lines


def moments(dice, count, length):
    """In order; some at once, some with the begin or the end, some on the application's own round times."""
    times = []
    while len(times) < count:
        kind = dice.random()
        if kind < 0.2 and times:
            time = dice.choice(times)
        elif kind < 0.3:
            time = 0.0
        elif kind < 0.35:
            time = length
        elif kind < 0.5:
            time = round(dice.uniform(0, length), 1)
        elif kind < 0.6 and times:
            time = round(dice.choice(times) + dice.choice((0.001, 0.05, 0.1, 0.3, 1)), 3)
        else:
            time = round(dice.uniform(0, length), 3)
        times.append(time)
    return sorted(times)


def ending(dice, length):
    """How the program ends, and what happens while it does."""
    how = dice.choices(("end", "power off", "ignition off, then power off", "power cut", "nothing"), (6, 2, 3, 2, 1))[0]
    lines = []
    if how == "ignition off, then power off":
        lines += [f"{length} ignition off", f"{length + dice.choice((0, 0.05, 0.3, 2))} power off"]
    elif how != "nothing":
        lines.append(f"{length} {how}")
    if dice.random() < 0.3 and how != "nothing":
        for _ in range(dice.randint(1, 4)):
            subject = dice.choice(sorted(STEPS))
            lines.append(f"+{dice.choice((0, 0.001, 0.05, 0.2, 1, 3))} {pick(dice, subject)}")
    return lines


def drive(seed):
    """(script, seconds after which the program ends by itself)"""
    dice = random.Random(seed)
    program = dice.choices(PROGRAMS, (2, 1))[0]
    length = round(dice.choice((dice.uniform(1, 10), dice.uniform(10, 60), dice.uniform(30, 150))), 3)
    subjects = sorted(STEPS)
    if program == "trip-recorder":
        subjects = ["card", "events", "gps", "i2c", "pins", "reader", "vehicle"]
    if dice.random() < 0.6:  # few subjects: what happens to one has time to show, or comes thick and fast
        subjects = dice.sample(subjects, dice.randint(1, 3))
    lines = fitting(dice, program)
    if dice.random() < 0.7 and not any(line.startswith("unit ignition-after") for line in lines):
        lines.append(f"{dice.choice((0, 0.5, 1.13, 3))} ignition on")
    for time in moments(dice, dice.choice((0, 2, 5, 10, 20, 40)), length):
        if dice.random() < 0.03:
            lines.append(f"when {dice.choice(SIGNS)}")
            lines.append(f"+{dice.choice((0, 0.001, 0.2, 1))} {pick(dice, dice.choice(subjects))}")
        lines.append(f"{time} {pick(dice, dice.choice(subjects))}")
    lines += ending(dice, length)
    return Script(lines), int(length) + 60
