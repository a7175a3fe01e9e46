# SPDX-License-Identifier: Apache-2.0
"""Measures the rows and prints the table. bench/run.sh calls it, and has built everything."""

import argparse
import functools
import os
import platform
import signal
import sys
import time
from pathlib import Path

import rows
from stage import NotMeasured, Stage
from callgrind import CannotCount

TITLES = {
    "get": ("GET, 1 outstanding", "sysName.0"),
    "get16": ("GET, 16 outstanding", "sysName.0"),
    "bulk": ("GETBULK 50, 4095 VSANs", "table in memory"),
    "simulator": ("the same GETBULK", "snmpsim"),
    "interfaces": ("GETBULK 50, 10 columns, ports", "vsanName"),
    "flat": ("instr. a row, 64/512/4095 VSANs", "each other"),
    "set": ("durable SET, 16 outstanding", "bare commits"),
    "instructions": ("a GET in module and libmts", "on record"),
    "memory": ("memory of snmpd after a walk", "without module"),
    "size": ("32-bit module, stripped", ""),
}

# From this share of the processors on, the table says that others used them.
BUSY = 0.1


def parse_arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, required=True)
    parser.add_argument("--only", action="append", choices=TITLES)
    parser.add_argument("--strict", action="store_true")
    parser.add_argument("--accept", action="store_true")
    parser.add_argument("--module32", default="")
    parser.add_argument("--no-module32", default="")
    return parser.parse_args()


def measurements(arguments):
    """What measures each row. The timed ones come first, while little else runs."""
    every = {
        "get": rows.get_one,
        "get16": rows.get_sixteen,
        "bulk": rows.bulk,
        "simulator": rows.simulator,
        "interfaces": rows.interfaces,
        "set": rows.durable_set,
        "flat": rows.flat,
        "instructions": functools.partial(rows.instructions, accept=arguments.accept),
        "memory": rows.memory,
        "size": lambda _: rows.size(arguments.module32, arguments.no_module32),
    }
    return {name: measure for name, measure in every.items() if not arguments.only or name in arguments.only}


def processor_times():
    """What all processors together have spent so far, in ticks: in all, and idle."""
    ticks = [int(word) for word in Path("/proc/stat").read_text().splitlines()[0].split()[1:9]]
    return sum(ticks), ticks[3] + ticks[4]


def load_of_others():
    """The share of the processors that other work takes, before anything was started here."""
    before, idle_before = processor_times()
    time.sleep(1)
    after, idle_after = processor_times()
    return 1 - (idle_after - idle_before) / (after - before)


def describe_machine():
    model = next((line.split(":", 1)[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), platform.machine())
    return f"{os.cpu_count()} processors ({model}), Linux {platform.release()}, {rows.compiler()}"


def print_table(results):
    heads = ("row", "what", "measured", "beside", "", "reached", "must be", "")
    lines = [heads]
    for name, (what, against) in TITLES.items():
        if name not in results:
            continue
        result = results[name]
        if isinstance(result, str):
            lines.append((name, what, "not measured", against, "", "", "", ""))
            continue
        verdict = {True: "met", False: "missed", None: "-"}[result.met]
        lines.append((name, what, result.measured, against, result.against, result.reached, result.required, verdict))
    widths = [max(len(line[i]) for line in lines) for i in range(len(heads))]
    for line in lines:
        print("  ".join(word.ljust(width) for word, width in zip(line, widths)).rstrip())
    for name, result in results.items():
        note = result if isinstance(result, str) else result.note
        if note:
            print(f"{name}: {note}")


def main():
    # Being told to end must end what was started, too.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    arguments = parse_arguments()
    others = load_of_others()
    results = {}
    with Stage(arguments.seconds) as stage:
        for name, measure in measurements(arguments).items():
            print(f"measuring {name}: {TITLES[name][0]}", flush=True)
            try:
                results[name] = measure(stage)
            except (NotMeasured, CannotCount, AssertionError, OSError) as failure:
                results[name] = str(failure).strip() or type(failure).__name__
    print(f"\n{time.strftime('%Y-%m-%d')}, {describe_machine()}\n")
    print_table(results)
    if others > BUSY:
        print(f"Other work took {others:.0%} of the processors; rates and their ratios say little then.")
    unmeasured = [name for name, result in results.items() if isinstance(result, str)]
    missed = [name for name, result in results.items() if not isinstance(result, str) and result.met is False]
    if unmeasured:
        sys.exit(f"run.sh: could not be measured: {', '.join(unmeasured)}")
    if missed and arguments.strict:
        sys.exit(f"run.sh: not reached: {', '.join(missed)}")


if __name__ == "__main__":
    main()
