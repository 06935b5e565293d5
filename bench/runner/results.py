"""What was measured, and how it compares."""

import statistics


class Goal:
    """What a figure should come to, compared with its reference or by itself."""

    def __init__(self, kind, number):
        self.kind = kind
        self.number = number

    def is_met(self, figure):
        if self.kind == "value":
            return figure.ours.median <= self.number
        if self.kind == "faster":
            return figure.cost <= 1 / self.number
        return figure.cost <= self.number

    def describe(self):
        if self.kind == "value":
            return f"at most {self.number:g}"
        if self.kind == "faster":
            return f"at least {self.number:g} times as fast"
        return f"at most {self.number:g} times"


def at_most(times):
    """So many times what the reference costs."""
    return Goal("cost", times)


def faster(times):
    return Goal("faster", times)


def value_at_most(number):
    return Goal("value", number)


class Measurement:
    """The values of one thing, one for each round."""

    def __init__(self, name, unit):
        self.name = name
        self.unit = unit
        self.values = []
        self.failure = None

    @property
    def is_complete(self):
        return self.failure is None and bool(self.values)

    @property
    def median(self):
        return statistics.median(self.values)

    def to_json(self):
        made = {"name": self.name, "unit": self.unit, "values": self.values}
        if self.is_complete:
            made |= {"median": self.median, "least": min(self.values), "most": max(self.values)}
        else:
            made["failure"] = self.failure or "not measured"
        return made


class Figure:
    """A measurement of ours beside its reference, where there is one."""

    def __init__(self, title, ours, reference, goal):
        self.title = title
        self.ours = ours
        self.reference = reference
        self.goal = goal

    @property
    def failure(self):
        for measurement in (self.ours, self.reference):
            if measurement is not None and not measurement.is_complete:
                return f"{measurement.name}: {measurement.failure or 'not measured'}"
        return None

    @property
    def cost(self):
        """What ours costs in units of what the reference costs: more is worse."""
        ratio = self.ours.median / self.reference.median
        return 1 / ratio if is_rate(self.ours.unit) else ratio

    @property
    def verdict(self):
        if self.failure:
            return "failed"
        if self.goal is None:
            return ""
        return "met" if self.goal.is_met(self) else "not met"

    def describe_comparison(self):
        if self.failure or self.reference is None:
            return ""
        if self.goal is not None and self.goal.kind == "faster":
            return f"{1 / self.cost:.2f} times as fast"
        return f"{self.cost:.2f} times"

    def to_json(self):
        made = {"title": self.title, "ours": self.ours.name, "verdict": self.verdict}
        if self.reference is not None:
            made["reference"] = self.reference.name
            if not self.failure:
                made["cost"] = self.cost
        if self.goal is not None:
            made["goal"] = self.goal.describe()
        if self.failure:
            made["failure"] = self.failure
        return made


class Group:
    """Figures that belong together, and are drawn together."""

    def __init__(self, name, title, note=""):
        self.name = name
        self.title = title
        self.note = note
        self.measurements = {}
        self.figures = []

    def measure(self, name, unit):
        return self.measurements.setdefault(name, Measurement(name, unit))

    def compare(self, title, ours, reference=None, goal=None):
        self.figures.append(Figure(title, self.measurements[ours],
                                   self.measurements[reference] if reference else None, goal))

    @property
    def failures(self):
        return [m for m in self.measurements.values() if not m.is_complete]

    def fail(self, reason):
        """Whatever has no value yet has failed."""
        for measurement in self.measurements.values():
            if not measurement.values and measurement.failure is None:
                measurement.failure = reason

    def to_json(self):
        return {"name": self.name, "title": self.title, "note": self.note,
                "measurements": [m.to_json() for m in self.measurements.values()],
                "figures": [f.to_json() for f in self.figures]}


def is_rate(unit):
    """True where more is better."""
    return unit.endswith("/s")
