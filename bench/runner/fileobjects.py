"""The standard's file objects, by the client of another OPC UA stack."""

import filecmp
import shutil

from .network import Step, run_steps
from .processes import StepFailed
from .results import Group, at_most, faster
from .rounds import Contender, run_rounds
from .servers import FileObjectsHost, NodeServer, read_result

MIB = 2**20
URI = "urn:Talvensor:FileObjects"


def run_groups(bench):
    return run_steps(bench, (Directories, Files))


class Directories(Step):
    """Browsing and listing directories."""

    few = 1000

    def __init__(self, bench):
        self.many = bench.sizes.entries
        super().__init__(bench, Group(
            "object-directories", f"File objects: directories of {self.few} and {self.many} entries",
            "node-opcua's client, connected before the clock runs, which takes much of the time. "
            "Browsing is in pages of 1000."))
        for count in (self.few, self.many):
            for what in ("first 100", "all"):
                self.group.measure(f"browse {what} of {count}", "s")
                self.group.compare(f"browse {what} of {count}", f"browse {what} of {count}")
        self.group.measure(f"List of {self.many}", "s")
        self.group.measure("List of the first module", "s")
        self.group.compare(f"List of {self.many}", f"List of {self.many}",
                           "List of the first module", at_most(1.5))

    def measure(self, stack):
        self.enter(stack)
        self.host = self.start(stack, FileObjectsHost(self.bench, self.folder / "host"))
        for count in (self.few, self.many):
            directory = self.host.files / str(count)
            directory.mkdir()
            for number in range(count):
                (directory / f"entry-{number:05}").touch()
        contenders = []
        for count in (self.few, self.many):
            contenders += [
                self.contender(f"browse first 100 of {count}", "browse", count, 100),
                self.contender(f"browse all of {count}", "browse", count, count)]
        contenders += [self.contender(f"List of {self.many}", "list", self.many, self.many),
                       self.contender("List of the first module", "list-first", self.many,
                                      self.many)]
        run_rounds(contenders, self.bench.rounds)

    def contender(self, name, task, directory, count):
        def run():
            result = self.host.run_node("objects.mjs", self.folder, self.host.files.name, task,
                                        str(directory), str(count))
            if result["entries"] != count:
                raise StepFailed(f"{result['entries']} entries came instead of {count}")
            return result["seconds"]
        return Contender(self.group.measure(name, "s"), run)


class Files(Step):
    """Reading and writing a file with node-opcua's ClientFile: ours, and its own server's."""

    def __init__(self, bench):
        self.size = bench.sizes.blocks
        super().__init__(bench, Group(
            "object-files", f"File objects: a file of {self.size // MIB} MiB by ClientFile",
            "Plain connections, made before the clock runs. Blocks of 1 MiB. Where the processor "
            "time of the client comes to the whole time of a transfer, the client is the limit."))
        for task in ("up", "down"):
            self.group.measure(f"{task}: our host", "MB/s")
            self.group.measure(f"{task}: node-opcua's server", "MB/s")
            self.group.compare(task, f"{task}: our host", f"{task}: node-opcua's server", faster(10))
        for task in ("up", "down"):
            self.group.measure(f"{task}: whole time", "s")
            self.group.measure(f"{task}: the client's processor time", "s")
            self.group.measure(f"{task}: our host's processor time", "s")
            self.group.compare(f"{task}, the client's processor time",
                               f"{task}: the client's processor time", f"{task}: whole time")
            self.group.compare(f"{task}, our host's processor time",
                               f"{task}: our host's processor time", f"{task}: whole time")

    def measure(self, stack):
        self.enter(stack)
        self.source = self.folder / "source"
        self.local = self.folder / "local"
        self.bench.make_file(self.source, self.size)
        self.host = self.start(stack, FileObjectsHost(self.bench, self.folder / "host"))
        self.node = self.start(stack, NodeServer(self.bench, self.folder / "node"))
        self.served = self.host.files / "served"
        contenders = []
        for task in ("up", "down"):
            contenders += [
                self.contender(task, self.served, self.run_ours,
                               [self.group.measure(f"{task}: {what}", unit) for what, unit in (
                                   ("our host", "MB/s"), ("whole time", "s"),
                                   ("the client's processor time", "s"),
                                   ("our host's processor time", "s"))]),
                self.contender(task, self.node.file, self.run_theirs,
                               [self.group.measure(f"{task}: node-opcua's server", "MB/s")])]
        run_rounds(contenders, self.bench.rounds)

    def run_ours(self, task, file):
        before = self.host.read_total_processor_time()
        result = self.host.run_node("client.mjs", file, self.folder, task, str(MIB), URI,
                                    f"f/{self.host.files.name}/{self.served.name}")
        return [self.compute_speed(result), result["seconds"], result["processor"],
                self.host.read_total_processor_time() - before]

    def run_theirs(self, task, file):
        return self.compute_speed(read_result(self.node.run(task, file, str(MIB))))

    def compute_speed(self, result):
        return self.size / 1e6 / result["seconds"]

    def contender(self, task, served, run, measurements):
        target = served if task == "up" else self.local

        def clear():
            self.local.unlink(missing_ok=True)
            if task == "up":
                served.write_bytes(b"")
            else:
                shutil.copy(self.source, served)

        def verify():
            if not filecmp.cmp(self.source, target, shallow=False):
                raise StepFailed(f"{target.name} is not what was sent")

        file = self.source if task == "up" else self.local
        return Contender(measurements, lambda: run(task, file), clear, verify)
