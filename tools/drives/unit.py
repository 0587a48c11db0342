"""What happened to the unit in a run, as its log tells: the truth that an application is measured by."""

from .timeline import Timeline, combine


class Faults:
    """The faults of one device over time: a dictionary of those that it has."""

    def __init__(self, first=()):
        self.now = dict(first)
        self.over_time = Timeline(dict(self.now))

    def set(self, time, name, value=True):
        self.now[name] = value
        self.over_time.set(time, dict(self.now))

    def clear(self, time, *names):
        for name in names or list(self.now):
            self.now.pop(name, None)
        self.over_time.set(time, dict(self.now))


class Unit:
    """Times that an option counts from the first use of a port are taken from the recording."""

    def __init__(self, run):
        unit = run.script.unit
        self.triggers = []  # (time, code)
        if unit("ignition-after"):
            self.triggers.append((run.opened("tav_event") + float(unit("ignition-after")), 1))

        self.reader_opened = run.opened("ttymxc2")
        self.key = Timeline("")
        self.touches = []  # (time, id)
        self.key_comes = None
        if unit("key") and unit("key") != "none":
            self.key_comes = (run.opened("ttymxc2") + float(unit("key-after") or 0), unit("key").upper())

        self.gps = Faults()
        self.gps_opened = run.opened("ttymxc0")
        self.fix_after = float(unit("gps-fix-after") or 0)
        self.resets = []

        self.on_bus = Timeline(unit("modem") != "absent")
        self.modem = Faults()
        self.signal = Timeline(int(unit("modem-signal") or 20))
        self.registration = Timeline(unit("modem-registration") or "home")
        self.sim = Timeline(unit("modem") != "no-sim")
        self.supply = Timeline(3980)

        self.reader = Faults()
        self.i2c = Timeline("well")
        self.buzzer = Faults()
        self.sounder = Faults()
        self.card = Faults()
        self.pins = {pin: Timeline(True) for pin in range(100, 107)}
        self.crashes = [float(unit("crash-after"))] if unit("crash-after") else []
        self.bumps = []
        self.manoeuvres = []  # (begin, end, g)
        self.ends = []  # the program is asked to end

        for time, step in run.steps:
            if self.key_comes and self.key_comes[0] < time:
                self._touch(*self.key_comes)
                self.key_comes = None
            elif self.key_comes and self.key_comes[0] == time and step.startswith("key "):
                self.key.set(time, None)  # which of them came first is not known
                self.touches += [self.key_comes] + [(time, w.upper()) for w in step.split()[1:] if w != "none"]
                continue
            self._take(time, step.split())
        if self.key_comes:
            self._touch(*self.key_comes)
        self.triggers.sort(key=lambda trigger: trigger[0])  # keeps the order of those of one moment

    def _touch(self, time, key):
        self.key.set(time, key)
        self.touches.append((time, key))

    def _take(self, time, words):
        subject, what, *more = words if len(words) > 1 else (words[0], "")
        if subject in ("ignition", "power"):
            self._event(time, words)
            return
        {"trigger": self._trigger, "pin": self._pin, "key": self._key,
         "reader": self._reader, "gps": self._gps, "modem": self._modem,
         "motion": self._motion, "i2c": lambda t, w, m: self.i2c.set(t, w), "buzzer": self._buzzer,
         "sounder": self._sounder, "card": self._card,
         "end": lambda t, w, m: self.ends.append(t)}[subject](time, what, more)

    def _event(self, time, words):
        if words != ["power", "cut"]:
            code = {"ignition on": 1, "ignition off": 2, "power low": 3, "power off": 4, "power back": 5}
            self.triggers.append((time, code[" ".join(words)]))

    def _trigger(self, time, code, more):
        self.triggers += [(time, int(code))] * int(more[0] if more else 1)

    def _pin(self, time, pin, more):
        self.pins[int(pin)].set(time, more[0] == "well")

    def _key(self, time, what, _more):
        if what == "none":
            self.key.set(time, "")
        else:
            self._touch(time, what.upper())

    def _reader(self, time, what, more):
        if what == "well":
            self.reader.clear(time)
        else:
            self.reader.set(time, what, int(more[0]) if more else True)

    def _gps(self, time, what, more):
        if what == "well":
            self.gps.clear(time)
        elif what == "found":
            self.gps.clear(time, "lost")
        elif what == "reset":
            self.resets.append(time)
        elif what in ("lost", "silent", "wrong"):
            self.gps.set(time, what)
        elif what == "noise":
            self.gps.set(time, what, int(more[0]))

    def _modem(self, time, what, more):
        if what in ("unplug", "plug"):
            self.on_bus.set(time, what == "plug")
        elif what == "signal":
            self.signal.set(time, int(more[0]))
        elif what == "registration":
            self.registration.set(time, more[0])
        elif what == "sim":
            self.sim.set(time, more[0] == "in")
        elif what == "supply":
            self.supply.set(time, int(more[0]))
        elif what == "well":
            self.modem.clear(time)
        else:
            self.modem.set(time, what, " ".join(more))

    def _motion(self, time, what, more):
        if what == "crash":
            self.crashes.append(time)
        elif what == "bump":
            self.bumps.append(time)
        elif what in ("brake", "corner"):
            self.manoeuvres.append((time, time + float(more[1]), float(more[0])))

    def _buzzer(self, time, what, more):
        if what == "well":
            if "silent" in self.buzzer.now:
                self.buzzer.set(time, "asked")  # who waits for an answer from before waits on, until it is unplugged
            self.buzzer.clear(time, "silent", "stuck", "late")
        elif what == "plug":
            self.buzzer.clear(time, "unplug")
        else:
            self.buzzer.set(time, what, int(more[0]) if more else True)
            if what == "unplug":
                self.buzzer.clear(time, "asked")

    def _sounder(self, time, what, _more):
        if what in ("well", "plug"):
            self.sounder.clear(time, "refused" if what == "well" else "unplug")
        else:
            self.sounder.set(time, what)

    def _card(self, time, what, more):
        if what == "in":
            self.card.clear(time, "out")
        elif what == "well":
            self.card.clear(time, "full", "read-only", "slow", "busy")
        else:
            self.card.set(time, what, int(more[0]) if more else True)


def late_of(faults):
    """Seconds by which answers may come later than all else."""
    return max([int(f["late"]) / 1000 for f in faults.over_time.values if "late" in f], default=0)


def without(name, faults):
    """The faults over time but for those of that name."""
    return combine(lambda present: {fault for fault in present if fault != name}, faults.over_time)


def well_times(faults, recovery, late):
    """True where there is no fault and was none for `recovery` (and what came late), else None."""
    result = Timeline(True if not faults.values[0] else None)
    end = None
    for time, present in zip(faults.times[1:], faults.values[1:]):
        if end is not None and end <= time:
            result.set(end, True)
        end = None
        if present:
            result.set(time, None)
        else:
            end = time + recovery + late
            result.set(time, None)
    if end is not None:
        result.set(end, True)
    return result
