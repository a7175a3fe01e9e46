# SPDX-License-Identifier: Apache-2.0
"""A switch with drawn contents, drawn roles on it, and an agent that serves it to one
user a role: as an SNMPv3 user with authentication and privacy, and as a community of
the same name."""

import random
import re

from . import ber
from .access_oracle import Oracle, Role
from .agent import Agent
from .assignments import encoded
from .model import Model, Varbind, Vsan
from .oids import ARCS, TIMERS, cell, scalar
from .operator_tool import OperatorTool
from .packets import STATUS, PacketClient
from .switch import VirtualSwitch

MAX_IF_INDEX = 0xFFFFFFFF
# Neighbours, most of them on both sides of a border between a list's bytes.
NEIGHBOURS = ((2, 3, 4), (7, 8, 9), (15, 16), (255, 256), (2047, 2048), (4087, 4088), (4093, 4094))
NOTABLE_PORTS = (1, 2, 0x7FFFFFFE, 0x7FFFFFFF)


def random_model(draw):
    """A switch of some 16 VSANs and as many ports, every value drawn."""
    together = [number for run in draw.sample(NEIGHBOURS, 4) for number in run]
    numbers = {1, 4095, *together, *draw.sample(range(20, 4000), 5)}
    vsans = {number: Vsan(b"v%d-%06x" % (number, draw.randrange(1 << 24)), draw.choice((1, 2)), draw.choice((1, 2)),
                          draw.choice((1, 2, 3, 4, 100)), draw.choice((1, 2)), draw.randrange(1, 60001))
             for number in sorted(numbers)}
    ports = {port: [draw.choice(together if draw.random() < 0.7 else sorted(numbers)), draw.random() < 0.7]
             for port in sorted({*draw.sample(NOTABLE_PORTS, 2),
                                 *(0x01000000 + 0x1000 * n for n in draw.sample(range(48), 14))})}
    return Model(vsans, ports)


def initial_configuration(model, deny_lists):
    """The model's switch as vswitchd reads it."""
    return {
        "vsans": [{"id": number, "name": vsan.name.decode(), "state": ("active", "suspended")[vsan.admin - 1],
                   "loadBalancing": ("srcIdDestId", "srcIdDestIdOxId")[vsan.balancing - 1], "interop": vsan.interop,
                   "inorderDelivery": vsan.inorder, "networkDropLatency": vsan.latency}
                  for number, vsan in model.switch.vsans.items()],
        "ports": [{"ifIndex": port, "vsan": vsan, "link": "up" if link else "down", "denyList": deny_lists[port]}
                  for port, (vsan, link) in model.switch.ports.items()]}


def random_timers(draw, model):
    """SETs that give some VSANs timers of their own, each after its force flags. In
    ascending order: while the distribution service governs the timers, one in front of
    a VSAN that has some cannot get its first."""
    for number in sorted(draw.sample(sorted(model.switch.vsans), 6)):
        yield Varbind("vsanFcTimerForceFlag", (number,), "s", bytes((draw.choice((0x80, 0xC0, 0xE0)) | 0x20,)))
        for name in draw.sample(TIMERS[1:-1], draw.choice((1, 2, 3))):
            yield Varbind(name, (number,), "u", draw.randrange(5000, 100001))


def random_role(draw, model):
    """A role with some of the switch's VSANs and interfaces, and with some numbers that
    nothing on the switch has."""
    there = sorted(model.switch.vsans)
    vsans = set(draw.sample(there, draw.randrange(len(there))))
    for _ in range(draw.randrange(3)):
        first = draw.randrange(1, 4096)
        vsans.update(range(first, min(4096, first + draw.choice((1, 5, 60, 700)))))
    vsans = vsans | {0} if draw.random() < 0.5 else vsans - {0}

    ports = sorted(model.switch.ports)
    interfaces = [(port, port) for port in draw.sample(ports, draw.randrange(len(ports)))]
    if draw.random() < 0.7:  # or else most columns would end before they have begun
        interfaces.append((1, draw.choice(ports[: len(ports) // 2])))
    if draw.random() < 0.2:
        interfaces = []
    return Role(frozenset(vsans), tuple(interfaces))


def ranges(numbers):
    """Numbers as the operator's tool takes them: 1,5-9."""
    numbers, text = sorted(numbers), []
    first = 0
    for at, number in enumerate(numbers):
        if at + 1 == len(numbers) or numbers[at + 1] != number + 1:
            text.append(f"{numbers[first]}-{number}" if first < at else str(number))
            first = at + 1
    return ",".join(text)


class Scene:
    """The first roles are the same for every seed: one with nothing in it, one with
    everything, one with every interface and no VSAN but 0. The others are drawn. While
    `is_distributed`, the distribution service governs the timers."""

    def __init__(self, collection, seed, count, is_distributed):
        draw = random.Random(seed)
        self._recorded = None
        self.where = f"--random-seed={seed} --random-roles={count}"
        self.model = random_model(draw)
        self.instances = sorted(self.model.walk())  # with those that have no value just now
        deny_lists = {port: draw.randrange(1 << 16) for port in self.model.switch.ports}
        self.switch = collection.add(VirtualSwitch(collection.folders.make(), initial=initial_configuration(
            self.model, deny_lists))).start()
        every_interface = ((1, MAX_IF_INDEX),)
        self.roles = [Role(), Role(frozenset(range(4096)), every_interface), Role(frozenset((0,)), every_interface)]
        self.roles += [random_role(draw, self.model) for _ in range(max(1, count - len(self.roles)))]
        self.agent = collection.add(Agent(
            collection.folders.make(), self.switch.run_dir,
            lines=[f"rwcommunity {user} 127.0.0.1" for user in self.users],
            users={user: ("authPriv", f"{user}-auth-secret", f"{user}-priv-secret") for user in self.users})).start()
        self.tool = OperatorTool(self.switch)
        self.operator = PacketClient(self.agent)
        if is_distributed:
            self.tool("tdx", "enable")
        for varbind in random_timers(draw, self.model):
            status, _ = self.model.set([varbind])
            assert self.operator.set(encoded(varbind))[0] == STATUS[status], (varbind, self.where)
        self.contents = self._expected_contents(deny_lists, is_distributed)
        self.look_again()
        self._grant(draw)

    def close(self):
        self.operator.close()

    @property
    def users(self):
        """The users, one a role."""
        return [f"user{number}" for number in range(len(self.roles))]

    def client(self, user):
        """A version 2c client of a role's user."""
        return PacketClient(self.agent, user)

    def oracle(self, number):
        return Oracle(self.contents, self.roles[number])

    def _expected_contents(self, deny_lists, is_distributed):
        contents = self.model.walk()
        contents.update((cell("vsanIfDenyList", port), value) for port, value in deny_lists.items())
        if is_distributed:
            for number, vsan in self.model.switch.vsans.items():
                for name in TIMERS[1:]:
                    if name.replace("vsanFc", "fc") not in vsan.timers:
                        del contents[cell(name, number)]
        return contents

    def _grant(self, draw):
        """Gives the roles to their users, with the operator's tool and while the agent
        runs. Some of them come in two parts: a user has what any of their roles has."""
        for number, (user, role) in enumerate(zip(self.users, self.roles)):
            parts = draw.choice((1, 1, 2))
            for part in range(parts):
                self.tool(*granting(f"role{number}-{part}", user, Role(
                    frozenset(vsan for vsan in role.vsans if vsan % parts == part), role.interfaces[part::parts])))

    def look_again(self):
        """After SETs that left every value as it was: the time of the last change is new."""
        self.contents[scalar("vsanTableLastChange")] = self.operator.value(scalar("vsanTableLastChange"))

    def new_history(self):
        """The failures that the agent has recorded since this was last asked for."""
        (history,) = self.tool.json("event-history", "--class", "failures")["histories"]
        records = history["records"]
        new = records[records.index(self._recorded) + 1:] if self._recorded in records else records
        self._recorded = records[-1] if records else None
        return [record["text"] for record in new]

    def state(self):
        """All that a SET could change: what the switch keeps, and the force flags."""
        return self.switch.stored(), self.operator.walk(ARCS["vsanFcTimerForceFlag"])


def granting(name, user, role):
    """The words of the tool's command that adds a role for a user."""
    words = ["role", "add", name, "--users", user]
    words += ["--vsans", ranges(role.vsans)] if role.vsans else []
    words += ["--interfaces", ",".join(f"{first}-{last}" for first, last in role.interfaces)] if role.interfaces else []
    return words


class Complaints:
    """What the agent reports while a block runs: `records`, the error records in its log,
    and `restrictions`, the refusals in its event history, source lines as (#)."""

    def __init__(self, scene):
        self._scene = scene
        self.records = self.restrictions = None

    def __enter__(self):
        self._scene.new_history()
        self._printed = len(self._scene.agent.process.lines)
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            return
        # A record that no test is about ends the list.
        process = self._scene.agent.process
        assert self._scene.operator.set((cell("vsanNetworkDropLatency", 1), ber.gauge(0))) == ("genErr", 1)
        process.wait_line("request failed: .*drop latency", start=self._printed)
        found = re.findall("request failed: (.*)", process.text(self._printed))
        self.records = [text for text in found if "drop latency" not in text]
        self.restrictions = [re.sub(r"\(\d+\)", "(#)", text.strip())
                             for text in self._scene.new_history() if "restricted user" in text]
