"""Rounds in which everything that is compared takes its turn."""

import subprocess

from .processes import StepFailed

errors = (StepFailed, OSError, subprocess.SubprocessError, KeyError, ValueError)


class Contender:
    """One way of doing something. `run` gives a value for each measurement that it names.

    `clear` removes what a run left behind; `verify` throws StepFailed when it did not do what it
    should. Neither is timed."""

    def __init__(self, measurements, run, clear=lambda: None, verify=lambda: None):
        self.measurements = measurements if isinstance(measurements, list) else [measurements]
        self.run = run
        self.clear = clear
        self.verify = verify

    @property
    def is_running(self):
        return all(m.failure is None for m in self.measurements)

    def take_turn(self, record):
        try:
            self.clear()
            values = self.run()
            if record:
                values = values if isinstance(values, (list, tuple)) else [values]
                for measurement, value in zip(self.measurements, values, strict=True):
                    measurement.values.append(value)
            else:
                self.verify()
            self.clear()
        except errors as error:
            for measurement in self.measurements:
                measurement.failure = str(error) or type(error).__name__


def run_rounds(contenders, count):
    """First a round whose results are looked at, then those whose time counts, the contenders in
    turns forwards and backwards."""
    for number in range(count + 1):
        for contender in contenders if number % 2 == 0 else reversed(contenders):
            if contender.is_running:
                contender.take_turn(record=number > 0)
