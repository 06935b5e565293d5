"""What the bench connects to: our host, OpenSSH's server, and the reference's own server."""

import contextlib
import getpass
import json
import os
import shutil
import socket
import subprocess
import time
from pathlib import Path

from .processes import StepFailed, await_condition, read_line

ADDRESS = "127.0.0.1"


def choose_port():
    """A port that nobody uses: for servers that cannot choose one themselves."""
    with socket.socket() as probe:
        probe.bind((ADDRESS, 0))
        return probe.getsockname()[1]


def is_answering(port):
    with socket.socket() as probe:
        return probe.connect_ex((ADDRESS, port)) == 0


class Host:
    """A talvensor-host of its own that serves one folder."""

    def __init__(self, bench, folder, *options):
        self._bench = bench
        self.files = folder / "files"
        self.files.mkdir(parents=True)
        self._state = folder / "client"
        self.log = folder / "host.log"
        self._process = bench.processes.start(
            [bench.program("talvensor-host"), "--listen", f"opc.tcp://{ADDRESS}:0",
             "--root", self.files, "--module", bench.module, "--model", bench.model,
             "--pki", folder / "pki", "--trust-owner", str(bench.model.stat().st_uid),
             "--log-level", "warning", "--log-file", self.log, *options],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        line = read_line(self._process, "opc.tcp://")
        self.url = next(word for word in line.replace(",", " ").split()
                        if word.startswith("opc.tcp://"))
        self.port = int(self.url.rsplit(":", 1)[1])

    @property
    def state(self):
        """Where clients keep their keys and what they know of servers."""
        return self._state

    def fs_command(self, security, *arguments):
        """talvensor-fs with arguments."""
        accept = ["--accept-new"] if security == "encrypted" else []
        return [self._bench.program("talvensor-fs"), "-q", "-e", self.url, "--security", security,
                *accept, *arguments]

    @property
    def fs_environment(self):
        return os.environ | {"XDG_STATE_HOME": str(self._state), "XDG_CONFIG_HOME": str(self._state)}

    def run_fs(self, security, *arguments, **options):
        return self._bench.processes.run(self.fs_command(security, *arguments),
                                         env=self.fs_environment, **options)

    def run_client(self, name, *arguments, **options):
        """One of the bench's own clients."""
        return self._bench.processes.run(
            [self._bench.program(name), *arguments, "--url", self.url], **options)

    def read_processor_time(self):
        """Seconds that it has worked, all its threads and processes together that are there."""
        total = 0
        for process in _find_group(self._process.pid):
            for thread in Path(f"/proc/{process}/task").glob("*/schedstat"):
                with contextlib.suppress(FileNotFoundError, ProcessLookupError): # it has ended
                    total += int(thread.read_text().split()[0])
        return total / 1e9

    def read_total_processor_time(self):
        """As read_processor_time, with threads that have ended, in hundredths of a second."""
        total = 0
        for process in _find_group(self._process.pid):
            fields = Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()
            total += int(fields[11]) + int(fields[12])
        return total / os.sysconf("SC_CLK_TCK")

    def await_idle(self):
        """Waits until what was asked of it is done."""
        def is_idle():
            before = self.read_processor_time()
            time.sleep(0.1)
            return self.read_processor_time() - before < 0.002
        await_condition("the host to come to rest", is_idle)

    def read_pending(self):
        """The most bytes that wait in the system for one of its clients."""
        pending = [0]
        for line in Path("/proc/net/tcp").read_text().splitlines()[1:]:
            fields = line.split()
            ports = [int(fields[i].split(":")[1], 16) for i in (1, 2)]
            to_send, to_read = [int(number, 16) for number in fields[4].split(":")]
            if ports[0] == self.port:
                pending.append(to_send)
            elif ports[1] == self.port:
                pending.append(to_read)
        return max(pending)

    def stop(self):
        self._bench.processes.stop(self._process)


class FileObjectsHost(Host):
    """One that has file objects, too, and node-opcua's client for them."""

    def __init__(self, bench, folder):
        super().__init__(bench, folder, "--module", bench.objects_module, "--model",
                         bench.objects_model)

    def run_node(self, script, *arguments):
        """Returns what a script of node says of its run."""
        return read_result(self._bench.processes.run(
            ["node", self._bench.root / "bench/node" / script, self.url, *arguments],
            cwd=self.files.parent)[1])


def read_result(output):
    """The result of a script of node: its library's own log stands around it."""
    return json.loads(next(line for line in output.splitlines() if line.startswith(b"{")))


def _find_group(leader):
    """The processes of a group."""
    found = []
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if os.getpgid(int(entry.name)) == leader:
                    found.append(entry.name)
            except ProcessLookupError:
                pass
    return found


class SshServer:
    """OpenSSH's server with its sftp, with keys of its own, and the sftp client for it."""

    def __init__(self, bench, folder):
        self._bench = bench
        self._folder = folder
        self._port = choose_port()
        folder.mkdir(parents=True)
        for key in ("host", "user"):
            bench.processes.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / key])
        (folder / "known").write_text(f"[{ADDRESS}]:{self._port} {(folder / 'host.pub').read_text()}")
        (folder / "config").write_text(f"""
ListenAddress {ADDRESS}:{self._port}
HostKey {folder}/host
AuthorizedKeysFile {folder}/user.pub
StrictModes no
PidFile none
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
LogLevel ERROR
Subsystem sftp internal-sftp
""")
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", mode=0o755, exist_ok=True) # it refuses to start without
        server = shutil.which("sshd", path=f"{os.environ.get('PATH', '')}:/usr/sbin:/sbin")
        if server is None:
            raise StepFailed("there is no sshd")
        with open(folder / "log", "wb") as log:
            self._process = bench.processes.start(
                [server, "-D", "-e", "-f", folder / "config"], stdout=log, stderr=log)
        await_condition("sshd", self._is_there)

    def _is_there(self):
        if self._process.poll() is not None:
            raise StepFailed("sshd ended: " + (self._folder / "log").read_text().strip())
        return is_answering(self._port)

    @property
    def command(self):
        """ssh with all that it needs, as programs take it that run it themselves."""
        return (f"ssh -F none -p {self._port} -i {self._folder}/user -o IdentitiesOnly=yes "
                f"-o UserKnownHostsFile={self._folder}/known -o StrictHostKeyChecking=yes")

    def run(self, *commands, cipher=None, **options):
        """Runs commands of sftp. Returns seconds and output."""
        batch = self._folder / "batch"
        batch.write_text("".join(command + "\n" for command in commands))
        chosen = ["-c", cipher] if cipher else []
        return self._bench.processes.run(
            ["sftp", "-q", "-F", "none", "-P", str(self._port), "-i", self._folder / "user", *chosen,
             "-o", f"UserKnownHostsFile={self._folder}/known", "-o", "StrictHostKeyChecking=yes",
             "-o", "IdentitiesOnly=yes", "-b", batch, f"{getpass.getuser()}@{ADDRESS}"], **options)

    def stop(self):
        self._bench.processes.stop(self._process)


class NodeServer:
    """The file transfer that node-opcua ships, both its ends."""

    def __init__(self, bench, folder):
        self._bench = bench
        self._folder = folder
        self.file = folder / "served"
        folder.mkdir(parents=True)
        self.file.write_bytes(b"")
        self._scripts = bench.root / "bench/node"
        port = choose_port()
        self._url = f"opc.tcp://{ADDRESS}:{port}"
        self._process = bench.processes.start(
            ["node", self._scripts / "server.mjs", port, self.file, folder], cwd=folder,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        read_line(self._process, "serving", limit=180)

    def run(self, direction, file, block):
        """Returns the output, whose last line tells the seconds without connecting."""
        return self._bench.processes.run(
            ["node", self._scripts / "client.mjs", self._url, file, self._folder, direction, block],
            cwd=self._folder)[1]

    def stop(self):
        self._bench.processes.stop(self._process)
