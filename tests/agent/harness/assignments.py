# SPDX-License-Identifier: Apache-2.0
"""Assignments as a SET takes them: a name and an encoded value."""

from collections.abc import Callable

from . import ber
from .oids import COLUMNS, cell

ACTIVE, CREATE_AND_GO, DESTROY = 1, 4, 6
ENCODE: dict[str, Callable] = {"i": ber.integer, "u": ber.gauge, "s": ber.octets}


def encoded(varbind):
    """What the model knows as a Varbind."""
    return varbind.oid, ENCODE[varbind.kind](varbind.value)


def name(vsan, value):
    return cell("vsanName", vsan), ber.octets(value)


def state(vsan, value):
    return cell("vsanAdminState", vsan), ber.integer(value)


def row_status(vsan, value):
    return cell("vsanRowStatus", vsan), ber.integer(value)


def move(if_index, vsan):
    return cell("vsanIfVsan", if_index), ber.integer(vsan)


def row(client, vsan):
    """The columns of a VSAN as they read, by name."""
    return {column: binding.value for column, binding in
            zip(COLUMNS, client.get(*(cell(column, vsan) for column in COLUMNS)))}


def exists(client, vsan):
    return client.value(cell("vsanRowStatus", vsan)) is not None
