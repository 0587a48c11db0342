"""What the trip recorder must have written to the card in a run, told, and made the LEDs show.

A row is compared to the last digit with the sentence that the receiver has sent, by the recording of its port; whether
it had to be written follows from the ignition and the card. Left open is what happens within a tick of the main
thread beside a change, and what becomes of positions while the card fails or the line is disturbed."""

import math
import re
import xml.etree.ElementTree

from .findings import MOMENT, Findings
from .monitor import GPS_START, KEY_RECOVERY, KEY_TIME
from .timeline import EVER, Timeline, combine
from .unit import Unit, late_of, well_times, without

TICK = 0.1
MOST_UNSYNCED = 5
GPX = "{http://www.topografix.com/GPX/1/1}"

LINES = [re.compile(pattern + "$") for pattern in (
    r"trip \d{8}-\d{6} (begins|ends)", r"driver [0-9A-F]{12}", r"harsh braking \d\.\d g", r"storage card: .*",
    r"no accelerometer: see the log", r"POWER OFF, Bye\.", r"ERROR: .*", r"\[.*\]\[ERROR\]Unable to unmount .*")]

ESCAPES = {"r": "\r", "n": "\n", "t": "\t"}


def unquoted(text):
    """The bytes, one character each, of what a recording tells of them."""
    if text.startswith("hex "):
        return bytes.fromhex(text[4:]).decode("latin-1")
    return re.sub(r"\\(x(..)|.)", lambda m: chr(int(m[2], 16)) if m[2] else ESCAPES.get(m[1], m[1]), text[1:-1])


def sentences(run):
    """(time of its end, text) of each line that the receiver has sent."""
    path = run.recording / "ttymxc0.port"
    begun = ""
    for line in path.read_text().splitlines() if path.exists() else ():
        match = re.match(r" *([\d.]+) < (.*)$", line)
        if not match:
            continue
        begun += unquoted(match[2])
        *whole, begun = begun.split("\n")
        for sentence in whole:
            yield float(match[1]), sentence.rstrip("\r")


def is_right(sentence):
    body, star, digits = sentence[1:].partition("*")
    wanted = 0
    for character in body:
        wanted ^= ord(character)
    try:
        return not star or int(digits[:2], 16) == wanted
    except ValueError:
        return False


def angle(text, hemisphere, negative):
    degrees = math.floor(float(text) / 100.0)
    value = degrees + (float(text) - degrees * 100.0) / 60.0
    return -value if hemisphere == negative else value


class Position:
    """What an RMC sentence tells, and when the application may have got it: it comes with the block of its second."""

    def __init__(self, sentence, at):
        fields = sentence.split("*")[0].split(",")
        clock, date = fields[1], fields[9]
        self.at = at
        self.until = EVER  # known when the next one comes
        self.fix = fields[2] == "A" and fields[3] != "" and fields[5] != ""
        self.moment = (f"20{date[4:6]}-{date[2:4]}-{date[0:2]}T"
                       f"{clock[0:2]}:{clock[2:4]}:{clock[4:6]}Z")
        self.name = f"20{date[4:6]}{date[2:4]}{date[0:2]}-{clock[0:6]}"
        if self.fix:
            self.row = (f"{self.moment},{angle(fields[3], fields[4], 'S'):.6f},"
                        f"{angle(fields[5], fields[6], 'W'):.6f},{float(fields[7]) * 1.852:.1f}")


def positions(run, skm53):
    """(the earliest and the latest time at which each was handed over is in it)"""
    found = []
    for at, text in sentences(run):
        begin = text.rfind("$")
        if begin >= 0 and text[begin + 3:begin + 6] == "RMC" and is_right(text[begin:]):
            position = Position(text[begin:], at)
            if found and not skm53:
                found[-1].until = at
            found.append(position)
    for position in found:
        if skm53:
            position.until = position.at
    return found


class Recorder:
    def __init__(self, run, moment=MOMENT):
        self.run = run
        self.unit = Unit(run)
        self.found = Findings(moment)
        self.moment = moment
        self.lines = run.lines
        slow = max((faults.get("slow", 0) for faults in self.unit.card.over_time.values), default=0) / 1000
        self.tick = TICK + 12 * slow  # as many calls as a trip's begin names paths on the card
        power_off = min((t for t, code in self.unit.triggers if code == 4), default=EVER)
        self.end = min([run.end, run.seconds, power_off] + self.unit.ends + ([] if run.cut is None else [run.cut]))
        self.fitted_skm53 = run.script.unit("gps") == "skm53"
        self.ignition = Timeline(False)
        self.offs = []
        for time, code in self.unit.triggers:
            if code == 1:
                self.ignition.set(time, True)
            elif code == 2:
                self.ignition.set(time, False)
                self.offs.append(time)
        self.undisturbed = all(not set(faults) - {"lost"} for faults in self.unit.gps.over_time.values) \
            and not self.unit.resets
        self.card_failed = any(set(faults) - {"slow", "busy"} for faults in self.unit.card.over_time.values)

    def check(self):
        self.whole()
        self.read_card()
        for rule in (self.trips, self.rows, self.maps, self.remarks, self.drivers, self.braking, self.lights):
            rule()
        return self.found.texts

    def whole(self):
        wanted = {0}
        # Asked to end twice, or not able to within ten seconds.
        if len(self.unit.ends) > 1 or self.tick > 5 or any(code == 4 for _, code in self.unit.triggers):
            wanted.add(137)
        if any(time == 0 for time in self.unit.ends):
            wanted.add(143)
        if self.run.status not in wanted:
            self.found.add("status", f"{self.run.status}: {self.run.errors[-300:]!r}")
        for time, text in self.lines:
            if not any(pattern.match(text) for pattern in LINES):
                self.found.add("line", f"{text!r} at {time:.3f} s")
            if text.startswith("storage card") and not self.card_failed:
                self.found.add("card", f"{text!r} though it is well")
            if text.startswith("no accel") and set(self.unit.i2c.between(-1, 1)) == {"well"}:
                self.found.add("line", f"{text!r} though it is well")

    def read_card(self):
        """The rows of each trip, in the order of the trips."""
        self.trips_told = [(t, text.split()[1], text.split()[2]) for t, text in self.lines if text.startswith("trip ")]
        self.tables = {}
        for path in sorted((self.run.card / "trips").glob("*.csv")):
            rows = path.read_text().split("\n")
            if rows == [""] and self.run.cut is not None:
                continue
            if rows[0] != "time,latitude,longitude,kmh,driver,remark" or rows[-1] != "":
                self.found.add("table", f"{path.name} begins or ends so: {rows[0]!r}, {rows[-1]!r}")
            self.tables[path.stem] = [row.split(",", 5) for row in rows[1:-1]]
            if any(len(row) != 6 for row in self.tables[path.stem]):
                self.found.add("table", f"{path.name} has a row that is none")
                self.tables[path.stem] = []

    def trips(self):
        begun = [name for _, name, what in self.trips_told if what == "begins"]
        ended = [name for _, name, what in self.trips_told if what == "ends"]
        if ended != begun and (self.run.status == 0 and self.run.cut is None or ended != begun[:-1]):
            self.found.add("trips", f"{begun} began, {ended} ended")
        if len(set(begun)) != len(begun):
            self.found.add("trips", f"twice the same: {begun}")
        told = set(begun)
        if self.run.cut is None and not self.card_failed:
            self.found.same("trips", sorted(self.tables), sorted(told))

    def rows(self):
        well = well_times(without("lost", self.unit.gps), 2, 0)
        # How a disturbed receiver was taken for is not known.
        known = self.undisturbed
        skm53 = self.fitted_skm53
        self.positions = positions(self.run, skm53 and known)
        by_moment = {}
        for position in self.positions:
            by_moment.setdefault(position.moment, []).append(position)
        written = [(row[0], name, ",".join(row[:4])) for name, rows in sorted(self.tables.items()) for row in rows]
        moments = [moment for moment, _, _ in written]
        if sorted(set(moments)) != moments:
            self.found.add("rows", f"not in the order of time, or twice: {moments}")
        for moment, _, text in written:
            if text not in [position.row for position in by_moment.get(moment, ()) if position.fix]:
                self.found.add("rows", f"{text} was never sent")
        have = dict((moment, name) for moment, name, _ in written)
        allowed = []
        lost = 0
        for position in self.positions:
            begin, until = position.at, position.until + self.tick + self.moment
            inside = set(self.ignition.between(begin, until))
            if position.moment in have:
                if True not in set(self.ignition.between(begin - self.moment, until)):
                    self.found.add("rows", f"{position.moment} without ignition")
                allowed.append(position)
            elif (position.fix and inside == {True} and until < self.end and self.card_well(until) and
                  begin > (GPS_START if skm53 or not known else 0.5) and well.at(begin) and
                  well.at(min(until, self.end)) and self.tick == TICK and
                  not any(begin - self.moment <= off <= until for off in self.offs)):
                lost += 1
                after = sum(p.fix and position.at < p.at < self.end for p in self.positions)
                if not (self.run.cut is not None and self.run.script.unit("power-loss") == "drop" and
                        after <= MOST_UNSYNCED):
                    self.found.add("rows", f"{position.moment} of {position.at:.3f} s is missing")
        # Those of one ignition are one trip.
        for before, behind in zip(allowed, allowed[1:]):
            off = any(before.until + self.tick < t < behind.at for t in self.offs)
            maybe = any(before.at - self.moment <= t <= behind.until + self.tick + self.moment for t in self.offs)
            together = have[before.moment] == have[behind.moment]
            if together and off or not together and not maybe:
                self.found.add("trips", f"{before.moment} and {behind.moment} are{'' if together else ' not'} of one")

    def card_well(self, until):
        return all(not set(faults) - {"busy"} for faults in self.unit.card.over_time.between(-1, until))

    def maps(self):
        for name, rows in self.tables.items():
            path = self.run.card / "trips" / (name + ".gpx")
            if self.run.cut is not None and self.run.script.unit("power-loss") == "drop" or self.card_failed:
                if not path.exists() or path.stat().st_size == 0:
                    continue
            try:
                points = xml.etree.ElementTree.parse(path).getroot().findall(f".//{GPX}trkpt")
            except (OSError, xml.etree.ElementTree.ParseError) as error:
                self.found.add("map", f"{name}: {error}")
                continue
            seen = [(p.get("lat"), p.get("lon"), p.findtext(GPX + "time"), p.findtext(GPX + "cmt") or "")
                    for p in points]
            wanted = [(row[1], row[2], row[0], row[5]) for row in rows]
            if self.card_failed:
                if not set(s[2] for s in seen) <= set(w[2] for w in wanted):
                    self.found.add("map", f"{name} has points that the table has not")
            elif seen != wanted and not (self.run.cut is not None and seen == wanted[:-1]):
                self.found.add("map", f"{name} differs from its table")

    def remarks(self):
        told = [(t, text) for t, text in self.lines if text.startswith(("driver ", "harsh "))]
        written = [(remark, name) for name, rows in sorted(self.tables.items()) for row in rows if row[5]
                   for remark in row[5].split("; ")]
        rest = iter(text for _, text in told)
        if not all(any(text == remark for text in rest) for remark, _ in written):
            self.found.add("remarks", f"{written} of {told}")
        if self.run.cut is not None or self.card_failed:
            return
        delivered = {position.moment: position.at for position in self.positions}
        for begin, name, what in self.trips_told:
            rows = self.tables.get(name)
            if what == "begins" and rows:
                last = delivered.get(rows[-1][0], 0)
                wanted = [text for t, text in told if begin + self.moment < t < last - self.tick]
                have = [remark for remark, trip in written if trip == name]
                missing = [text for text in wanted if text not in have]
                if missing:
                    self.found.add("remarks", f"{missing} of trip {name}")

    def drivers(self):
        driver = Timeline("")
        told = Timeline("")
        well = well_times(self.unit.reader.over_time, KEY_RECOVERY, late_of(self.unit.reader))
        for time, text in self.lines:
            if text.startswith("driver "):
                key = text.split()[1]
                if key == told.last:
                    self.found.add("key", f"{key} twice")
                told.set(time, key)
                driver.set(time, key)
                since = time - KEY_TIME - self.tick
                while since > 0 and not all(well.between(since, time)):
                    since -= 1
                if key not in self.unit.key.between(since, time) and not any(
                        since <= t <= time and k == key for t, k in self.unit.touches):
                    self.found.add("key", f"{key} at {time:.3f} s was not there")
            elif text.startswith("trip ") and text.endswith("ends"):
                driver.set(time, "")
        self.driver = driver
        begun = Timeline(None)
        begun.set(self.unit.reader_opened, True)
        truth = combine(lambda k, w, b: k if k and w and b else None, self.unit.key, well, begun)
        self.found.settled("key", truth, told, KEY_TIME + self.tick, self.end)
        at = {position.moment: position for position in self.positions}
        for rows in self.tables.values():
            for row in rows:
                position = at.get(row[0])
                if position and row[4] not in driver.between(position.at - self.moment, position.until + self.tick + 1):
                    self.found.add("driver", f"{row[4]!r} in the row of {row[0]}")

    def braking(self):
        told = [t for t, text in self.lines if text.startswith("harsh ")]
        strong = [(b, e) for b, e, g in self.unit.manoeuvres if abs(g) > 0.3]
        if self.run.script.unit("track") is None:
            for time in told:
                if not any(time - 1 - self.tick <= c <= time for c in self.unit.crashes) and not any(
                        b <= time <= e + 1 + self.tick for b, e in strong):
                    self.found.add("braking", f"told at {time:.3f} s without a cause")
        missing = any(text.startswith("no accel") for _, text in self.lines)
        for crash in self.unit.crashes:
            alone = not any(0 < abs(c - crash) < 3 for c in self.unit.crashes) and not any(
                b - 3 < crash < e + 3 for b, e in strong) and self.unit.crashes.count(crash) == 1
            if (alone and not missing and 1 < crash and crash + 1.5 + self.tick < self.end and
                    self.run.script.unit("track") is None and
                    set(self.unit.i2c.between(-1, crash + 1.5)) == {"well"} and
                    sum(crash <= t <= crash + 1.5 + self.tick for t in told) != 1):
                self.found.add("braking", f"that of {crash:.3f} s was not told once")

    def lights(self):
        begin = min([t for t, text in self.run.journal if text.startswith("pin 10")] or [0.0])
        ignition = Timeline(None)
        for i, (time, value) in enumerate(zip(self.ignition.times, self.ignition.values)):
            ignition.set(max(time, begin), value)
        left = combine(lambda on, driver: None if on is None else "red" if not on else
                       "green" if driver else "green blink 450", ignition, self.driver)
        if self.tick == TICK:
            self.found.pins(self, "left", left, 102, 103)
        if self.tick == TICK and self.undisturbed and not self.card_failed and (not self.fitted_skm53):
            right = Timeline(None)
            right.set(begin, "red")
            for position in self.positions:
                if position.until < EVER:
                    right.set(position.until, "green" if position.fix else "red")
            self.found.pins(self, "right", right, 100, 101)

