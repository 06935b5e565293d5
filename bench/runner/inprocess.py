"""What happens inside one process, measured by InProcessBench, and what it counts."""

import json

from .results import Group, at_most
from .rounds import errors

TITLES = {
    "exists": "Exists, from the call to its event",
    "upload-4k": "UploadFile of 4 KiB",
    "blocks-60k": "upload in blocks of 60 KiB, a block",
    "blocks-1m": "upload in blocks of 1 MiB, a block",
    "read": "Read of 61 440 bytes",
    "list": "recursive listing of 61 440 entries",
    "trace-off": "a trace line that is switched off",
}
# Of the trace line: no difference that could be measured.
GOALS = {"exists": 1.5, "upload-4k": 1.4, "blocks-60k": 1.25, "blocks-1m": 1.25, "read": 1.3,
         "list": 1.5, "trace-off": 1.1}
REFERENCE = "/reference"
TO_MICROSECONDS = {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}


def run_groups(bench):
    """Yields the groups that are wanted, each when it has been measured."""
    if bench.wants("in-process"):
        yield measure_times(bench)
    if bench.wants("counts"):
        yield from measure_counts(bench)


def measure_times(bench):
    group = Group("in-process", "Inside one process",
                  "Each beside the same work by hand, in rounds that take turns.")
    bench.say(group.title)
    declare(group, "µs", GOALS)
    try:
        file = bench.folder / "in-process.json"
        bench.processes.run(
            [bench.program("InProcessBench"), f"--benchmark_out={file}",
             "--benchmark_out_format=json", f"--benchmark_repetitions={bench.rounds}",
             *(["--benchmark_min_time=0.1"] if bench.is_quick else [])], limit=3600)
        for run in json.loads(file.read_text())["benchmarks"]:
            if run.get("run_type") == "iteration":
                add_time(group, run)
    except errors as error:
        group.fail(str(error))
    return group


def add_time(group, run):
    # A name may be followed by how time was taken, and by how often.
    name = run.get("run_name", run["name"])
    known = next((each for each in group.measurements
                  if name == each or (name.startswith(each + "/")
                                      and not name.startswith(each + REFERENCE))), None)
    if known is None:
        raise ValueError(f"nothing is known of what InProcessBench calls {name}")
    measurement = group.measurements[known]
    if run.get("error_occurred"):
        measurement.failure = run.get("error_message", "failed")
    else:
        measurement.values.append(run["real_time"] * TO_MICROSECONDS[run["time_unit"]])


def declare(group, unit, goals):
    for name, title in TITLES.items():
        group.measure(name, unit)
        group.measure(name + REFERENCE, unit)
        group.compare(title, name, name + REFERENCE,
                      at_most(goals[name]) if name in goals else None)


def measure_counts(bench):
    instructions = Group("instructions", "Instructions for each operation",
                         "Counted by callgrind: they do not depend on how busy the machine is.")
    calls = Group("system-calls", "System calls for each operation",
                  "Counted by strace, without futex, which says who had to wait.")
    bench.say("Counts")
    for group in (instructions, calls):
        declare(group, "", {})
    try:
        _, output = bench.processes.run(
            [bench.root / "bench/counts", bench.program("InProcessBench")], limit=3600)
        for count in json.loads(output)["counts"]:
            name = count["name"]
            instructions.measurements[name].values.append(count["instructions"])
            calls.measurements[name].values.append(
                round(sum(number for call, number in count["system_calls"].items()
                          if call != "futex"), 2))
    except errors as error:
        for group in (instructions, calls):
            group.fail(str(error))
    return instructions, calls
