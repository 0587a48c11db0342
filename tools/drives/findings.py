"""What a model has to say about a run, and the comparisons that the models have in common."""

import re

from .timeline import Timeline

MOMENT = 0.0015  # rounding of the times in log and journal
BLINK = "red blink 450"
BLINK_TIME = 1.11  # a whole blink, a step of the LED's thread and a tick of the application


class Findings:
    def __init__(self, moment=MOMENT):
        self.texts = []
        self.moment = moment  # by which two times of the same may differ

    def add(self, rule, text):
        """What is compared under one name counts as the same failure when a script is reduced."""
        self.texts.append(f"{rule}: {text}")

    def settled(self, rule, truth, told, delay, end):
        """What has been so for `delay` is what the application has told last, and goes on telling.

        truth: a Timeline, None where the unit's state leaves it open; delay: seconds, or a function of the begin
        of a piece"""
        for begin, until, value in truth.pieces(end):
            settled = begin + (delay(begin) if callable(delay) else delay)
            if value is None or until <= settled:
                continue
            for seen in told.between(settled, until - self.moment):
                if seen != value:
                    self.add(rule, f"{seen!r} was told where {value!r} was so from {begin:.3f} to {until:.3f} s")
                    break

    def caused(self, rule, told, causes, longest):
        """Each of `told` (times) has a cause (times) of its own that precedes it by `longest` at most."""
        rest = sorted(causes)
        for time in sorted(told):
            cause = next((c for c in rest if time - longest <= c <= time + self.moment), None)
            if cause is None:
                self.add(rule, f"told at {time:.3f} s without a cause")
                return
            rest.remove(cause)

    def same(self, rule, seen, wanted):
        if seen != wanted:
            self.add(rule, f"{seen!r} in place of {wanted!r}")

    def pins(self, model, side, mode, red, green):
        """The LED's pins follow its mode (a Timeline; None: any), within BLINK_TIME."""
        levels = {pin: Timeline(None) for pin in (red, green)}
        for time, text in model.run.journal:
            if match := re.match(r"pin (\d+) = (\d) ", text):
                if int(match[1]) in levels:
                    levels[int(match[1])].set(time, int(match[2]))
        wanted = {"off": (0, 0), "green": (0, 1), "red": (1, 0), BLINK: (None, 0), "green blink 450": (0, None)}
        for begin, until, present in mode.pieces(model.end):
            settled = begin + BLINK_TIME
            for pin, value in zip((red, green), wanted.get(present, ())):
                well = set(model.unit.pins[pin].between(begin, until)) == {True}
                if not well or until <= settled + self.moment:
                    continue
                seen = set(levels[pin].between(settled, until - self.moment))
                if value is not None and seen != {value}:
                    self.add("pins", f"pin {pin} was {seen} while {side} was {present} "
                                     f"from {begin:.3f} to {until:.3f} s")
                elif value is None and until - settled > 1 and seen != {0, 1}:
                    self.add("pins", f"pin {pin} did not blink from {begin:.3f} to {until:.3f} s")
