# SPDX-License-Identifier: Apache-2.0
"""SNMP clients: the Net-SNMP tools, a second one that shares no code with them, and a
sender of single packets."""

import os
import re
import socket
import subprocess
from dataclasses import dataclass

from pyasn1.codec.ber import decoder, encoder
from pysnmp import hlapi
from pysnmp.proto import api
from pysnmp.proto.rfc1905 import EndOfMibView, NoSuchInstance, NoSuchObject

from .build import MIBS
from .oids import dotted

NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB = "noSuchObject", "noSuchInstance", "endOfMibView"
EXCEPTIONS = (NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB)


@dataclass(frozen=True)
class Binding:
    """One name with its value. `kind` is the SMI type, or one of EXCEPTIONS."""

    oid: tuple
    kind: str
    value: object = None


class SnmpError(Exception):
    """An error status in the answer."""

    def __init__(self, status, failed=None):
        super().__init__(f"{status} at {failed}")
        self.status = status
        self.failed = failed  # the name, as a tuple, when the answer tells


class NoAnswer(Exception):
    """The agent did not answer in time."""


class NetSnmp:
    """The Net-SNMP command line tools against one agent.

    version is 1, 2c or 3; user names one of the agent's users for version 3, the community
    otherwise. timeout is in seconds; nothing is sent twice."""

    def __init__(self, agent, version="2c", user="public", timeout=10):
        self._address = agent.address
        self._options = [f"-v{version}", "-t", str(timeout), "-r", "0"]
        if version == "3":
            level, auth, priv = agent.users[user]
            self._options += ["-u", user, "-l", level]
            self._options += ["-a", "SHA", "-A", auth] if auth else []
            self._options += ["-x", "AES", "-X", priv] if priv else []
        else:
            self._options += ["-c", user]

    def command(self, tool, *arguments, options=("-Onetx", "-m", "")):
        return [tool, *self._options, *options, *arguments]

    def run(self, tool, *arguments, options=("-Onetx", "-m", "")):
        """The tool's output; an error status or no answer becomes an exception."""
        done = subprocess.run(
            self.command(tool, *arguments, options=options), capture_output=True, text=True, timeout=120,
            # The tools keep an engine cache file of their own; no two tests share it.
            env=dict(os.environ, MIBDIRS=str(MIBS), SNMP_PERSISTENT_FILE="/dev/null", SNMPCONFPATH="/nonexistent"),
        )
        complaint = done.stderr + done.stdout
        if "Timeout" in done.stderr or "No Response" in done.stderr:
            raise NoAnswer(complaint)
        reason = re.search(r"Reason: \(?(\w+)", complaint)
        if reason:
            failed = re.search(r"Failed object: \.?([\d.]+)", complaint)
            raise SnmpError(reason.group(1), parse_oid(failed.group(1)) if failed else None)
        if done.returncode != 0:
            raise AssertionError(f"{tool} ended with {done.returncode}: {complaint}")
        return done.stdout

    def get(self, *oids):
        return parse(self.run("snmpget", self._address, *map(dotted, oids)))

    def get_next(self, *oids):
        return parse(self.run("snmpgetnext", self._address, *map(dotted, oids)))

    def walk(self, oid):
        return rows_only(parse(self.run("snmpwalk", "-CI", self._address, dotted(oid))))

    def bulk_walk(self, oid, repetitions=25):
        return rows_only(parse(self.run("snmpbulkwalk", f"-Cr{repetitions}", self._address, dotted(oid))))

    def bulk_get(self, oids, repetitions, non_repeaters=0):
        return parse(self.run("snmpbulkget", f"-Cn{non_repeaters}", f"-Cr{repetitions}", self._address,
                              *map(dotted, oids)))

    def set(self, *assignments):
        """Each assignment is (oid, type letter, value)."""
        words = [word for oid, kind, value in assignments for word in (dotted(oid), kind, str(value))]
        return parse(self.run("snmpset", self._address, *words))

    def by_name(self, tool, *arguments, options=()):
        """A tool used with the MIB, so that names go in and come out."""
        return self.run(tool, *options, self._address, *arguments, options=("-m", "VSAN-MIB"))

    def start_get(self, oid):
        """snmpget running beside the test; see Pending."""
        return Pending(self.command("snmpget", self._address, dotted(oid)))


class Pending:
    """An snmpget under way."""

    def __init__(self, command):
        self._process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def result(self):
        output, _ = self._process.communicate(timeout=30)
        return parse(output)


def parse_oid(text):
    return tuple(int(arc) for arc in text.strip(".").split("."))


def rows_only(bindings):
    """What a walk is about: the tools print a last line of their own when there is none."""
    return [binding for binding in bindings if binding.kind not in EXCEPTIONS]


def parse(output):
    """The bindings in what a tool printed with -Onetx."""
    lines = []
    for line in output.splitlines():
        if line.startswith("."):
            lines.append(line)
        elif lines and line.strip():
            lines[-1] += " " + line  # a long octet string goes on in the next line
    return [parse_line(line) for line in lines]


def parse_line(line):
    name, _, text = line.partition(" = ")
    oid = parse_oid(name)
    for phrase, kind in (("No Such Object", NO_SUCH_OBJECT), ("No Such Instance", NO_SUCH_INSTANCE),
                         ("No more variables", END_OF_MIB)):
        if text.startswith(phrase):
            return Binding(oid, kind)
    if text == '""':
        return Binding(oid, "OCTET STRING", b"")
    kind, _, value = text.partition(": ")
    if kind == "Hex-STRING":
        return Binding(oid, "OCTET STRING", bytes.fromhex(value))
    if kind in ("INTEGER", "Gauge32", "Counter32", "Counter64"):
        return Binding(oid, kind, int(value))
    if text.strip().isdigit():
        return Binding(oid, "Timeticks", int(text))
    return Binding(oid, kind, value)


class PySnmp:
    """The second client, written in another language by other people."""

    def __init__(self, agent, version="2c", user="public"):
        self._engine = hlapi.SnmpEngine()
        self._target = hlapi.UdpTransportTarget(("127.0.0.1", agent.port), timeout=10, retries=0)
        if version == "3":
            _, auth, priv = agent.users[user]
            self._who = hlapi.UsmUserData(
                user, auth, priv,
                authProtocol=hlapi.usmHMACSHAAuthProtocol if auth else hlapi.usmNoAuthProtocol,
                privProtocol=hlapi.usmAesCfb128Protocol if priv else hlapi.usmNoPrivProtocol,
            )
        else:
            self._who = hlapi.CommunityData(user, mpModel=0 if version == "1" else 1)

    def _types(self, oids):
        return [hlapi.ObjectType(hlapi.ObjectIdentity(oid)) for oid in oids]

    def get(self, *oids):
        return self._one(hlapi.getCmd(self._engine, self._who, self._target, hlapi.ContextData(),
                                      *self._types(oids), lookupMib=False))

    def get_next(self, *oids):
        return self._one(hlapi.nextCmd(self._engine, self._who, self._target, hlapi.ContextData(),
                                       *self._types(oids), lookupMib=False))

    def walk(self, oid):
        return self._all(oid, hlapi.nextCmd(self._engine, self._who, self._target, hlapi.ContextData(),
                                            *self._types([oid]), lookupMib=False))

    def bulk_walk(self, oid, repetitions=25):
        return self._all(oid, hlapi.bulkCmd(self._engine, self._who, self._target, hlapi.ContextData(), 0,
                                            repetitions, *self._types([oid]), lookupMib=False))

    def _one(self, generator):
        trouble, status, index, bindings = next(generator)
        if trouble:
            raise NoAnswer(str(trouble))
        if status:
            raise SnmpError(str(status.prettyPrint()), tuple(bindings[int(index) - 1][0]))
        return [convert(name, value) for name, value in bindings]

    def _all(self, root, generator):
        rows = []
        for trouble, status, index, bindings in generator:
            if trouble:
                raise NoAnswer(str(trouble))
            if status:
                if str(status.prettyPrint()) == "noSuchName":  # how version 1 ends a walk
                    return rows
                raise SnmpError(str(status.prettyPrint()))
            for name, value in bindings:
                binding = convert(name, value)
                if binding.oid[: len(root)] != root or binding.kind in EXCEPTIONS:
                    return rows
                rows.append(binding)
        return rows


def convert(name, value):
    oid = tuple(name)
    for kind, exception in ((NoSuchObject, NO_SUCH_OBJECT), (NoSuchInstance, NO_SUCH_INSTANCE),
                            (EndOfMibView, END_OF_MIB)):
        if isinstance(value, kind):
            return Binding(oid, exception)
    kinds = {"Integer": "INTEGER", "Integer32": "INTEGER", "OctetString": "OCTET STRING", "Gauge32": "Gauge32",
             "Unsigned32": "Gauge32", "TimeTicks": "Timeticks", "Gauge": "Gauge32", "Counter32": "Counter32"}
    kind = kinds[type(value).__name__]
    return Binding(oid, kind, bytes(value) if kind == "OCTET STRING" else int(value))


class Packets:
    """Version 2c packets sent one by one, with a request id of the test's choice."""

    def __init__(self, agent, community="public", timeout=10):
        self._community = community
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.settimeout(timeout)
        self.socket.connect(("127.0.0.1", agent.port))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def packet(self, oids, request_id, kind=api.v2c.GetRequestPDU):
        """The bytes of a request."""
        pdu = kind()
        api.v2c.apiPDU.setDefaults(pdu)
        api.v2c.apiPDU.setRequestID(pdu, request_id)
        api.v2c.apiPDU.setVarBinds(pdu, [(oid, api.v2c.null) for oid in oids])
        message = api.v2c.Message()
        api.v2c.apiMessage.setDefaults(message)
        api.v2c.apiMessage.setCommunity(message, self._community)
        api.v2c.apiMessage.setPDU(message, pdu)
        return encoder.encode(message)

    def exchange(self, packet):
        """The bindings of the answer to a packet; answers to others are passed over."""
        self.socket.send(packet)
        wanted = self._request_id(packet)
        while True:
            answer = self.socket.recv(65536)
            if self._request_id(answer) == wanted:
                return [convert(*pair) for pair in api.v2c.apiPDU.getVarBinds(self._pdu(answer))]

    def _request_id(self, packet):
        return int(api.v2c.apiPDU.getRequestID(self._pdu(packet)))

    @staticmethod
    def _pdu(packet):
        message, _ = decoder.decode(packet, asn1Spec=api.v2c.Message())
        return api.v2c.apiMessage.getPDU(message)
