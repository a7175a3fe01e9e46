# SPDX-License-Identifier: Apache-2.0
"""What the tests of the clients' faults have in common: an agent whose clients meet them, a relay that sees what
goes over the wire, and clients and receivers of notifications that share no code with the agent."""

import contextlib
import queue
import socket
import threading
import time
from dataclasses import dataclass

from pysnmp import hlapi
from pysnmp.carrier.asyncore.dgram import udp
from pysnmp.entity import config, engine
from pysnmp.entity.rfc3413 import ntfrcv
from pysnmp.hlapi import asyncore
from pysnmp.proto.rfc1902 import OctetString

from .agent import Agent, free_udp_port
from .clients import convert
from .interfaces import AS_A_SWITCH
from .notifications import RECEIVER_ENGINE, SENDER_ENGINE, TRAP_OID, wait_until_subscribed
from .operator_tool import OperatorTool
from .switch import VirtualSwitch

# Who asks: the version, and the user or community.
COMMUNITY, USER = ("2c", "private"), ("3", "alice")


class Scene:
    """A switch, its agent, and the tool that sets faults."""

    def __init__(self, collection, initial, lines=()):
        self.switch = collection.add(VirtualSwitch(collection.folders.make(), initial=initial)).start()
        self.agent = collection.add(Agent(collection.folders.make(), self.switch.run_dir, lines=lines,
                                          **AS_A_SWITCH)).start()
        self.tool = OperatorTool(self.switch)
        self.wait_until_told()

    def wait_until_told(self):
        """The agent subscribes a second after its start."""
        wait_until_subscribed(self.switch, self.agent, 4)

    def fault(self, *words):
        """Sets a fault, by which the agent goes then; returns its number."""
        told = self.tool.json("fault", "add", "client", *words)
        assert told["fetched"], self.agent.process.text()
        return told["number"]

    def clear(self):
        self.tool("fault", "clear")

    def wait(self, condition):
        """Waits until what `fault list` tells is so, and returns that."""
        deadline = time.monotonic() + 15
        while True:
            told = self.tool.json("fault")
            if condition({"fetched": True} | told):
                return told
            assert time.monotonic() < deadline, (told, self.agent.process.text())
            time.sleep(0.01)

    def wait_applied(self, number, times):
        """Waits until a fault has been counted so often."""
        self.wait(lambda told: [fault["applied"] for fault in told["faults"] if fault["number"] == number] == [times])


class Tap:
    """A relay in front of an agent: what came from the client and what went to it, with the time."""

    def __init__(self, agent):
        self.users = agent.users
        self.sent = []
        self.received = []
        self._client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._client.bind(("127.0.0.1", 0))
        self.port = self._client.getsockname()[1]
        self._agent = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._agent.connect(("127.0.0.1", agent.port))
        self._who = None
        self._is_closed = False
        for work in (self._forward, self._back):
            threading.Thread(target=work, daemon=True).start()

    def _forward(self):
        with contextlib.suppress(OSError):
            while not self._is_closed:
                packet, self._who = self._client.recvfrom(65536)
                self.sent.append((time.monotonic(), packet))
                self._agent.send(packet)

    def _back(self):
        with contextlib.suppress(OSError):
            while True:
                packet = self._agent.recv(65536)
                if self._is_closed or self._who is None:
                    return
                self.received.append((time.monotonic(), packet))
                self._client.sendto(packet, self._who)

    def forget(self):
        self.sent.clear()
        self.received.clear()

    def wait_received(self, count):
        """Waits until so many messages have come back."""
        deadline = time.monotonic() + 15
        while len(self.received) < count:
            assert time.monotonic() < deadline, self.received
            time.sleep(0.02)

    def counts(self):
        """How many messages went either way, once no more is under way."""
        while True:
            before = len(self.sent), len(self.received)
            time.sleep(0.2)
            if before == (len(self.sent), len(self.received)):
                return before

    def finish(self):
        self._is_closed = True
        for one in (self._client, self._agent):
            with contextlib.suppress(OSError):
                one.shutdown(socket.SHUT_RDWR)
            one.close()


@dataclass
class Outcome:
    """What a client tells whoever called it: why there is no answer, or status, index and values."""

    trouble: str | None
    status: str
    index: int
    values: list
    seconds: float


class Client:
    """pysnmp, which asks once more by itself. It looks at its clock twice a second: a wait of 1.5 seconds may be one
    of 1."""

    def __init__(self, target, who, timeout=1.5, retries=1, local=None):
        version, name = who
        self._engine = hlapi.SnmpEngine()
        self._target = hlapi.UdpTransportTarget(("127.0.0.1", target.port), timeout=timeout, retries=retries)
        if local is not None:
            self._target.setLocalAddress((local, 0))
        if version == "3":
            _, auth, priv = target.users[name]
            self._who = hlapi.UsmUserData(name, auth, priv, authProtocol=hlapi.usmHMACSHAAuthProtocol,
                                          privProtocol=hlapi.usmAesCfb128Protocol)
        else:
            self._who = hlapi.CommunityData(name, mpModel=0 if version == "1" else 1)

    def _run(self, command, *arguments, **options):
        start = time.monotonic()
        trouble, status, index, bindings = next(
            command(self._engine, self._who, self._target, hlapi.ContextData(), *arguments, lookupMib=False, **options))
        return Outcome(str(trouble) if trouble else None, status.prettyPrint() if status else "noError",
                       int(index or 0), [] if trouble or status else [convert(*pair).value for pair in bindings],
                       time.monotonic() - start)

    def get(self, *names):
        return self._run(hlapi.getCmd, *_types(names))

    def get_next(self, *names):
        return self._run(hlapi.nextCmd, *_types(names))

    def get_bulk(self, name, repetitions=10):
        """One GETBULK; the values of the first row only."""
        return self._run(hlapi.bulkCmd, 0, repetitions, *_types([name]))

    def set(self, name, text):
        return self._run(hlapi.setCmd, hlapi.ObjectType(hlapi.ObjectIdentity(name), OctetString(text)))

    def order_of_answers(self, *names):
        """Asks for all of them at once, each in a message of its own, and returns their values in the order in
        which the client had them."""
        came = []

        def on_answer(_engine, _handle, trouble, _status, _index, bindings, _context):
            came.append(str(trouble) if trouble else convert(*bindings[0]).value)

        for name in names:
            asyncore.getCmd(self._engine, self._who, self._target, hlapi.ContextData(), *_types([name]),
                            lookupMib=False, cbFun=on_answer)
        self._engine.transportDispatcher.runDispatcher()
        return came


def _types(names):
    return [hlapi.ObjectType(hlapi.ObjectIdentity(name)) for name in names]


class NotificationReceiver:
    """pysnmp as a receiver of traps and informs, which it acknowledges: each as (time, name)."""

    def __init__(self):
        self.port = free_udp_port()
        self.came = queue.Queue()
        self._engine = engine.SnmpEngine(snmpEngineID=OctetString(hexValue=RECEIVER_ENGINE[2:]))
        config.addTransport(self._engine, udp.domainName,
                            udp.UdpTransport().openServerMode(("127.0.0.1", self.port)))
        config.addV1System(self._engine, "area", "public")
        for number in (RECEIVER_ENGINE, SENDER_ENGINE):
            config.addV3User(self._engine, "watcher", config.usmHMACSHAAuthProtocol, "watcher-auth-secret",
                             config.usmAesCfb128Protocol, "watcher-priv-secret",
                             securityEngineId=OctetString(hexValue=number[2:]))
        ntfrcv.NotificationReceiver(self._engine, self._on_notification)
        self._engine.transportDispatcher.jobStarted(1)
        self._thread = threading.Thread(target=self._engine.transportDispatcher.runDispatcher, daemon=True)
        self._thread.start()

    def _on_notification(self, _engine, _reference, _engine_id, _context, bindings, _argument):
        names = {tuple(name): value for name, value in bindings}
        self.came.put((time.monotonic(), tuple(names[TRAP_OID])))

    def next(self, timeout=15):
        return self.came.get(timeout=timeout)

    def names(self, count):
        """The names of the next so many, and that no more come for a moment."""
        names = [self.next()[1] for _ in range(count)]
        with contextlib.suppress(queue.Empty):
            raise AssertionError((names, self.next(0.2)))
        return names

    def forget(self):
        """Until nothing has come for a moment."""
        with contextlib.suppress(queue.Empty):
            while True:
                self.next(0.5)

    def finish(self):
        self._engine.transportDispatcher.jobFinished(1)
        self._thread.join(5)
        self._engine.transportDispatcher.closeDispatcher()
