"""What crosses the network."""

import contextlib
import filecmp
import json
import os
import shutil
import signal
import subprocess
import time

from .processes import StepFailed, await_condition, read_line
from .results import Group, at_most, faster, value_at_most
from .rounds import Contender, errors, run_rounds
from .servers import Host, NodeServer, SshServer, read_result

MIB = 2**20
GCM = "aes128-gcm@openssh.com"
SECURITIES = ("plain", "encrypted")


def run_groups(bench):
    return run_steps(bench, (LargeFiles, SmallFiles, Listing, Blocks, Events, Calls, Sessions,
                             Isolation))


def run_steps(bench, kinds):
    """Yields the groups that are wanted, each when it has been measured."""
    for make in kinds:
        step = make(bench)
        if not bench.wants(step.group.name):
            continue
        bench.say(step.group.title)
        try:
            with contextlib.ExitStack() as stack:
                step.measure(stack)
        except errors as error:
            step.group.fail(str(error) or type(error).__name__)
        yield step.group


class Step:
    """Measures one group in a folder of its own, gone afterwards."""

    def __init__(self, bench, group):
        self.bench = bench
        self.group = group
        self.folder = bench.folder / group.name

    def enter(self, stack):
        self.folder.mkdir()
        stack.callback(shutil.rmtree, self.folder, ignore_errors=True)

    def start(self, stack, made):
        stack.callback(made.stop)
        return made

    def start_host(self, stack, *options):
        return self.start(stack, Host(self.bench, self.folder / "host", *options))

    def start_ssh(self, stack):
        return self.start(stack, SshServer(self.bench, self.folder / "ssh"))


class AgainstSftp(Step):
    """Something that talvensor-fs and sftp both do, each with two kinds of encryption (none, for
    us), in a process that connects first."""

    # Names of contenders, ours first.
    ours = {security: f"ours, {security}" for security in SECURITIES}
    sftp = {None: "sftp", GCM: "sftp, aes128-gcm"}

    def declare(self, tasks):
        for task in tasks:
            for name in (*self.ours.values(), *self.sftp.values()):
                self.group.measure(f"{task}: {name}", "s")


class LargeFiles(AgainstSftp):
    """One file up and down."""

    def __init__(self, bench):
        size = bench.sizes.large
        super().__init__(bench, Group(
            "large-files", f"A file of {size // MIB} MiB",
            "Each with the time to connect, which stands by itself below; `cp` connects to nothing."))
        self.declare(("up", "down"))
        group = self.group
        for name in (*self.ours.values(), *self.sftp.values()):
            group.measure(f"connect: {name}", "s")
        group.measure("cp", "s")
        for task in ("up", "down"):
            group.compare(f"{task}, plain", f"{task}: ours, plain", f"{task}: sftp, aes128-gcm",
                          faster(2))
            group.compare(f"{task}, encrypted", f"{task}: ours, encrypted", f"{task}: sftp",
                          faster(1))
            group.compare(f"{task}, encrypted", f"{task}: ours, encrypted",
                          f"{task}: sftp, aes128-gcm", at_most(1.1))
            group.compare(f"{task}, plain", f"{task}: ours, plain", "cp")
        for security in SECURITIES:
            group.compare(f"connect only, {security}", f"connect: ours, {security}",
                          "connect: sftp")

    def measure(self, stack):
        self.enter(stack)
        self.source = self.folder / "source"
        self.bench.make_file(self.source, self.bench.sizes.large)
        self.host = self.start_host(stack)
        self.ssh = self.start_ssh(stack)
        self.remote = self.host.files / "file"
        self.local = self.folder / "local"
        self.served = self.host.files / "served"
        os.link(self.source, self.served)
        run_rounds([self.copy(), *self.connects(), *self.transfers("up", self.source, self.remote),
                    *self.transfers("down", self.served, self.local)], self.bench.rounds)

    def contender(self, name, run, target):
        return Contender(self.group.measure(name, "s"), run,
                         clear=lambda: target.unlink(missing_ok=True),
                         verify=lambda: self.verify(target))

    def verify(self, target):
        if not filecmp.cmp(self.source, target, shallow=False):
            raise StepFailed(f"{target.name} is not what was sent")

    def copy(self):
        return self.contender(
            "cp", lambda: self.bench.processes.run(["cp", self.source, self.local])[0], self.local)

    def connects(self):
        for security, name in self.ours.items():
            yield Contender(self.group.measure(f"connect: {name}", "s"),
                            lambda s=security: self.host.run_fs(s, "exists", self.host.files)[0])
        for cipher, name in self.sftp.items():
            yield Contender(self.group.measure(f"connect: {name}", "s"),
                            lambda c=cipher: self.ssh.run("pwd", cipher=c)[0])

    def transfers(self, task, source, target):
        command = {"up": "put", "down": "get"}[task]
        for security, name in self.ours.items():
            yield self.contender(
                f"{task}: {name}",
                lambda s=security: self.host.run_fs(s, command, source, target)[0], target)
        for cipher, name in self.sftp.items():
            yield self.contender(
                f"{task}: {name}",
                lambda c=cipher: self.ssh.run(f"{command} {source} {target}", cipher=c)[0], target)


class SmallFiles(AgainstSftp):
    """Many files up and down."""

    fresh = "up: ours, encrypted, files of the last minute"

    def __init__(self, bench):
        self.count = bench.sizes.small_files
        super().__init__(bench, Group(
            "small-files", f"{self.count} files of 4 KiB",
            "Each with the time to connect. Ours checks every file and sets its time, sftp does "
            "neither. The files are a day old; for those of the last minute ours takes two more "
            "calls each, since the time of such a file proves nothing."))
        self.declare(("up", "down"))
        self.group.measure(self.fresh, "s")
        for task in ("up", "down"):
            for security in SECURITIES:
                self.group.compare(f"{task}, {security}", f"{task}: ours, {security}",
                                   f"{task}: sftp", faster(8) if security == "encrypted" else None)
            self.group.compare(f"{task}, encrypted", f"{task}: ours, encrypted",
                               f"{task}: sftp, aes128-gcm")
        self.group.compare("up, files of the last minute", self.fresh, "up: sftp")

    def measure(self, stack):
        self.enter(stack)
        self.source = self.folder / "source"
        self.make_source(self.source)
        host = self.start_host(stack)
        ssh = self.start_ssh(stack)
        served = host.files / "served"
        shutil.copytree(self.source, served)
        targets = {"up": (self.source, host.files / "tree"), "down": (served, self.folder / "tree")}
        contenders = []
        for task, (source, target) in targets.items():
            command = {"up": "put", "down": "get"}[task]
            for security, name in self.ours.items():
                contenders.append(self.contender(
                    task, name, target,
                    lambda s=security, c=command, f=source, t=target: host.run_fs(
                        s, c, "-r", f, t)[0]))
            for cipher, name in self.sftp.items():
                contenders.append(self.contender(
                    task, name, target,
                    lambda k=cipher, c=command, f=source, t=target: ssh.run(
                        f"{c} -r {f} {t}", cipher=k)[0]))
        contenders.append(self.upload_fresh(host))
        run_rounds(contenders, self.bench.rounds)

    def make_source(self, folder):
        folder.mkdir()
        yesterday = time.time() - 24 * 60 * 60
        for number in range(self.count):
            file = folder / f"file-{number:05}"
            file.write_bytes(os.urandom(4096))
            os.utime(file, (yesterday, yesterday))

    def contender(self, task, name, target, run):
        return Contender(self.group.measure(f"{task}: {name}", "s"), run,
                         clear=lambda: shutil.rmtree(target, ignore_errors=True),
                         verify=lambda: self.verify(target))

    def upload_fresh(self, host):
        source, target = self.folder / "fresh", host.files / "fresh"
        shutil.copytree(self.source, source)

        def clear():
            shutil.rmtree(target, ignore_errors=True)
            for file in source.iterdir():
                os.utime(file)

        return Contender(self.group.measure(self.fresh, "s"),
                         lambda: host.run_fs("encrypted", "put", "-r", source, target)[0],
                         clear, lambda: self.verify(target))

    def verify(self, target):
        names = os.listdir(self.source)
        _, different, missing = filecmp.cmpfiles(self.source, target, names, shallow=False)
        if different or missing or len(os.listdir(target)) != len(names):
            raise StepFailed(f"{len(different)} files differ and {len(missing)} are missing")


class Listing(AgainstSftp):
    """A directory with as many entries as one event carries."""

    def __init__(self, bench):
        self.count = bench.sizes.entries
        super().__init__(bench, Group("listing", f"Listing {self.count} entries",
                                      "Each with the time to connect; output goes to a file."))
        self.declare(("ls -l",))
        for security in SECURITIES:
            self.group.compare(f"ls -l, {security}", f"ls -l: ours, {security}", "ls -l: sftp",
                               faster(3) if security == "encrypted" else None)
        self.group.compare("ls -l, encrypted", "ls -l: ours, encrypted",
                           "ls -l: sftp, aes128-gcm")

    def measure(self, stack):
        self.enter(stack)
        host = self.start_host(stack)
        ssh = self.start_ssh(stack)
        directory = host.files / "many"
        directory.mkdir()
        for number in range(self.count):
            (directory / f"entry-{number:05}").touch()
        self.output = self.folder / "output"
        contenders = []
        for security, name in self.ours.items():
            contenders.append(self.contender(
                name, lambda out, s=security: host.run_fs(s, "ls", "-l", directory, stdout=out)[0]))
        for cipher, name in self.sftp.items():
            contenders.append(self.contender(
                name, lambda out, c=cipher: ssh.run(f"ls -l {directory}", cipher=c, stdout=out)[0]))
        run_rounds(contenders, self.bench.rounds)

    def contender(self, name, run):
        def run_to_file():
            with open(self.output, "wb") as output:
                return run(output)
        return Contender(self.group.measure(f"ls -l: {name}", "s"), run_to_file,
                         verify=self.verify)

    def verify(self):
        names = {line.split()[-1].rsplit("/", 1)[-1]
                 for line in self.output.read_text().splitlines() if "entry-" in line}
        if len(names) != self.count:
            raise StepFailed(f"{len(names)} entries were listed instead of {self.count}")


class Blocks(Step):
    """Against the file transfer of another OPC UA stack, connections made before."""

    best_candidates = (MIB // 4, MIB, 4 * MIB, 8 * MIB)

    def __init__(self, bench):
        self.size = bench.sizes.blocks
        super().__init__(bench, Group(
            "blocks", f"A file of {self.size // MIB} MiB, against node-opcua's file transfer",
            "Plain connections, made before the clock runs. Its best blocks are the fastest of "
            + ", ".join(f"{size // 1024}" for size in self.best_candidates)
            + " KiB, chosen for each direction before; ours chooses by itself."))
        for task in ("up", "down"):
            self.group.measure(f"{task}: ours", "MB/s")
            self.group.measure(f"{task}: node-opcua, 60 KiB", "MB/s")
            self.group.measure(f"{task}: node-opcua, best", "MB/s")
            self.group.compare(f"{task}, 60 KiB", f"{task}: ours", f"{task}: node-opcua, 60 KiB",
                               faster(50))
            self.group.compare(f"{task}, best", f"{task}: ours", f"{task}: node-opcua, best",
                               faster(10))

    def measure(self, stack):
        self.enter(stack)
        self.source = self.folder / "source"
        self.bench.make_file(self.source, self.size)
        self.host = self.start_host(stack)
        self.node = self.start(stack, NodeServer(self.bench, self.folder / "node"))
        shutil.copy(self.source, self.host.files / "served")
        contenders = []
        for task in ("up", "down"):
            contenders += [self.ours(task), self.theirs(task, "60 KiB", 61440),
                           self.theirs(task, "best", self.find_best(task))]
        run_rounds(contenders, self.bench.rounds)

    def find_best(self, task):
        """The block size with which the other is fastest."""
        best = None
        for size in self.best_candidates:
            with contextlib.suppress(*errors):
                best = max(best or (0, 0), (self.run_theirs(task, size), size))
        if best is None:
            raise StepFailed("node-opcua moves the file with no block size")
        return best[1]

    def run_theirs(self, task, block):
        self.prepare_theirs(task)
        file = self.source if task == "up" else self.folder / "local"
        output = self.node.run(task, file, block)
        return self.size / 1e6 / read_result(output)["seconds"]

    def prepare_theirs(self, task):
        if task == "up":
            self.node.file.write_bytes(b"")
        else:
            shutil.copy(self.source, self.node.file)
            (self.folder / "local").unlink(missing_ok=True)

    def theirs(self, task, name, block):
        target = self.node.file if task == "up" else self.folder / "local"
        return Contender(self.group.measure(f"{task}: node-opcua, {name}", "MB/s"),
                         lambda: self.run_theirs(task, block), verify=lambda: self.verify(target))

    def ours(self, task):
        source, target = ((self.source, self.host.files / "file") if task == "up"
                          else (self.host.files / "served", self.folder / "ours"))
        numbered = target.with_name(target.name + "0")
        return Contender(self.group.measure(f"{task}: ours", "MB/s"),
                         lambda: self.size / 1e6 / run_transfers(
                             self.host, task, "plain", source, target)["slowest"],
                         clear=lambda: numbered.unlink(missing_ok=True),
                         verify=lambda: self.verify(numbered))

    def verify(self, target):
        if not filecmp.cmp(self.source, target, shallow=False):
            raise StepFailed(f"{target.name} is not what was sent")


def run_transfers(host, task, security, source, target, sessions=1):
    options = [*(["--upload"] if task == "up" else []),
               *(["--encrypted"] if security == "encrypted" else [])]
    _, output = host.run_client("TransfersBench", *options, "--state", host.state, "--source", source,
                                "--target", target, "--sessions", sessions)
    return json.loads(output)


class Events(Step):
    """From where an event is raised to a client's callback."""

    idle_time = 3.0

    def __init__(self, bench):
        super().__init__(bench, Group(
            "events", "Events",
            "From where Core raises an event to the callback of a client on loopback, beside a "
            "round trip of the same bytes between two threads over a plain TCP connection."))
        group = self.group
        for name in ("latency", "latency, p99", "loopback", "loopback, p99"):
            group.measure(name, "µs")
        group.measure("events", "1/s")
        group.measure("idle host", "% of a core")
        group.compare("raise to callback, median", "latency", "loopback", at_most(3))
        group.compare("raise to callback, p99", "latency, p99", "loopback, p99")
        group.compare("events a second", "events")
        group.compare("processor time of an idle host with a subscriber", "idle host", None,
                      value_at_most(0.5))

    def measure(self, stack):
        self.enter(stack)
        host = self.start_host(stack)
        measure = self.group.measurements
        run_rounds([
            Contender([measure[name] for name in
                       ("latency", "latency, p99", "loopback", "loopback, p99", "events")],
                      self.run_events),
            Contender(measure["idle host"], lambda: self.run_idle(host)),
        ], self.bench.rounds)

    def run_events(self):
        _, output = self.bench.processes.run(
            [self.bench.program("EventsBench"), "--module", self.bench.module, "--model",
             self.bench.model, "--folder", self.folder, "--count", self.bench.sizes.events])
        result = json.loads(output)
        return (result["latency"]["median"], result["latency"]["p99"],
                result["loopback"]["median"], result["loopback"]["p99"], result["perSecond"])

    def run_idle(self, host):
        watching = self.bench.processes.start(host.fs_command("plain", "watch"),
                                              env=host.fs_environment, stdout=subprocess.DEVNULL,
                                              stderr=subprocess.PIPE)
        try:
            # Without the time to log in and subscribe.
            await_condition("a subscriber", lambda: host.read_processor_time() > 0)
            time.sleep(0.5)
            host.await_idle()
            before = host.read_processor_time()
            time.sleep(self.idle_time)
            if watching.poll() is not None:
                raise StepFailed("the subscriber ended: " + watching.stderr.read().decode().strip())
            return (host.read_processor_time() - before) / self.idle_time * 100
        finally:
            self.bench.processes.stop(watching)


class Calls(Step):
    """Method calls that do next to nothing."""

    def __init__(self, bench):
        super().__init__(bench, Group(
            "calls", "Calls",
            "GetPosition on a plain connection, beside requests and answers of the same bytes over "
            "a plain TCP connection. The client is open62541's own."))
        group = self.group
        for who in ("calls", "loopback"):
            group.measure(f"{who}, median", "µs")
            group.measure(f"{who}, p99", "µs")
            group.measure(f"{who}, one by one", "1/s")
            group.measure(f"{who}, 16 in flight", "1/s")
        for what in ("median", "p99", "one by one", "16 in flight"):
            group.compare(what, f"calls, {what}", f"loopback, {what}")

    def measure(self, stack):
        self.enter(stack)
        host = self.start_host(stack)
        file = host.files / "file"
        file.write_bytes(b"content")
        measure = self.group.measurements
        run_rounds([
            Contender([measure[f"{who}, {what}"] for what in ("median", "p99", "one by one")
                       for who in ("calls", "loopback")],
                      lambda: self.run_one_by_one(host, file)),
            Contender([measure[f"{who}, 16 in flight"] for who in ("calls", "loopback")],
                      lambda: self.run_in_flight(host, file)),
        ], self.bench.rounds)

    def run(self, host, file, *options):
        return json.loads(host.run_client("CallsBench", "calls", "--path", file, *options)[1])

    def run_one_by_one(self, host, file):
        result = self.run(host, file, "--count", self.bench.sizes.calls)
        return (result["roundTrip"]["median"], result["loopback"]["median"],
                result["roundTrip"]["p99"], result["loopback"]["p99"],
                result["perSecond"], result["loopbackPerSecond"])

    def run_in_flight(self, host, file):
        result = self.run(host, file, "--count", self.bench.sizes.calls * 4, "--in-flight", 16)
        return result["perSecond"], result["loopbackPerSecond"]


class Sessions(Step):
    """Many sessions at once beside one that moves as much."""

    count = 100

    def __init__(self, bench):
        self.each = bench.sizes.session
        super().__init__(bench, Group(
            "sessions", f"{self.count} sessions at once, {self.each // MIB} MiB each",
            f"One session moves {self.count * self.each // MIB} MiB in one file. Connections are "
            "made before the clock runs. Fairness: the slowest session's time in units of the "
            "fastest one's."))
        group = self.group
        for security in SECURITIES:
            for task in ("up", "down"):
                name = f"{task}, {security}"
                group.measure(f"{name}: {self.count} sessions", "MB/s")
                group.measure(f"{name}: one session", "MB/s")
                group.measure(f"{name}: slowest to fastest", "times")
                group.compare(f"{name}, throughput", f"{name}: {self.count} sessions",
                              f"{name}: one session", faster(1))
                group.compare(f"{name}, fairness", f"{name}: slowest to fastest", None,
                              value_at_most(2))

    def measure(self, stack):
        self.enter(stack)
        host = self.start_host(stack, "--max-sessions", self.count + 20)
        self.sources = {}
        for sessions in (1, self.count):
            source = self.folder / f"source-{sessions}"
            self.bench.make_file(source, self.each * self.count // sessions)
            served = host.files / source.name
            os.link(source, served)
            self.sources[sessions] = (source, served)
        contenders = []
        for security in SECURITIES:
            for task in ("up", "down"):
                contenders += [self.contender(host, task, security, sessions)
                               for sessions in (1, self.count)]
        run_rounds(contenders, self.bench.rounds)

    def contender(self, host, task, security, sessions):
        source, served = self.sources[sessions]
        folder = (host.files if task == "up" else self.folder) / "targets"
        name = f"{task}, {security}"

        def clear():
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir()

        def run():
            host.await_idle()
            result = run_transfers(host, task, security, source if task == "up" else served,
                                   folder / "file", sessions)
            rate = self.each * self.count / 1e6 / result["slowest"]
            return rate if sessions == 1 else (rate, result["slowest"] / result["fastest"])

        def verify():
            files = list(folder.iterdir())
            if len(files) != sessions or not all(
                    filecmp.cmp(source, file, shallow=False) for file in files):
                raise StepFailed("what arrived is not what was sent")

        measure = self.group.measurements
        measured = ([measure[f"{name}: one session"]] if sessions == 1 else
                    [measure[f"{name}: {sessions} sessions"],
                     measure[f"{name}: slowest to fastest"]])
        return Contender(measured, run, clear, verify)


class Isolation(Step):
    """What one client notices of others that do not behave."""

    blocked = 50
    least_pending = MIB

    def __init__(self, bench):
        super().__init__(bench, Group(
            "isolation", "Calls beside clients that stand still",
            "Round trips of one client's calls: undisturbed, beside a client that is stopped while "
            "megabytes wait for it, and beside 50 clients that read from a pipe into which nobody "
            "writes."))
        group = self.group
        for name in ("undisturbed", "beside a stopped client", "beside 50 blocked clients"):
            group.measure(f"{name}, median", "µs")
            group.measure(f"{name}, p99", "µs")
        for name in ("beside a stopped client", "beside 50 blocked clients"):
            group.compare(f"p99 {name}", f"{name}, p99", "undisturbed, p99", at_most(3))
            group.compare(f"median {name}", f"{name}, median", "undisturbed, median")

    def measure(self, stack):
        self.enter(stack)
        # Those of earlier rounds may not have ended when the next ones come.
        self.host = self.start_host(stack, "--max-sessions", self.blocked * 10)
        self.file = self.host.files / "file"
        self.bench.make_file(self.file, self.bench.sizes.large)
        self.pipe = self.host.files / "pipe"
        os.mkfifo(self.pipe)
        runs = {"undisturbed": self.probe, "beside a stopped client": self.run_stopped,
                "beside 50 blocked clients": self.run_blocked}
        run_rounds([Contender([self.group.measurements[f"{name}, {what}"]
                               for what in ("median", "p99")], run, clear=self.host.await_idle)
                    for name, run in runs.items()], self.bench.rounds)

    def probe(self):
        _, output = self.host.run_client("CallsBench", "probe", "--path", self.file, "--count",
                                         self.bench.sizes.calls)
        result = json.loads(output)["roundTrip"]
        return result["median"], result["p99"]

    def start_client(self, said, *arguments, **options):
        client = self.bench.processes.start(
            [self.bench.program("CallsBench"), *arguments, "--url", self.host.url],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
        try:
            read_line(client, said)
        except StepFailed:
            self.bench.processes.stop(client)
            raise
        return client

    def run_stopped(self):
        client = self.start_client("reading", "reader", "--path", self.file, "--in-flight", 400)
        try:
            os.kill(client.pid, signal.SIGSTOP)
            self.host.await_idle()
            pending = self.host.read_pending()
            if pending < self.least_pending:
                raise StepFailed(f"only {pending} bytes wait for the stopped client")
            return self.probe()
        finally:
            self.bench.processes.stop(client, signal.SIGKILL)

    def run_blocked(self):
        writer = os.open(self.pipe, os.O_RDWR) # so that opening it does not wait
        try:
            client = self.start_client("blocked", "blocked", "--path", self.pipe, "--count",
                                       self.blocked, stdin=subprocess.PIPE)
            try:
                return self.probe()
            finally:
                self.bench.processes.stop(client)
        finally:
            os.close(writer)
