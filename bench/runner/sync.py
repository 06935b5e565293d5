"""A tree of many files of which few or none have changed."""

import getpass
import os
import shutil

from .network import SECURITIES, Step, run_steps
from .processes import StepFailed, await_condition
from .results import Group, at_most, faster
from .rounds import Contender, run_rounds
from .servers import ADDRESS, Host, SshServer, choose_port, is_answering


def run_groups(bench):
    return run_steps(bench, (Sync,))


class RsyncDaemon:
    """rsync's own server, which encrypts nothing."""

    def __init__(self, bench, folder):
        self.files = folder / "files"
        self.files.mkdir(parents=True)
        self.port = choose_port()
        self._bench = bench
        self._log = folder / "log"
        owner = f"uid = {os.geteuid()}\ngid = {os.getegid()}\n" if os.geteuid() == 0 else ""
        (folder / "config").write_text(f"""address = {ADDRESS}
port = {self.port}
use chroot = no
{owner}log file = {self._log}
[files]
path = {self.files}
read only = no
""")
        if shutil.which("rsync") is None:
            raise StepFailed("there is no rsync")
        self._process = bench.processes.start(
            ["rsync", "--daemon", "--no-detach", "--config", folder / "config"])
        await_condition("rsync", lambda: is_answering(self.port))

    def stop(self):
        self._bench.processes.stop(self._process)


class Sync(Step):
    """Ours beside rsync: to its daemon, and over ssh."""

    directories = 200
    changed_files = 20
    tasks = ("unchanged", "changed")
    daemon = "rsync, daemon"
    ssh = "rsync, ssh"

    def __init__(self, bench):
        self.files = bench.sizes.synced
        super().__init__(bench, Group(
            "sync", f"A tree of {self.files} files in {self.directories} directories, sent again",
            f"Unchanged, and with {self.changed_files} files changed; each with the time to connect. "
            "rsync's daemon encrypts nothing, ssh does."))
        for task in self.tasks:
            for name in (*self.ours.values(), self.daemon, self.ssh):
                self.group.measure(f"{task}: {name}", "s")
            self.group.compare(f"{task}, plain", f"{task}: {self.ours['plain']}",
                               f"{task}: {self.daemon}", at_most(1.5))
            self.group.compare(f"{task}, encrypted", f"{task}: {self.ours['encrypted']}",
                               f"{task}: {self.ssh}", faster(1))

    ours = {security: f"ours, {security}" for security in SECURITIES}

    def measure(self, stack):
        self.enter(stack)
        self.clock = 1_000_000_000
        for task in self.tasks:
            self.make_tree(self.folder / task)
        objects = self.bench.build / "lib/talvensor/modules/libTalvensor.FileObjects.so"
        model = self.bench.root / "FileObjects/model/Talvensor.FileObjects.NodeSet2.xml"
        self.host = self.start_host(stack, "--module", objects, "--model", model)
        self.server = self.start(stack, RsyncDaemon(self.bench, self.folder / "rsync"))
        self.shell = self.start(stack, SshServer(self.bench, self.folder / "ssh"))
        runs = []
        for task in self.tasks:
            runs += [self.contender(task, name, lambda t=task, s=security: self.run_ours(t, s),
                                    self.host.files / f"{task}-{security}")
                     for security, name in self.ours.items()]
            runs.append(self.contender(task, self.daemon, lambda t=task: self.run_daemon(t),
                                       self.server.files / task))
            runs.append(self.contender(task, self.ssh, lambda t=task: self.run_ssh(t),
                                       self.folder / f"over-ssh-{task}"))
        run_rounds(runs, self.bench.rounds)

    def make_tree(self, top):
        for number in range(self.files):
            folder = top / f"folder-{number % self.directories:03}"
            folder.mkdir(parents=True, exist_ok=True)
            file = folder / f"file-{number:05}"
            file.write_bytes(b"%0200d" % number)
            os.utime(file, (self.clock, self.clock))

    def contender(self, task, name, run, target):
        return Contender(self.group.measurements[f"{task}: {name}"], run,
                         clear=self.change if task == "changed" else lambda: None,
                         verify=lambda: self.verify(self.folder / task, target))

    def change(self):
        """Always the same files, so that each contender has as many to send."""
        self.clock += 10
        for number in range(self.changed_files):
            step = self.files // self.changed_files * number
            file = (self.folder / "changed" / f"folder-{step % self.directories:03}" /
                    f"file-{step:05}")
            file.write_bytes(b"%0200d" % self.clock)
            os.utime(file, (self.clock, self.clock))

    def verify(self, source, target):
        self.bench.processes.run(["diff", "-r", source, target])

    def run_ours(self, task, security):
        return self.host.run_fs(security, "sync", self.folder / task,
                                f"remote:{task}-{security}")[0]

    def run_daemon(self, task):
        return self.bench.processes.run(
            ["rsync", "-a", f"{self.folder / task}/",
             f"rsync://{ADDRESS}:{self.server.port}/files/{task}/"])[0]

    def run_ssh(self, task):
        return self.bench.processes.run(
            ["rsync", "-a", "-e", self.shell.command, f"{self.folder / task}/",
             f"{getpass.getuser()}@{ADDRESS}:{self.folder}/over-ssh-{task}/"])[0]
