# SPDX-License-Identifier: Apache-2.0
"""Fixtures: a switch, an agent that serves it, and clients. A test that only reads
shares one switch and one agent with the others; a test that disturbs them starts its
own with the start_ fixtures."""

import shutil
import tempfile
from pathlib import Path

import pytest

from harness.agent import Agent
from harness.campaign import SHARES, Campaign
from harness.clients import NetSnmp
from harness.fake_manager import FakeManager
from harness.interfaces import AS_A_SWITCH
from harness.operator_tool import OperatorTool
from harness.packets import PacketClient
from harness.switch import VirtualSwitch

VSANS = (
    {"id": 1, "name": "default"},
    {"id": 2, "name": "engineering", "mtu": 2000},
    {"id": 10, "name": "storage_prod", "state": "suspended", "loadBalancing": "srcIdDestId", "interop": 1,
     "inorderDelivery": 1, "networkDropLatency": 500},
    {"id": 20, "name": "storage_backup", "interop": 100, "networkDropLatency": 60000},
    {"id": 30, "name": "tape", "interop": 4, "inorderDelivery": 2},
    {"id": 40, "name": "x" * 32, "interop": 3, "networkDropLatency": 1},
    {"id": 4095, "name": "last", "state": "suspended"},
)
PORTS = (
    {"ifIndex": 0x01000000, "vsan": 10, "link": "up"},
    {"ifIndex": 0x01001000, "vsan": 20, "link": "up"},
    {"ifIndex": 0x01002000, "vsan": 30, "link": "down"},
    {"ifIndex": 0x01003000, "vsan": 1, "link": "up", "denyList": 0},
)
INITIAL = {"vsans": VSANS, "ports": PORTS}
ROLES = {"tape-team": (["alice", "limited"], ["1", "30"])}


def pytest_addoption(parser):
    group = parser.getgroup("random SETs")
    group.addoption("--random-pdus", type=int, default=400, help="how many random SET PDUs a run sends")
    group.addoption("--random-seed", type=int, default=1, help="what they are drawn from")
    group = parser.getgroup("campaigns")
    group.addoption("--soak", type=float, default=0, metavar="MINUTES",
                    help="lets the campaigns share so many minutes; --random-seed is what they draw from")
    group.addoption("--campaign", action="append", default=[], choices=sorted(SHARES), metavar="NAME",
                    help="runs only this campaign, or these: " + ", ".join(SHARES))
    group = parser.getgroup("random roles")
    group.addoption("--random-roles", type=int, default=12, help="how many roles are tried; --random-seed draws them")


def pytest_collection_modifyitems(config, items):
    """Leaves only the campaigns that were asked for, if any were."""
    wanted = config.getoption("--campaign")
    if wanted:
        chosen = [item for item in items if campaign_name(item) in wanted]
        config.hook.pytest_deselected(items=[item for item in items if item not in chosen])
        items[:] = chosen


def campaign_name(item):
    """The name of the campaign that a test is, or none."""
    marker = item.get_closest_marker("campaign")
    return marker.args[0] if marker else None


class Folders:
    """Short-lived folders with short names: the path of a Unix socket has little room."""

    def __init__(self):
        self._made = []

    def make(self):
        path = Path(tempfile.mkdtemp(prefix="vsan-"))
        path.chmod(0o755)  # an agent that gave up root has to get through
        self._made.append(path)
        return path

    def remove(self):
        for path in self._made:
            shutil.rmtree(path, ignore_errors=True)


class Started:
    """What a test started, ended in reverse order with its own checks."""

    def __init__(self):
        self._things = []
        self.folders = Folders()

    def add(self, thing):
        self._things.append(thing)
        return thing

    def finish(self):
        failures = []
        for thing in reversed(self._things):
            try:
                thing.finish()
            except Exception as failure:  # the others must be ended all the same
                failures.append(failure)
                process = getattr(thing, "process", None)
                if process is not None:
                    process.kill()
        self.folders.remove()
        if failures:
            raise failures[0]


@pytest.fixture
def started():
    collection = Started()
    yield collection
    collection.finish()


@pytest.fixture(scope="module")
def started_for_file():
    collection = Started()
    yield collection
    collection.finish()


@pytest.fixture(scope="session")
def shared():
    collection = Started()
    yield collection
    collection.finish()


@pytest.fixture
def campaign(request):
    """The campaign that the test is marked as. Those that run share the minutes."""
    running = filter(None, map(campaign_name, request.session.items))
    share = SHARES[campaign_name(request.node)] / sum(SHARES[name] for name in running)
    return Campaign(campaign_name(request.node), request.config.getoption("--random-seed"),
                    60 * share * request.config.getoption("--soak"))


@pytest.fixture
def folder(started):
    return started.folders.make()


@pytest.fixture
def start_switch(started):
    """start_switch(**options of VirtualSwitch): a running switch of the test's own."""
    return lambda **options: started.add(VirtualSwitch(started.folders.make(), **options)).start()


@pytest.fixture
def start_agent(started):
    """start_agent(manager, **options of Agent): an agent pointed at a manager, which is
    a switch, a FakeManager, or anything with a run_dir."""
    return lambda manager, **options: started.add(
        Agent(started.folders.make(), manager.run_dir, **options)).start()


@pytest.fixture
def manager(started):
    return started.add(FakeManager(started.folders.make()))


@pytest.fixture
def puppet(manager, start_agent):
    """An agent whose manager is the scripted one."""
    return start_agent(manager)


@pytest.fixture(scope="session")
def switch(shared):
    """The shared switch. Nobody stops it or changes it."""
    return shared.add(VirtualSwitch(shared.folders.make(), initial=INITIAL, roles=ROLES)).start()


@pytest.fixture(scope="session")
def agent(shared, switch):
    """The shared agent on the shared switch."""
    return shared.add(Agent(shared.folders.make(), switch.run_dir)).start()


@pytest.fixture
def client(agent):
    return NetSnmp(agent)


class Operator(PacketClient):
    """A client that may write, and what is behind it: its agent and its switch."""

    def __init__(self, collection, community="private", **agent):
        self.switch = collection.add(VirtualSwitch(collection.folders.make(), initial=INITIAL, roles=ROLES)).start()
        self.agent = collection.add(Agent(collection.folders.make(), self.switch.run_dir, **agent)).start()
        super().__init__(self.agent, community)


@pytest.fixture
def operator(started):
    """An operator with a switch of the test's own."""
    with Operator(started) as client:
        yield client


@pytest.fixture
def operator_of_switch(started):
    """The same with an agent that serves all that a switch shows, as run.sh starts it."""
    with Operator(started, **AS_A_SWITCH) as client:
        yield client


@pytest.fixture(scope="module")
def writable():
    """An operator whose switch the tests of one file share: VSAN 2 is for trying values."""
    collection = Started()
    try:
        with Operator(collection) as client:
            yield client
    finally:
        collection.finish()


@pytest.fixture
def writer(puppet):
    """A client that may write, through the agent whose manager is the scripted one."""
    with PacketClient(puppet) as client:
        yield client


@pytest.fixture
def owned(request, start_switch):
    """A switch that the test may change, with its file's INITIAL configuration."""
    return start_switch(initial=request.module.INITIAL)


@pytest.fixture
def tool(owned):
    """The operator's tool for that switch."""
    return OperatorTool(owned)
