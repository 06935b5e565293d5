"""What one client notices of others that attack."""

import json
import signal
import subprocess

from .network import MIB, Step, run_steps
from .processes import read_line
from .results import Group, at_most
from .rounds import Contender, run_rounds
from .servers import Host


def run_groups(bench):
    return run_steps(bench, (Attacks,))


class Attacks(Step):
    """Calls of a client that behaves beside clients that do not."""

    attacks = {
        "sessions": "CreateSession without end",
        "reads": "reads of 20 000 values",
        "unfinished": "unfinished messages on 24 connections",
        "filters": "event filters with conditions, made and removed",
        "items": "a listing for thousands of items",
    }
    guesses = "six that guess another user's password"
    busy = "a process that leaves the host alone"
    entries = 3000
    password = "right"

    def __init__(self, bench):
        super().__init__(bench, Group(
            "attacks", "Calls beside attacks",
            "Round trips of one client's calls while another one attacks, beside those while "
            "nobody does, in turns against the same host. The client beside the guessing logs in "
            "as a user, encrypted, like its undisturbed reference. The process that leaves the "
            "host alone uses one processor: what the system's scheduler does to the calls then, "
            "it does beside an attack, too."))
        self.undisturbed = {"": "undisturbed", self.guesses: "undisturbed, logged in"}
        names = [*self.attacks.values(), self.guesses, self.busy]
        for name in (*self.undisturbed.values(), *names):
            self.group.measure(f"{name}, median", "µs")
            self.group.measure(f"{name}, p99", "µs")
        for name in names:
            reference = self.undisturbed.get(name, self.undisturbed[""])
            for what, goal in (("p99", None if name == self.busy else at_most(3)),
                               ("median", None)):
                self.group.compare(f"{what} beside {name}", f"{name}, {what}",
                                   f"{reference}, {what}", goal)

    def measure(self, stack):
        self.enter(stack)
        self.open = self.start_host(stack)
        self.file = self.open.files / "file"
        self.folder_of_many = self.open.files / "many"
        self.folder_of_many.mkdir()
        for number in range(self.entries):
            (self.folder_of_many / f"entry-{number:05}").touch()
        self.bench.make_file(self.file, MIB)
        self.locked, self.locked_file = self.start_locked(stack)
        runs = [self.contender(self.undisturbed[""], self.probe),
                self.contender(self.undisturbed[self.guesses], self.probe_as_user),
                *(self.contender(name, lambda a=attack: self.run_attack(a))
                  for attack, name in self.attacks.items()),
                self.contender(self.guesses, self.run_guesses),
                self.contender(self.busy, lambda: self.run_attack("busy"))]
        run_rounds(runs, self.bench.rounds)

    def start_locked(self, stack):
        """A host with two users."""
        users = self.folder / "users"
        for user in ("user", "other"):
            with open(self.make_input(self.password), "rb") as password:
                self.bench.processes.run(
                    [self.bench.program("talvensor-host"), "passwd", users, user], stdin=password)
        host = self.start(stack, Host(self.bench, self.folder / "locked", "--users", users,
                                      "--trust-any-client"))
        file = host.files / "file"
        self.bench.make_file(file, MIB)
        return host, file

    def make_input(self, text):
        file = self.folder / "input"
        file.write_text(text + "\n")
        return file

    def contender(self, name, run):
        def await_idle():
            self.open.await_idle()
            self.locked.await_idle()
        return Contender([self.group.measurements[f"{name}, {what}"] for what in ("median", "p99")],
                         run, clear=await_idle)

    def probe(self):
        return self.read(self.open.run_client("CallsBench", "probe", "--path", self.file,
                                              "--count", self.bench.sizes.calls))

    def probe_as_user(self):
        return self.read(self.locked.run_client(
            "CallsBench", "probe", "--path", self.locked_file, "--count", self.bench.sizes.calls,
            "--user", "user", "--password", self.password))

    def read(self, result):
        found = json.loads(result[1])["roundTrip"]
        return found["median"], found["p99"]

    def run_attack(self, attack):
        return self.run_beside(self.open, self.probe, attack, "--path", self.folder_of_many)

    def run_guesses(self):
        return self.run_beside(self.locked, self.probe_as_user, "logins", "--user", "other")

    def run_beside(self, host, probe, *attack):
        attacker = self.bench.processes.start(
            [self.bench.program("AttacksBench"), *attack, "--url", host.url],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        try:
            read_line(attacker, "attacking")
            return probe()
        finally:
            self.bench.processes.stop(attacker, signal.SIGKILL)
