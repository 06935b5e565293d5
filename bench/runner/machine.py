"""The machine that the figures come from."""

import os
import platform
import time
from pathlib import Path


def describe():
    model = next((line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), platform.machine())
    memory = int(Path("/proc/meminfo").read_text().split()[1]) / 2**20
    system = platform.freedesktop_os_release().get("PRETTY_NAME", platform.system())
    return {"Processor": f"{model}, {os.cpu_count()} cores", "Memory": f"{memory:.0f} GiB",
            "System": f"{system}, Linux {platform.release()}",
            "Files": "in memory (tmpfs); connections over loopback",
            "Date": time.strftime("%Y-%m-%d")}


class Watch:
    """How much of the processors others used while it ran."""

    def __init__(self):
        self._others = 0.0
        self._samples = 0

    def sample(self, seconds=1.0):
        """Looks while nothing of the bench runs."""
        before = _read_busy()
        time.sleep(seconds)
        busy = _read_busy() - before
        self._others += busy / seconds
        self._samples += 1

    @property
    def busy_cores(self):
        return self._others / max(self._samples, 1)


def _read_busy():
    """Seconds that all cores together have worked since the system started."""
    fields = [int(field) for field in Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:]]
    user, nice, system, _, _, interrupts, soft, stolen = fields[:8]
    return (user + nice + system + interrupts + soft + stolen) / os.sysconf("SC_CLK_TCK")
