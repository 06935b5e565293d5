"""The processes that the bench starts, each of them ended by its own id."""

import os
import select
import signal
import subprocess
import time


class StepFailed(Exception):
    """A step of the bench that did not do what it should, and why."""


class Processes:
    """Starts processes, each the leader of a group of its own, and ends those that are left."""

    def __init__(self):
        self._running = []

    def start(self, arguments, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        process = subprocess.Popen([str(argument) for argument in arguments],
                                   start_new_session=True, **options)
        self._running.append(process)
        return process

    def run(self, arguments, limit=600, **options):
        """Runs a program to its end. Returns seconds and standard output. Throws StepFailed."""
        options.setdefault("stdout", subprocess.PIPE)
        begin = time.perf_counter()
        process = self.start(arguments, stderr=subprocess.PIPE, **options)
        try:
            output, errors = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            raise StepFailed(f"{_name(arguments)} did not end in {limit} s") from None
        finally:
            seconds = time.perf_counter() - begin
            self.stop(process)
        if process.returncode != 0:
            reason = (errors or output or b"").decode(errors="replace").strip().splitlines()
            raise StepFailed(f"{_name(arguments)} ended with status {process.returncode}"
                             + (f": {reason[-1]}" if reason else ""))
        return seconds, output

    def stop(self, process, ending=signal.SIGTERM):
        """Ends a process and what it started; at once when asking it does not help."""
        if process.poll() is None:
            _signal(process, ending)
            try:
                process.wait(20)
            except subprocess.TimeoutExpired:
                _signal(process, signal.SIGKILL)
                process.wait()
        if process in self._running:
            self._running.remove(process)
        for stream in (process.stdin, process.stdout, process.stderr):
            if stream:
                stream.close()

    def stop_all(self):
        for process in reversed(list(self._running)):
            self.stop(process)


def read_line(process, wanted, limit=60):
    """The first line of a process's output that holds a text. Throws StepFailed."""
    descriptor = process.stdout.fileno()
    text = b""
    end = time.monotonic() + limit
    while time.monotonic() < end:
        for line in text.splitlines(keepends=True):
            if wanted.encode() in line and line.endswith(b"\n"):
                return line.decode(errors="replace").strip()
        if not select.select([descriptor], [], [], 1)[0]:
            continue
        block = os.read(descriptor, 4096)
        if not block:
            break
        text += block
    raise StepFailed(f"{_name(process.args)} did not say '{wanted}': {text.decode(errors='replace')}")


def await_condition(what, condition, limit=60):
    """Waits until a condition holds. Throws StepFailed."""
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise StepFailed(f"waited in vain for {what}")
        time.sleep(0.02)


def _signal(process, number):
    try:
        os.killpg(process.pid, number)
        os.killpg(process.pid, signal.SIGCONT)
    except ProcessLookupError:
        pass


def _name(arguments):
    return os.path.basename(str(arguments[0]))
