# SPDX-License-Identifier: Apache-2.0
"""The rows of the table: what each measures, against what, and what it must reach."""

import json
import math
import os
import platform
import shutil
import sqlite3
import statistics
import subprocess
from dataclasses import dataclass
from pathlib import Path

from stage import (ALL_PORTS, ALL_VSANS, BY_EXTENSION, IF_TABLE_COLUMNS, MEMORY_TABLE_NAME, MODULE_ROOT, SYS_NAME,
                   VSAN_NAME, CountedSwitch, NotMeasured, callgrind)
from harness.build import cached_setting  # stage has put the harness on the path

RECORD = Path(__file__).with_name("instructions_per_get.json")

REPETITIONS = 50
# Enough that what the agent does by itself now and then is lost in it.
COUNTED_GETS = 2000
COUNTED_ROWS = 4096
# Commits whose traces in the database's write-ahead log are compared.
COMPARED_COMMITS = 50
# Enough for that log to have its final length: SQLite begins it anew after a thousand pages,
# and a file that still grows takes longer to reach the disk.
COMMITS_FOR_FULL_LOG = 500


@dataclass
class Result:
    """What a row has come to. `met` is None where there is nothing to hold it against."""

    measured: str
    against: str
    reached: str
    required: str
    met: bool | None
    note: str = ""


def get(agent, oid, count, outstanding=1):
    return {"kind": "get", "port": agent.port, "oid": oid, "first": 1 if count > 1 else 0, "count": count,
            "outstanding": outstanding}


def get_bulk(agent, oid, count=ALL_VSANS, repetitions=REPETITIONS):
    return {"kind": "getbulk", "port": agent.port, "oid": oid, "first": 1, "count": count, "repetitions": repetitions}


def compare(stage, what, other, unit, required, **how):
    """Rates of two streams that took turns, the second being the one to be held against. Each
    slice is held against the one beside it, since a disk or a machine may change its speed."""
    rates, other_rates = stage.load([what, other], seconds=stage.seconds, **how)
    ratio = statistics.median(one / another for one, another in zip(rates, other_rates))
    rate, other_rate = statistics.median(rates), statistics.median(other_rates)
    return Result(f"{rate:,.0f} {unit}/s", f"{other_rate:,.0f}", f"{ratio:.2f}", f">= {required:.2f}",
                  ratio >= required)


def get_one(stage):
    agent = stage.agent()
    return compare(stage, get(agent, VSAN_NAME, ALL_VSANS), get(agent, SYS_NAME, 1), "GETs", 0.80)


def get_sixteen(stage):
    agent = stage.agent()
    return compare(stage, get(agent, VSAN_NAME, ALL_VSANS, 16), get(agent, SYS_NAME, 1, 16), "GETs", 0.70)


def bulk(stage):
    agent = stage.agent()
    return compare(stage, get_bulk(agent, VSAN_NAME), get_bulk(agent, MEMORY_TABLE_NAME), "values", 0.50)


def interfaces(stage):
    """A table of ports, ten columns at a time, beside the VSANs' names of the same switch."""
    agent = stage.agent_of_a_switch()
    table = {"kind": "getbulk", "port": agent.port, "columns": IF_TABLE_COLUMNS, "first": 1, "count": ALL_PORTS,
             "repetitions": REPETITIONS}
    return compare(stage, table, get_bulk(agent, VSAN_NAME), "values", 0.70)


def simulator(stage):
    return compare(stage, get_bulk(stage.agent(), VSAN_NAME), get_bulk(stage.simulator(), VSAN_NAME), "values", 20)


def flat(stage):
    """Instructions of agent and switch together for each row of a walk."""
    costs = {}
    for vsans in (64, 512, ALL_VSANS):
        switch = stage.new_switch(vsans, CountedSwitch)
        agent, counted_agent = stage.counted_agent(switch.run_dir)
        counted_switch = callgrind.Counted(switch.process.pid, switch.output)
        # 32 divides the two smaller tables, so that requests of all three are alike.
        walk = [get_bulk(agent, VSAN_NAME, vsans, repetitions=32)]
        passes = math.ceil(COUNTED_ROWS / vsans)
        stage.load(walk, passes=1)
        counted_agent.start()
        counted_switch.start()
        stage.load(walk, passes=passes)
        profiles = counted_agent.stop(), counted_switch.stop()
        if any(profile.total == 0 for profile in profiles):
            raise NotMeasured("callgrind has counted nothing")
        costs[vsans] = sum(profile.total for profile in profiles) / (passes * vsans)
    spread = max(costs.values()) / min(costs.values()) - 1
    measured = " / ".join(f"{cost:,.0f}" for cost in costs.values())
    return Result(measured, "", f"{spread:.1%} apart", "<= 10%", spread <= 0.10)


def log_size_of(database, work):
    """How much longer some work made the database's write-ahead log."""
    log = Path(f"{database}-wal")
    before = log.stat().st_size if log.exists() else 0
    work()
    return log.stat().st_size - before


def durable_set(stage):
    """SETs, and commits on a copy of the switch's database in the same folder."""
    agent, switch = stage.agent(), stage.switch()
    switch.stop()  # which leaves all of it in one file
    database = switch.state / "switch.db"
    copy = switch.state / "copy.db"
    shutil.copyfile(database, copy)
    switch.start()
    sets = dict(get(agent, VSAN_NAME, ALL_VSANS, 16), kind="set", community="private")
    commits = {"kind": "commit", "database": str(copy), "count": ALL_VSANS}

    bytes_of_sets = log_size_of(database, lambda: stage.load([sets], operations=COMPARED_COMMITS))
    bytes_of_commits = commit_log_size(stage, copy, commits)
    if abs(bytes_of_sets / bytes_of_commits - 1) > 0.1:
        raise NotMeasured(f"the commits are not of the same size: {bytes_of_sets} and {bytes_of_commits} bytes of log")
    return compare(stage, sets, commits, "SETs", 0.70, warm_up=COMMITS_FOR_FULL_LOG)


def commit_log_size(stage, copy, commits):
    """The same for commits. The program would remove the log at its end but for a reader."""
    reader = sqlite3.connect(copy)
    try:
        reader.execute("SELECT count(*) FROM vsan").fetchone()
        return log_size_of(copy, lambda: stage.load([commits], operations=COMPARED_COMMITS))
    finally:
        reader.close()


def compiler():
    """The compiler of this build, and what it compiles for."""
    done = subprocess.run([cached_setting("CMAKE_CXX_COMPILER", "c++"), "--version"], capture_output=True, text=True,
                          check=True)
    return f"{done.stdout.splitlines()[0]}, {platform.machine()}"


def instructions(stage, accept):
    """Instructions of a GET in the module and the message client, against those on record."""
    agent, counted = stage.counted_agent(stage.switch().run_dir)
    gets = [get(agent, VSAN_NAME, ALL_VSANS)]
    stage.load(gets, operations=100)
    counted.start()
    stage.load(gets, operations=COUNTED_GETS)
    profile = counted.stop()
    figures = {name: round(profile.of(name) / COUNTED_GETS, 1) for name in ("libvsanmib.so", "libmts.so")}
    if not all(figures.values()):
        raise NotMeasured("callgrind has counted nothing")
    total = sum(figures.values())
    measured = f"{total:,.0f} instr."
    if accept:
        RECORD.write_text(json.dumps({"compiler": compiler(), "instructions": figures}, indent=2) + "\n")
        return Result(measured, "", "on record now", "", None)
    if not RECORD.exists():
        raise NotMeasured(f"{RECORD.name} is missing; --accept writes it")
    record = json.loads(RECORD.read_text())
    expected = sum(record["instructions"].values())
    growth = total / expected - 1
    result = Result(measured, f"{expected:,.0f}", f"{growth:+.1%}", "<= +2%", growth <= 0.02)
    if record["compiler"] != compiler():
        result.met = None
        result.note = f"the figure on record is of another compiler: {record['compiler']}; this is {compiler()}"
    return result


def proportional_kib(process):
    """A process's memory; a page that n processes share counts as one n-th."""
    for line in Path(f"/proc/{process.pid}/smaps_rollup").read_text().splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1])
    raise NotMeasured("the kernel does not tell how much memory a process uses")


def walk(agent, root):
    """Reads a whole subtree with the agent's own tool; returns how many values it has."""
    done = subprocess.run(["snmpbulkwalk", "-v2c", "-c", "public", "-t", "20", "-Cr50", "-On", agent.address, root],
                          capture_output=True, text=True, env={**os.environ, "MIBS": ""}, check=False)
    if done.returncode != 0:
        raise NotMeasured(f"snmpbulkwalk: {done.stderr.strip()}")
    return len(done.stdout.splitlines())


def memory(stage):
    """Two agents side by side, of which one has loaded the module."""
    switch = stage.switch()
    agents = stage.new_agent(switch.run_dir, loading=BY_EXTENSION), stage.new_agent(switch.run_dir, loading="")
    for agent in agents:
        walk(agent, ".1.3.6.1.2.1.1")
        values = walk(agent, MODULE_ROOT)
        if agent is agents[0] and values < 10 * ALL_VSANS:
            raise NotMeasured(f"the walk found {values} values only")
    with_module, without = (proportional_kib(agent.process) for agent in agents)
    added = with_module - without
    return Result(f"{with_module:,} KiB", f"{without:,} KiB", f"+{added:,} KiB", "< 1,024 KiB", added < 1024)


def size(module, reason):
    """The stripped 32-bit module, which bench/run.sh has built, or why it could not."""
    if not module:
        raise NotMeasured(reason)
    kib = Path(module).stat().st_size / 1024
    return Result(f"{kib:,.1f} KiB", "", f"{kib:,.1f} KiB", "< 64 KiB", kib < 64)
