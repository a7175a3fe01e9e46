# SPDX-License-Identifier: Apache-2.0
"""A manager that misbehaves on request.

It listens where the switch would and serves a small table of VSANs. A test replaces
the answer of one kind of request by what the test is about.
"""

import contextlib
import socket
import struct
import subprocess
import sys
import threading
from collections import Counter
from pathlib import Path

from . import wire
from .switch import CountsRequests


class Silence:
    """No answer; the connection stays."""


class Close:
    """The connection is closed instead of answered."""


class LastWords:
    """A reply, the ordinary one if none is given, and then the manager's end."""

    def __init__(self, reply=None):
        self.reply = reply


class Raw:
    """Bytes sent as they are. `body` may be a function of the correlation."""

    def __init__(self, data):
        self.data = data


class Pieces:
    """A successful answer with `data`, handed to the socket `size` bytes at a time."""

    def __init__(self, data, size):
        self.data = data
        self.size = size


KEPT_WHEN_ZERO = ("vsanInorderDelivery", "vsanNetworkDropLatency", "vsanOperState")


def word(value):
    return struct.pack(">I", value & 0xFFFFFFFF)


def vsan_row(index, **fields):
    row = dict(vsanIndex=index, vsanMediaType=1, vsanAdminState=1, vsanMtu=2112, vsanInorderDelivery=2,
               vsanInterOperType=100, vsanLoadBalancingType=2, vsanRowStatus=1, vsanOperState=2,
               vsanName=b"VSAN%04d" % index, vsanNetworkDropLatency=2000)
    return row | fields


class FakeManager(CountsRequests):
    """Serves `vsans` (numbers). `answers` maps (service, opcode, kind) to a function
    of the request that returns a wire.Reply or one of the classes above, or None for the
    ordinary answer. `restricted` maps a user to the VSANs permitted to it."""

    def __init__(self, folder, vsans=(1, 2, 20, 30, 40)):
        self.run_dir = Path(folder)
        self.vsans = {index: vsan_row(index) for index in vsans}
        self.answers = {}
        self.restricted = {}
        self.requests = []
        self.subscribed = threading.Event()  # somebody listens to events
        self._subscriptions = []  # (connection, classes)
        self._connections = []
        self._ended = threading.Event()
        self._listen()

    def _listen(self):
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(self.run_dir / "mts.sock"))
        self._listener.listen(16)
        threading.Thread(target=self._accept, daemon=True).start()

    def _stop_listening(self):
        with contextlib.suppress(OSError):
            self._listener.shutdown(socket.SHUT_RDWR)  # wakes whoever waits for a connection
        self._listener.close()
        (self.run_dir / "mts.sock").unlink(missing_ok=True)

    def answer(self, action, opcode=wire.VSAN, kinds=(wire.GET, wire.GETNEXT), service=wire.SERVICE_VSAN):
        """Has every such request answered by `action`: a value, or a function of the request."""
        for kind in kinds:
            self.answers[(service, opcode, kind)] = action if callable(action) and not isinstance(
                action, type) else (lambda request, fixed=action: fixed)

    def behave(self):
        self.answers.clear()

    def die(self):
        """Ends as a process does: no connection, no socket. For use in an answer, too."""
        self._stop_listening()
        self.drop_connections()
        self._ended.set()
        return Close

    def revive(self):
        """Serves again, with the VSANs that it had and none of the answers."""
        assert self._ended.wait(10)
        self._ended.clear()
        self.behave()
        self._listen()

    def changes(self):
        """The VSAN requests that were to change something: (kind, VSAN number) in order."""
        return [(r.kind, wire.parse_vsan(r.payload)["vsanIndex"]) for r in list(self.requests)
                if (r.service, r.opcode) == (wire.SERVICE_VSAN, wire.VSAN) and r.kind in (wire.SET, wire.DELETE)]

    def drop_connections(self):
        """As a manager does that ends; the next connection finds a new one."""
        self.subscribed.clear()
        self._subscriptions.clear()
        for connection in self._connections:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)
        self._connections.clear()

    def publish(self, event_class, payload):
        """Sends an event to whoever has subscribed to its class."""
        for connection, classes in self._subscriptions:
            if event_class in classes:
                connection.sendall(wire.event(event_class, payload))

    def send_to_subscribers(self, data):
        """Sends bytes that need not be an event to whoever listens to events."""
        for connection, _ in self._subscriptions:
            connection.sendall(data)

    def listen_as(self, user):
        """From here on the kernel takes `user`, a name, for the one who listens."""
        again = "import socket, sys; socket.socket(fileno=int(sys.argv[1])).listen(16)"
        descriptor = self._listener.fileno()
        subprocess.run([sys.executable, "-c", again, str(descriptor)], user=user, pass_fds=[descriptor], check=True)

    def counts(self):
        return Counter((r.service, r.opcode, r.kind) for r in list(self.requests))

    def finish(self):
        self._stop_listening()
        self.drop_connections()

    def _accept(self):
        listener = self._listener
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        try:
            while True:
                received = wire.receive_frame(connection)
                if received is None:
                    return
                kind, correlation, body = received
                if kind in (wire.PING, wire.SUBSCRIBE, wire.SHARE):  # it has no memory to share
                    connection.sendall(wire.frame(wire.PONG, correlation))
                    if kind == wire.SUBSCRIBE:
                        classes = [number for number, in struct.iter_unpack(">I", body)]
                        self._subscriptions.append((connection, classes))
                        self.subscribed.set()
                elif kind == wire.REQUEST:
                    request = wire.parse_request(body)
                    self.requests.append(request)
                    if not self._respond(connection, correlation, request):
                        return
        except OSError:
            pass
        finally:
            self._subscriptions = [kept for kept in self._subscriptions if kept[0] is not connection]
            connection.close()

    def _respond(self, connection, correlation, request):
        """Returns whether the connection stays."""
        special = self.answers.get((request.service, request.opcode, request.kind))
        action = special(request) if special else None
        if action is None:
            action = self._ordinary(request)
        if isinstance(action, LastWords):
            reply = action.reply or self._ordinary(request)
            self._stop_listening()
            connection.sendall(wire.frame(wire.REPLY, correlation, wire.reply_body(reply.status, reply.data)))
            self.drop_connections()
            self._ended.set()
            return False
        if action is Close:
            # An orderly end, not a reset: what was sent before still arrives.
            connection.shutdown(socket.SHUT_RDWR)
            return False
        if isinstance(action, Raw):
            connection.sendall(action.data(correlation) if callable(action.data) else action.data)
        elif isinstance(action, Pieces):
            data = wire.frame(wire.REPLY, correlation, wire.reply_body(0, action.data))
            for start in range(0, len(data), action.size):
                connection.sendall(data[start : start + action.size])
        elif action is not Silence:
            connection.sendall(wire.frame(wire.REPLY, correlation, wire.reply_body(action.status, action.data)))
        return True

    def _ordinary(self, request):
        key = (request.service, request.opcode)
        if key == (wire.SERVICE_ROLES, wire.ROLE_OF_USER):
            return wire.Reply(0, self._role(request.payload.decode()))
        if key == (wire.SERVICE_TDX, wire.TDX_STATE):
            return wire.Reply(0, bytes(8))
        if key == (wire.SERVICE_VSAN, wire.VSAN):
            return self._vsan(request)
        if key == (wire.SERVICE_VSAN, wire.VSAN_COUNT):
            return wire.Reply(0, word(len(self.vsans)))
        if key == (wire.SERVICE_VSAN, wire.LAST_CHANGE):
            return wire.Reply(0, bytes(8))
        if key == (wire.SERVICE_VSAN, wire.FC_TIMER):
            return wire.Reply(0, request.payload[:4] + word(5000) + request.payload[8:])
        if key == (wire.SERVICE_VSAN, wire.LATENCY):
            return wire.Reply(0, request.payload[:4] + word(300) + word(0))
        if key in ((wire.SERVICE_VSAN, wire.IF_COUNT), (wire.SERVICE_VSAN, wire.INORDER_DELIVERY)):
            return wire.Reply(0, word(1))
        return wire.Reply(0x40010002, None)

    def _role(self, user):
        permitted = self.restricted.get(user)
        bitmap = bytearray(512)
        for vsan in permitted or ():
            bitmap[vsan // 8] |= 0x80 >> (vsan % 8)
        return word(permitted is not None) + bytes(bitmap) + word(0)

    def _vsan(self, request):
        sent = wire.parse_vsan(request.payload)
        asked = sent["vsanIndex"]
        if request.kind == wire.SET:
            self.vsans[asked] = self.vsans.get(asked, vsan_row(asked)) | {
                name: value for name, value in sent.items() if value or name not in KEPT_WHEN_ZERO}
            return wire.Reply(0, None)
        if request.kind == wire.DELETE:
            found = self.vsans.pop(asked, None)
            return wire.Reply(0 if found else wire.NO_SUCH_VSAN, None)
        if request.kind == wire.GET:
            index = asked if asked in self.vsans else None
        else:
            index = min((i for i in self.vsans if i > asked), default=None)
        if index is None:
            return wire.Reply(wire.NO_SUCH_VSAN if request.kind == wire.GET else wire.NO_MORE_VSANS, None)
        return wire.Reply(0, wire.vsan_block(**self.vsans[index]))
