"""The classes of all types, by namespace: ptplib.types.Ptp.PortState.master.

A class is made when it is first used."""

import sys
import types as _types

from .. import _ptplib


class _Namespace(_types.ModuleType):
    """`Ptp` of `Ptp::Config`: a module whose contents are made when they are first used."""

    def __getattr__(self, name):
        if name.startswith("__"):
            raise AttributeError(name)
        return _find(self, name)

    def __dir__(self):
        return _names(self)


def _prefix(module):
    return "::".join(module.__name__.split(".")[2:] + [""])


def _names(module):
    prefix = _prefix(module)
    return sorted({name[len(prefix):].split("::")[0]
                   for name in _ptplib.typeNames() if name.startswith(prefix)})


def _find(module, name):
    full = _prefix(module) + name
    found = _ptplib.typeByName(full)
    if found is not None:
        value = found.cls
    elif name in _names(module):
        value = _Namespace(f"{module.__name__}.{name}", f"The types of the namespace {full}.")
        sys.modules[value.__name__] = value
    else:
        raise AttributeError(f"there is no type {full}")
    setattr(module, name, value)
    return value


def __getattr__(name):
    if name.startswith("__"):
        raise AttributeError(name)
    return _find(sys.modules[__name__], name)


def __dir__():
    return _names(sys.modules[__name__])
