"""What has a value at any time, and changes now and then."""

import bisect

EVER = float("inf")


class Timeline:
    def __init__(self, first):
        self.times = [-EVER]
        self.values = [first]

    def set(self, time, value):
        """From `time` on; to be called in the order of time."""
        if value == self.values[-1]:
            return
        if time == self.times[-1]:
            self.values[-1] = value
        else:
            self.times.append(time)
            self.values.append(value)

    @property
    def last(self):
        return self.values[-1]

    def at(self, time):
        return self.values[bisect.bisect_right(self.times, time) - 1]

    def between(self, begin, end):
        """All values from `begin` to `end`, both included."""
        first = bisect.bisect_left(self.times, begin) - 1
        return self.values[max(first, 0):bisect.bisect_right(self.times, end)]

    def pieces(self, end):
        """(begin, end, value) of each time in which nothing changes."""
        for i, (begin, value) in enumerate(zip(self.times, self.values)):
            until = self.times[i + 1] if i + 1 < len(self.times) else end
            if begin < end and not (i + 1 < len(self.times) and self.times[i + 1] <= begin):
                yield max(begin, 0.0), min(until, end), value


def combine(function, *timelines):
    """The function of several timelines at each time."""
    result = Timeline(function(*(line.values[0] for line in timelines)))
    for time in sorted({time for line in timelines for time in line.times[1:]}):
        result.set(time, function(*(line.at(time) for line in timelines)))
    return result


def both(value, well):
    """The value where it is well, else None."""
    return combine(lambda v, w: v if w else None, value, well)
