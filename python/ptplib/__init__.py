"""The state of a PTP agent: mirrored, read, changed and observed.

    import ptplib

    with ptplib.connect("/run/ptp4lAgent.sock") as client:
        status = client.mirror("ptp/status")
        print(status.portDS["Ethernet1"].portState)
        for change in status.changes(attributes="portState"):
            print(change.path, change.old, "->", change.new)

Every type of the loaded modules has a class in `ptplib.types`: help(ptplib.types.Ptp.PortDS). A tree
and the connection that mirrors it belong to the thread that made them."""

import ctypes as _ctypes

from . import _changes, _errors, _ptplib
from ._changes import Changes, Observation
from ._client import Client, connect
from ._errors import (ConnectionLost, Error, RangeError, ReadOnlyError, RecordingError, RemovedError,
                      RootGone, ValueFault)
from ._ptplib import Change, Entity, Field, Type
from ._recording import Recording
from . import types

for _name in ("observe", "changes", "at", "create"):
    setattr(Entity, _name, getattr(_changes, _name))

__all__ = ["Change", "Changes", "Client", "ConnectionLost", "Entity", "Error", "Field", "Observation",
           "RangeError", "ReadOnlyError", "Recording", "RecordingError", "RemovedError", "RootGone",
           "Type", "ValueFault", "connect", "diff", "load", "newRoot", "typeOf", "types"]


def typeOf(name):
    """The type with this name, such as "Ptp::Config": a `Type`, whose `cls` is its class."""
    found = _ptplib.typeByName(name)
    if found is None:
        raise Error(f"there is no type {name}")
    return found


def newRoot(type, name):
    """A root of this process's own: newRoot("Ptp::Config", "ptp/config")."""
    return typeOf(type).cls(name)


def diff(first, second):
    """Where two roots differ: triples of path, text in the first and text in the second, None where
    one lacks the path. Empty if they are equal."""
    return _ptplib.diff(first, second)


def load(library):
    """Loads a library of modules of your own; its types then are in `types` as ours are."""
    _ctypes.CDLL(library, mode=_ctypes.RTLD_GLOBAL)
