"""What the unit monitor must have told of a run, and made the unit do.

Exact where the application has no freedom: events, LEDs, alerts, what it says of a driver. Elsewhere what has been
so for long enough must have been told, and nothing may be told that was not so shortly before. "Long enough" is the
library's own longest time for the operation (docs/limits.md) and the monitor's pauses between questions; where a
device is faulty what it tells is left open, and for the time that the library may take to recover from that."""

import bisect
import json
import re

from .findings import BLINK, MOMENT, Findings
from .timeline import EVER, Timeline, both, combine
from .unit import Unit, late_of, well_times, without

TICK = 0.1  # the main thread's
STALL = 0.7  # ... while it takes an accelerometer whose bus is stuck to pieces and looks for it again

EVENTS = {1: "ignition on", 2: "ignition off", 3: "power low", 4: "power off", 5: "power back"}

KEY_TIME = 2.5  # two requests, with a reset and two annoying commands between them
KEY_RECOVERY = 25  # Init() at most, and the pause before it
GPS_TIME = 4.0  # a block is handed over with the next; two of them where check sums changed; three of silence
GPS_START = 16.0  # 8.2 s of detection, five silent seconds, a block
MODEM_TIME = 6.0  # a round with its pause
MODEM_LOST = 25.0  # a round in which each question fails twice, with two looks at the bus
MODEM_RECOVERY = 110.0  # the slowest answer that is waited for, and a round
ALERT_RECOVERY = 40.0  # eight alerts of three seconds, and one that a faulty device holds up
ACC_TIME = 9.0  # three seconds of silence, a new try, three more

CHIPS = "sound chips"
REGISTRATIONS = {"none": "Not registered, ME is NOT currently searching.",
                 "searching": "Not registered, but ME is currently searching", "home": "Registered, home network",
                 "roaming": "Registered, roaming", "denied": "Registration denied", "unknown": "Unknown"}

LINES = [re.compile(pattern + "$") for pattern in (
    r"led: (left|right) (off|green|red|red blink 450)", r"event: (ignition (on|off|start)|power (low|off|back))",
    r"key: (reader (ready|silent|answers again)|no reader|taken away|annoying (on|off))",
    r"key: (last driver [0-9A-F]{12}|no driver on record)",
    r"key: driver [0-9A-F]{12}, (first on record|same as last time|another one)",
    r"acc: (accelerometer ready|no accelerometer|silent|speaks again|shock)",
    r"gps: (silent|speaks again|receiver (L26|SKM53|restarted)|wrong check sums|check sums right again)",
    r"gps: position (found|lost)",
    r"modem: (on the bus|not on the bus|no answer|answers again|(IMEI|IMSI|ICCID|firmware) .*)",
    r"modem: (registration .*|operator .*|signal (unknown|-\d+ dBm, \w+)|supply \d+ mV)",
    r"alert: (buzzer (1 x 100|2 x 200) ms|buzzer not there|sound chips|sound chips not there)",
    r"end: (stopping|stopped|power off|not waited for: [\w-]+|modem (not )?(disconnected|switched off))",
    # Of the library itself.
    r"(Report Descriptor Size:|Raw Name:|Raw Info:|\t(bustype|vendor|product):).*", r"POWER OFF, Bye\.",
    r"ERROR: .*", r"(HIDIOC\w+|write|printf): .*", r"\[.*\]\[ERROR\]Unable to unmount .*",
    r"/dev/.*: .*", r"Unable to open device: .*", r"")]


class Monitor:
    def __init__(self, run, moment=MOMENT):
        self.run = run
        self.unit = Unit(run)
        self.found = Findings(moment)
        self.moment = moment
        self.lines = run.lines
        stopping = next((t for t, text in self.lines if text == "end: stopping"), EVER)
        # It looks for the last driver before all else.
        self.begin = min([t for t, _ in self.lines] or [0.0])
        self.end = min(stopping, EVER if run.cut is None else run.cut, run.end)
        self.kills = len(self.unit.ends) > 1 or any(code == 4 for _, code in self.unit.triggers)

    RULES = ("whole", "events", "lights", "pins", "key", "record", "annoying", "gps", "restarts", "accelerometer",
             "shocks", "modem", "alerts")

    def check(self):
        for rule in self.RULES:
            getattr(self, rule)()
        return self.found.texts

    def told(self, subject):
        """(time, text) of the lines of a subject."""
        prefix = subject + ": "
        return [(t, text[len(prefix):]) for t, text in self.lines if text.startswith(prefix)]

    def timeline(self, subject, meanings, first):
        """What the lines of a subject said last. meanings: value by line"""
        line = Timeline(first)
        for time, text in self.told(subject):
            if text in meanings:
                line.set(time, meanings[text])
        return line

    def alternate(self, rule, subject, pairs):
        """Of each pair of lines never twice the same, and the first one first."""
        for pair in pairs:
            texts = [text for _, text in self.told(subject) if text in pair]
            if texts != [pair[i % 2] for i in range(len(texts))]:
                self.found.add(rule, f"{texts!r} do not take turns")

    # --- The whole run

    def whole(self):
        wanted = {0}
        if self.kills:
            wanted.add(137)  # asked to end twice, or more than ten seconds before it has switched the unit off
        if any(time == 0 for time in self.unit.ends):
            wanted.add(143)  # asked to end before it looks for that
        if self.run.status not in wanted:
            self.found.add("status", f"{self.run.status}: {self.run.errors[-300:]!r}")
        slow = max((faults.get("slow", 0) for faults in self.unit.card.over_time.between(0, 1)), default=0)
        if self.begin > slow * 20 / 1000 + self.moment:
            self.found.add("begin", f"the first line came at {self.begin:.3f} s")
        for time, text in self.lines:
            if not any(pattern.match(text) for pattern in LINES):
                self.found.add("line", f"{text!r} at {time:.3f} s")
        if self.run.status == 0 and self.run.cut is None:
            self.found.same("end", [text for _, text in self.told("end") if text in ("stopping", "stopped")],
                            ["stopping", "stopped"])

    # --- Events and LEDs

    def events(self):
        """Each trigger is told once, in its order and within a tick."""
        known = [(t, EVENTS[code]) for t, code in self.unit.triggers if code in EVENTS]
        told = self.told("event")
        self.found.same("events", [text for _, text in told], [text for _, text in known][:len(told)])
        for (at, text), (seen, _) in zip(known, told):
            if not at - self.moment <= seen <= max(at, self.begin) + self.stall(at) + self.moment:
                self.found.add("events", f"{text} of {at:.3f} s was told at {seen:.3f} s")
        for at, text in known[len(told):]:
            if max(at, self.begin) + self.stall(at) + self.moment < self.end:
                self.found.add("events", f"{text} of {at:.3f} s was not told")

    def stall(self, at):
        return TICK + (STALL if set(self.unit.i2c.between(at - 5, at + 1)) - {"well"} else 0)

    def lights(self):
        """Each LED's line comes with what changes it, and says what it is to show."""
        ignition = low = False
        left = []
        for time, text in self.told("event"):
            ignition = {"ignition on": True, "ignition off": False}.get(text, ignition)
            low = {"power low": True, "power back": False}.get(text, low)
            left.append((time, BLINK if low else "green" if ignition else "off"))
        right = [(t, "green" if text == "position found" else "red") for t, text in self.told("gps")
                 if text in ("position found", "position lost", "silent")]
        self.shown = {}
        for side, wanted, first in (("left", left, "off"), ("right", right, "red")):
            wanted = list(changes_in([(self.begin, first)] + wanted))
            seen = [(t, text.partition(" ")[2]) for t, text in self.told("led") if text.startswith(side)]
            # The power may go between a line and that of the LED.
            slack = 1 if self.run.cut is not None else 0
            texts, goal = [text for _, text in seen], [text for _, text in wanted]
            if texts != goal[:len(texts)] or len(goal) - len(texts) > slack:
                self.found.add("led", f"{side}: {seen!r} in place of {wanted!r}")
            for (at, text), (due, _) in zip(seen, wanted):
                if abs(at - due) > self.moment:
                    self.found.add("led", f"{side} {text} of {due:.3f} s came at {at:.3f} s")
            self.shown[side] = seen

    def pins(self):
        """The pins are what the LEDs are told to show."""
        for side, red, green in (("left", 102, 103), ("right", 100, 101)):
            mode = Timeline(None)
            for time, text in self.shown[side]:
                mode.set(time, text)
            self.found.pins(self, side, mode, red, green)

    # --- The key reader

    def reader_well(self):
        """True where nothing keeps the reader from its answers, None where something may."""
        well = well_times(self.unit.reader.over_time, KEY_RECOVERY, late_of(self.unit.reader))
        # A driver is told once he is on record: four calls that name a path on the card.
        slow = max((faults.get("slow", 0) for faults in self.unit.card.over_time.values), default=0) / 1000
        card = Timeline({})
        for time, faults in zip(self.unit.card.over_time.times[1:], self.unit.card.over_time.values[1:]):
            card.set(time, {name for name in faults if name == "slow"})
        begun = Timeline(None)
        begun.set(self.unit.reader_opened, True)
        return combine(lambda *all_of_them: all(all_of_them) or None, well, well_times(card, 6 * slow, 0), begun)

    def key(self):
        told = Timeline("")
        for time, text in self.told("key"):
            if match := re.match(r"driver ([0-9A-F]{12}),", text):
                if told.last == match[1]:
                    self.found.add("key", f"{text} at {time:.3f} s, which is there already")
                self.key_was_there(time, match[1])
                told.set(time, match[1])
            elif text == "taken away":
                if told.last == "":
                    self.found.add("key", f"taken away at {time:.3f} s though none was there")
                told.set(time, "")
        self.told_key = told
        well = self.reader_well()
        # One that was there for a moment is remembered by the reader until it was asked.
        still = Timeline(True)
        for time, key in self.unit.touches:
            if self.unit.key.at(time) != key:
                still.set(time, None)
                still.set(time + self.moment, True)
        self.found.settled("key", both(both(self.unit.key, well), still), told, KEY_TIME, self.end)
        for i, (time, key) in enumerate(self.unit.touches):
            around = [k for j, (t, k) in enumerate(self.unit.touches) if j != i and abs(t - time) < KEY_TIME]
            if (not around and time + KEY_TIME < self.end and told.at(time) != key and
                    set(well.between(time - KEY_TIME, time + KEY_TIME)) == {True} and time > KEY_TIME and
                    key not in told.between(time, time + KEY_TIME)):
                self.found.add("key", f"{key} of {time:.3f} s was not told")
        self.alternate("reader", "key", [("reader silent", "reader answers again")])
        silent = self.timeline("key", {"reader ready": "answers", "no reader": "silent", "reader silent": "silent",
                                       "reader answers again": "answers"}, "answers")
        truth = combine(lambda faults, w: "answers" if w else "silent" if "silent" in faults else None,
                        self.unit.reader.over_time, well)
        self.found.settled("reader", truth, silent,
                           16, self.end)  # two requests and annoying commands of three seconds, or Init()
        for time, text in self.told("key"):
            if text in ("reader silent", "no reader") and all(w for w in well.between(time - 16, time)):
                self.found.add("reader", f"{text} at {time:.3f} s though it answers")

    def key_was_there(self, time, key):
        well = self.reader_well()
        since = time - KEY_TIME
        while since > 0 and not all(well.between(since, time)):
            since -= 1  # a reader that is not understood remembers
        if key not in self.unit.key.between(since, time) and not any(
                since <= t <= time and k == key for t, k in self.unit.touches):
            self.found.add("key", f"{key} was told at {time:.3f} s, and was not there")

    def record(self):
        """What is said of a driver follows from those before, and the latest one is on the card."""
        first = self.run.script.comment("record") or ""
        card_at_begin = set()
        for faults in self.unit.card.over_time.between(0, self.moment):
            card_at_begin |= set(faults)
        drivers = [text for _, text in self.told("key") if text.startswith(("driver ", "last driver", "no driver"))]
        if not drivers:
            return
        if not card_at_begin & {"out"}:
            self.found.same("record", drivers[0], "last driver " + first if first else "no driver on record")
        last = drivers[0][len("last driver "):] if drivers[0].startswith("last") else ""
        for text in drivers[1:]:
            key = text.split()[1].rstrip(",")
            remark = "first on record" if not last else "same as last time" if key == last else "another one"
            self.found.same("record", text, f"driver {key}, {remark}")
            last = key
        touched = any(set(faults) & {"out", "full", "read-only", "slow"} for faults in self.unit.card.over_time.values)
        at_the_end = any(t > self.run.end - self.moment for t, text in self.told("key") if text.startswith("driver "))
        if not touched and not at_the_end:
            try:
                kept = json.loads((self.run.card / "db" / "driver-id.json").read_text())["driver-id"]
            except (OSError, ValueError, KeyError) as error:
                kept = "" if isinstance(error, FileNotFoundError) else repr(error)
            self.found.same("record", kept, last)

    def annoying(self):
        """The reader annoys while the ignition is on without a key."""
        told = self.timeline("key", {"annoying on": True, "annoying off": False}, False)
        self.alternate("annoying", "key", [("annoying on", "annoying off")])
        ignition = self.timeline("event", {"ignition on": True, "ignition off": False}, False)
        wanted = combine(lambda key, on, well: (key == "" and on) if well else None, self.told_key, ignition,
                         self.reader_well())
        self.found.settled("annoying", wanted, told, KEY_TIME, self.end)

    # --- The GPS receiver

    def gps_well(self):
        """True where what it sends can be read."""
        return well_times(without("lost", self.unit.gps), GPS_TIME + 2, 0)

    def gps(self):
        well = self.gps_well()
        told = self.timeline("gps", {"position found": True, "position lost": False, "silent": False}, False)
        self.alternate("gps", "gps", [("wrong check sums", "check sums right again"), ("silent", "speaks again")])
        restarted = Timeline(False)
        for time in self.unit.resets:
            restarted.set(time, True)
            restarted.set(time + GPS_TIME, False)
        fixed = Timeline(self.unit.fix_after <= 0)
        for start, following in zip([self.unit.gps_opened] + self.unit.resets, self.unit.resets + [EVER]):
            fixed.set(start, self.unit.fix_after <= 0)
            if start + self.unit.fix_after < following:
                fixed.set(start + self.unit.fix_after, True)
        fix = combine(lambda faults, w, f, r: ("lost" not in faults and f) if w and not r else None,
                      self.unit.gps.over_time, well, fixed, restarted)
        self.found.settled("gps", fix, told, lambda begin: GPS_START if begin <= 0 else max(
            GPS_TIME, GPS_START - begin), self.end)
        silent = self.timeline("gps", {"silent": True, "speaks again": False}, False)
        truth = combine(lambda faults, w: "silent" in faults if "silent" in faults or w else None,
                        self.unit.gps.over_time, well)
        self.found.settled("gps-silence", truth, silent,
                           lambda begin: GPS_TIME + 2 if begin > GPS_START else GPS_START + 6, self.end)
        wrong = self.timeline("gps", {"wrong check sums": True, "check sums right again": False}, False)
        truth = combine(lambda faults, w: True if set(faults) - {"lost"} == {"wrong"} else False if w else None,
                        self.unit.gps.over_time, well)
        self.found.settled("check-sums", truth, wrong, lambda begin: max(GPS_TIME + 2, GPS_START - begin), self.end)
        receivers = [text for _, text in self.told("gps") if text in ("receiver L26", "receiver SKM53")]
        fitted = "receiver SKM53" if self.run.script.unit("gps") == "skm53" else "receiver L26"
        if set(receivers) - {fitted} and all(well.between(0, GPS_START)) and not any(
                t < GPS_START for t in self.unit.resets):
            self.found.add("gps", f"{receivers[0]} where the {fitted} is fitted")
        if len(receivers) > 1:
            self.found.add("gps", "the receiver was introduced twice")
        for time, text in self.told("gps"):
            if text in ("silent", "wrong check sums") and all(
                    well.between(time - 8, time)) and time > GPS_START and not any(
                        0 <= time - reset < 8 for reset in self.unit.resets):
                self.found.add("gps", f"{text} at {time:.3f} s though it sends what is right")

    def restarts(self):
        well = self.gps_well()
        told = [t for t, text in self.told("gps") if text == "receiver restarted"]
        # What it says at its start is handed over with its next block, however long that takes.
        for time in told:
            if not any(reset <= time and (time - reset <= GPS_TIME or not all(well.between(reset, time)))
                       for reset in self.unit.resets):
                self.found.add("restarts", f"told at {time:.3f} s without one")
        for reset in self.unit.resets:
            alone = not any(0 < abs(reset - other) < GPS_TIME for other in self.unit.resets)
            if (alone and self.unit.resets.count(reset) == 1 and reset > GPS_START and reset + GPS_TIME < self.end and
                    all(well.between(reset - GPS_TIME, reset + GPS_TIME)) and
                    sum(reset <= t <= reset + GPS_TIME for t in told) != 1):
                self.found.add("restarts", f"that of {reset:.3f} s was not told")

    # --- The accelerometer

    def accelerometer(self):
        told = self.timeline("acc", {"accelerometer ready": True, "no accelerometer": False, "silent": False,
                                     "speaks again": True}, None)
        self.alternate("acc", "acc", [("silent", "speaks again")])
        # An adapter that refuses to select the chip does not disturb who has selected it.
        truth = combine(lambda state: {"well": True, "refused": None}.get(state, False), self.unit.i2c)
        self.found.settled("acc", truth, told, ACC_TIME, self.end)
        for time, text in self.told("acc"):
            if text == "silent" and set(self.unit.i2c.between(time - ACC_TIME, time)) == {"well"}:
                self.found.add("acc", f"silent at {time:.3f} s though it measures")

    def shocks(self):
        told = [t for t, text in self.told("acc") if text == "shock"]
        strong = [(begin, end) for begin, end, g in self.unit.manoeuvres if abs(g) > 1]
        # Pulse, batch of ten samples at 50 Hz behind those that wait already: 0.6 s; again where one follows another.
        # Two potholes at a time are more than one.
        bumps = [t for i, t in enumerate(self.unit.bumps) if any(
            abs(t - other) < 0.08 for j, other in enumerate(self.unit.bumps) if j != i)]
        causes = self.unit.crashes + bumps + [t for piece in strong for t in piece] + [
            t for begin, end in strong for t in [begin + i for i in range(1, int(end - begin) + 1)]]
        self.found.caused("shocks", told, causes, 1.5)
        for crash in self.unit.crashes:
            others = [t for t in causes if 0 < abs(t - crash) < 3] + [t for b, e in strong if b - 3 < crash < e + 3
                                                                      for t in (b,)]
            if (not others and self.unit.crashes.count(crash) == 1 and crash > 1 and crash + 1.5 < self.end and
                    set(self.unit.i2c.between(crash - ACC_TIME, crash + 1.5)) == {"well"} and
                    sum(crash <= t <= crash + 1.5 for t in told) != 1):
                self.found.add("shocks", f"that of {crash:.3f} s was not told once")

    # --- The cellular module

    def modem(self):
        bus = self.timeline("modem", {"on the bus": True, "not on the bus": False}, None)
        on = self.unit.on_bus
        well = well_times(self.unit.modem.over_time, MODEM_RECOVERY, late_of(self.unit.modem))
        self.found.settled("modem-bus", combine(lambda o, w: o if w or not o else None, on, well), bus,
                           lambda begin: MODEM_LOST if all(well.between(begin, begin)) else MODEM_RECOVERY, self.end)
        for time, text in self.told("modem"):
            if text in ("on the bus", "not on the bus") and (text == "on the bus") not in on.between(
                    time - MODEM_LOST, time):
                self.found.add("modem-bus", f"{text} at {time:.3f} s, which was not so")
            if text == "no answer" and all(on.between(time - MODEM_LOST, time)) and all(
                    well.between(time - MODEM_LOST, time)):
                self.found.add("modem", f"no answer at {time:.3f} s though it answers")
        reachable = combine(lambda o, w: o and w or None, on, well)
        first = MODEM_TIME + 4  # identity and everything else for the first time

        def check(what, truth, show):
            lines = Timeline(None)
            for time, text in self.told("modem"):
                if text.startswith(what + " "):
                    shown = text[len(what) + 1:]
                    lines.set(time, shown)
                    since = time - MODEM_TIME - 2
                    while since > 0 and not all(reachable.between(since, time)):
                        since -= 5  # what it said last before it went may be told late
                    unclear = any("report" in f or "noise" in f or "error" in f for f in
                                  self.unit.modem.over_time.between(-EVER, time))
                    if not unclear and shown not in map(show, truth.between(since, time)):
                        self.found.add("modem", f"{text} at {time:.3f} s, which was not so")
                elif text == "not on the bus":
                    lines.set(time, None)
            self.found.settled("modem", combine(lambda v, r: show(v) if r else None, truth, reachable), lines,
                               lambda begin: first if all(reachable.between(begin - 1, begin)) and begin > 0
                               else MODEM_LOST, self.end)

        registration = combine(lambda r, sim: r if sim else "none", self.unit.registration, self.unit.sim)
        check("registration", registration, REGISTRATIONS.get)
        check("signal", self.unit.signal, signal_text)

        # The supply is told where it differs by 50 mV from what was told last.
        shown = Timeline(None)
        for time, text in self.told("modem"):
            if text.startswith("supply "):
                shown.set(time, int(text.split()[1]))
            elif text == "not on the bus":
                shown.set(time, None)
        for begin, until, value in combine(lambda v, r: v if r else None, self.unit.supply, reachable).pieces(self.end):
            settled = begin + MODEM_LOST
            if value is not None and settled < until:
                for seen in shown.between(settled, until - self.moment):
                    if seen is None or abs(seen - value) >= 50:
                        self.found.add("modem", f"supply {seen} where it was {value} from {begin:.3f} s on")
                        break

    # --- The alerts

    def alerts(self):
        """Each alert that is raised sounds once, in its order; what is told to have sounded has."""
        raised = sorted([(t, "buzzer 2 x 200 ms") for t, text in self.told("acc") if text == "shock"] +
                        [(t, "buzzer 1 x 100 ms") for t, text in self.told("key") if text.startswith("driver ")] +
                        [(t, CHIPS) for t, text in self.told("event") if text == "power low"],
                        key=lambda alert: alert[0])
        told = [(t, text) for t, text in self.told("alert") if not text.endswith("not there")]
        heard = [(t, "buzzer " + text[len("buzzer sounds, "):]) for t, text in self.run.journal
                 if text.startswith("buzzer sounds, ")]
        heard += [(t, CHIPS) for t, text in self.run.journal if text == "sound chip 0x62 sounds at 10"]
        # A board that was late may hold the alerts up for as long.
        well = combine(lambda buzzer, sounder: buzzer and sounder,
                       well_times(self.unit.buzzer.over_time, ALERT_RECOVERY, late_of(self.unit.buzzer)),
                       well_times(self.unit.sounder.over_time, ALERT_RECOVERY, 0))
        for kind in ("buzzer 2 x 200 ms", "buzzer 1 x 100 ms", CHIPS):
            of_kind = [[t for t, text in alerts if text == kind] for alerts in (raised, told, heard)]
            self.sounds(kind, *of_kind, well)
        self.overdue(raised, told, well)

    def sounds(self, kind, raised, told, heard, well):
        """No more than were raised, none before it was, and each that was heard is told."""
        for name, times in (("told", told), ("heard", heard)):
            if any(bisect.bisect_right(raised, t + self.moment) < i + 1 for i, t in enumerate(times)):
                self.found.add("alerts", f"{kind} was {name} at {times!r}, raised at {raised!r}")
        rest = list(told)
        for time in heard:
            match = next((t for t in rest if time - self.moment <= t <= time + 3.2 + self.moment), None)
            if match is not None:
                rest.remove(match)
            elif all(well.between(time - 5, time + 5)) and time + 4 < self.end:
                self.found.add("alerts", f"{kind} was heard at {time:.3f} s and not told")
        for time in rest:
            if all(well.between(time - 5, time + 1)):
                self.found.add("alerts", f"{kind} was told at {time:.3f} s and not heard")

    def overdue(self, raised, told, well):
        """Eight may wait beside the one that sounds, which takes three seconds at most. Those of one moment come in
        any order."""
        for i, (time, _) in enumerate(raised):
            before = [t for t, _ in raised if time - ALERT_RECOVERY <= t <= time]
            by = time + 3.1 * len(before) + 0.5
            if len(before) > 8 or by > self.end or not all(well.between(time - ALERT_RECOVERY, by)):
                continue
            sounded = sum(time - self.moment <= t <= by for t, _ in told)
            if not sounded:
                self.found.add("alerts", f"{raised[i][1]} of {time:.3f} s did not sound by {by:.3f} s")
            # As many in a while as were raised in it, where nothing waited at its begin.
            if time == before[0]:
                due = [alert for alert in raised if time <= alert[0] <= time + ALERT_RECOVERY]
                last = due[-1][0] + 3.1 * len(due) + 0.5
                if len(due) <= 8 and last < self.end and all(well.between(time, last)):
                    behind = [alert for alert in raised if due[-1][0] < alert[0] <= last]
                    count = sum(time - self.moment <= t <= last for t, _ in told)
                    if not len(due) <= count <= len(due) + len(behind):
                        self.found.add("alerts", f"{count} sounded of {due!r}")


def signal_text(rssi):
    if rssi == 99:
        return "unknown"
    grade = next(name for most, name in ((9, "Marginal"), (14, "OK"), (19, "Good"), (31, "Excellent")) if rssi <= most)
    return f"{2 * rssi - 113} dBm, {grade}"


def changes_in(events):
    """(time, value) where it differs from the one before."""
    before = None
    for time, value in events:
        if value != before:
            yield time, value
        before = value
