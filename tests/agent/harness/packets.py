# SPDX-License-Identifier: Apache-2.0
"""A version 2c client that says exactly what a test wants: values in any encoding,
several of them in any order, and what the agent answered to that."""

import itertools
import socket

from . import ber
from .clients import END_OF_MIB, NO_SUCH_INSTANCE, NO_SUCH_OBJECT, Binding, NoAnswer

GET, GETNEXT, RESPONSE, SET, GETBULK = 0xA0, 0xA1, 0xA2, 0xA3, 0xA5
VERSION_2C = 1

STATUS = ("noError", "tooBig", "noSuchName", "badValue", "readOnly", "genErr", "noAccess", "wrongType",
          "wrongLength", "wrongEncoding", "wrongValue", "noCreation", "inconsistentValue", "resourceUnavailable",
          "commitFailed", "undoFailed", "authorizationError", "notWritable", "inconsistentName")
DONE = ("noError", 0)

KINDS = {ber.INTEGER: "INTEGER", ber.OCTETS: "OCTET STRING", ber.OID: "OID",
         ber.COUNTER: "Counter32", ber.GAUGE: "Gauge32", ber.TICKS: "Timeticks", ber.NO_OBJECT: NO_SUCH_OBJECT,
         ber.NO_INSTANCE: NO_SUCH_INSTANCE, ber.END: END_OF_MIB}


class PacketClient:
    """One socket and one community."""

    def __init__(self, agent, community="private", timeout=10):
        self._community = community.encode()
        self._ids = itertools.count(1)
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.settimeout(timeout)
        self._socket.connect(("127.0.0.1", agent.port))

    def close(self):
        self._socket.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def send(self, kind, bindings, second=0, third=0):
        """Sends a PDU of (name, encoded value) pairs and returns its request id. The two
        words after the id are a GETBULK's non-repeaters and repetitions."""
        request = next(self._ids)
        pdu = ber.sequence(
            ber.integer(request), ber.integer(second), ber.integer(third),
            ber.sequence(*(ber.sequence(ber.oid(name), value) for name, value in bindings)), tag=kind)
        self._socket.send(ber.sequence(ber.integer(VERSION_2C), ber.octets(self._community), pdu))
        return request

    def receive(self, request):
        """(status, number of the varbind at fault, bindings) of the answer to a request."""
        while True:
            try:
                packet = self._socket.recv(65536)
            except TimeoutError:
                raise NoAnswer("no answer in time") from None
            _, _, (tag, pdu) = ber.elements(ber.split(packet)[1])
            (_, number), (_, status), (_, index), (_, bindings) = ber.elements(pdu)
            if tag == RESPONSE and ber.number_of(number) == request:
                return (STATUS[ber.number_of(status)], ber.number_of(index),
                        [_binding(*ber.elements(pair)) for _, pair in ber.elements(bindings)])

    def set(self, *assignments):
        """Sets (name, encoded value) pairs in one PDU. Returns the status and the number
        of the varbind at fault, counted from 1; DONE when all went well."""
        return self.receive(self.send(SET, assignments))[:2]

    def get(self, *names):
        return self._read(GET, names)

    def get_next(self, *names):
        return self._read(GETNEXT, names)

    def value(self, name):
        return self.get(name)[0].value

    def _read(self, kind, names, second=0, third=0):
        null = ber.element(ber.NULL, b"")
        status, index, bindings = self.receive(self.send(kind, [(name, null) for name in names], second, third))
        assert status == "noError", (status, index)
        return bindings

    def walk(self, root, repetitions=60):
        """Everything under `root`, by GETBULK."""
        rows, name = [], root
        while True:
            for binding in self._read(GETBULK, [name], 0, repetitions):
                if binding.oid[: len(root)] != root or binding.kind == END_OF_MIB:
                    return rows
                rows.append(binding)
            name = rows[-1].oid


def _binding(name, value):
    tag, contents = value
    kind = KINDS.get(tag, f"tag {tag:#x}")
    if tag in (ber.INTEGER, ber.COUNTER, ber.GAUGE, ber.TICKS):
        return Binding(ber.arcs_of(name[1]), kind, ber.number_of(contents))
    return Binding(ber.arcs_of(name[1]), kind, bytes(contents) if tag == ber.OCTETS else None)
