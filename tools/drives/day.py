"""An ordinary day of a unit, as a script: trips and pauses, tunnels, other networks, and now and then something that
does not work, or is pulled out and put back."""

import random

from .generator import ANSWERS, DATE, KEYS, REGISTRATIONS, REPORTS
from .run import Script

CALM = 240  # seconds at the end, in which all is well


def clock(dice, mean, length):
    """Moments, `mean` seconds apart on average."""
    time = dice.expovariate(1 / mean)
    while time < length:
        yield time
        time += dice.expovariate(1 / mean)


# What happens every so many seconds, for how long (from, to), how it begins, and how it ends.
EPISODES = (
    (1800, (20, 200), lambda d: ["gps lost"], ["gps found"]),
    (7200, (5, 60), lambda d: ["gps silent"], ["gps well"]),
    (7200, (5, 60), lambda d: ["gps wrong"], ["gps well"]),
    (7200, (5, 60), lambda d: [f"gps noise {d.choice((3, 64, 255))}"], ["gps well"]),
    (5400, (5, 60), lambda d: ["reader silent"], ["reader well"]),
    (5400, (5, 60), lambda d: [d.choice((f"reader late {d.randint(1, 4000)}", "reader wrong",
                                         f"reader cut {d.randint(0, 16)}", f"reader noise {d.choice((1, 64))}"))],
     ["reader well"]),
    (5400, (10, 300), lambda d: ["modem unplug"], ["modem plug"]),
    (3600, (5, 120), lambda d: [d.choice(("modem silent", "modem stuck", f"modem late {d.choice((90, 450, 3000))}",
                                          f"modem error {d.choice(ANSWERS)}", f"modem noise {d.choice((3, 64, 1024))}",
                                          f"modem report {d.choice(REPORTS)}"))], ["modem well"]),
    (7200, (60, 900), lambda d: ["modem sim out"], ["modem sim in"]),
    (5400, (1, 60), lambda d: [d.choice(("i2c dead", "i2c nak", "i2c refused"))], ["i2c well"]),
    (7200, (10, 600), lambda d: ["buzzer unplug"], ["buzzer plug"]),
    # Who waits for the answer of a board that was silent waits until it is pulled out.
    (14400, (10, 60), lambda d: ["buzzer silent"], ["buzzer well", "buzzer unplug", "buzzer plug"]),
    (14400, (10, 60), lambda d: [d.choice(("buzzer stuck", f"buzzer late {d.randint(1, 3000)}"))], ["buzzer well"]),
    (7200, (10, 600), lambda d: ["sounder unplug"], ["sounder plug"]),
    (14400, (10, 60), lambda d: ["sounder refused"], ["sounder well"]),
    (7200, (5, 300), lambda d: [d.choice(("card out", "card full", "card read-only", "card busy", "card slow 50"))],
     ["card well", "card in"]),
    (7200, (2, 60), lambda d: [f"pin {(pin := d.randint(100, 104))} refused"], ["pin {pin} well"]),
    (3600, (10, 60), lambda d: ["power low"], ["power back"]),
)

# What happens every so many seconds.
MOMENTS = (
    (300, lambda d: f"modem signal {d.choice((*range(32), 99))}"),
    (1200, lambda d: f"modem registration {d.choice(REGISTRATIONS)}"),
    (600, lambda d: f"modem supply {d.randint(3300, 4200)}"),
    (600, lambda d: "motion bump"), (3600, lambda d: "motion crash"),
    (1200, lambda d: f"motion brake {d.uniform(0.1, 0.9):.2f} {d.uniform(0.5, 4):.1f}"),
    (900, lambda d: f"gps speed {d.randint(0, 130)}"), (1800, lambda d: "gps drive"),
    (10800, lambda d: "gps reset"), (7200, lambda d: f"trigger {d.choice((0, 6, 255))} {d.randint(1, 5)}"),
    (3600, lambda d: f"trigger {d.choice((1, 2, 3, 5))} {d.randint(1, 3)}"),
)


def trips(dice, length):
    time = dice.uniform(1, 120)
    while time < length:
        yield time, "ignition on"
        drive = dice.uniform(120, 3600)
        yield time + dice.uniform(1, 20), f"key {dice.choice(KEYS)}"
        yield time + drive, "ignition off"
        yield time + drive + dice.uniform(0.2, 30), "key none"
        time += drive + dice.uniform(60, 5400)


def day(seed, seconds):
    """The script of so many seconds, and what ends it."""
    dice = random.Random(seed)
    length = seconds - CALM
    steps = list(trips(dice, length))
    for mean, (low, high), begin, end in EPISODES:
        until = 0.0
        for time in clock(dice, mean, length):
            if time < until:
                continue  # one at a time
            until = time + dice.uniform(low, high)
            words = begin(dice)
            steps += [(time, word) for word in words]
            pin = words[0].split()[1] if words[0].startswith("pin ") else ""
            steps += [(until + i * 0.5, word.format(pin=pin)) for i, word in enumerate(end)]
    for mean, say in MOMENTS:
        steps += [(time, say(dice)) for time in clock(dice, mean, length)]
    steps = sorted((round(time, 3), step) for time, step in steps if time < length)
    calm = ["gps well", "reader well", "modem plug", "modem well", "modem sim in", "i2c well", "buzzer well",
            "buzzer unplug", "buzzer plug", "sounder plug", "sounder well", "card well", "card in"]
    calm += [f"pin {pin} well" for pin in range(100, 107)]
    lines = ["# program unit-monitor", f"unit date {DATE}"]
    lines += [f"{time} {step}" for time, step in steps] + [f"{length} {step}" for step in calm]
    return Script(lines + [f"{seconds} end"])
