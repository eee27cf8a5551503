"""What the extension makes Python objects of: classes for types, for collections and for trees."""

import collections
import collections.abc
import enum
import keyword

from . import _docs, _ptplib


class Tree:
    """What the entities of a tree share: the client that it is mirrored by, and its observers."""

    __slots__ = ("client", "observers")

    def __init__(self, client):
        self.client = client
        self.observers = set()


# ---- Classes of types ----


def _place(name):
    """Module and name in the language of `Ptp::DebugCounter::CounterClearList`."""
    *namespaces, last = name.split("::")
    return ".".join(["ptplib", "types", *namespaces]), last


class Enumeration(enum.IntEnum):
    """Base of all enumerations: the numbers are the standard's, the text is the name."""

    def __str__(self):
        return self.name

    def __format__(self, spec):
        return format(self.name, spec)


def enumClass(name, members):
    module, last = _place(name)
    cls = Enumeration(last, members, module=module, qualname=last)
    lines = [_docs.of(name), ""]
    for member, number in members:
        lines.append(f"{number:4}  {member}: {_docs.of(name, member)}".rstrip(": "))
    cls.__doc__ = "\n".join(lines).strip()
    return cls


def recordClass(name, fields):
    module, last = _place(name)
    safe = [field + "_" if keyword.iskeyword(field) else field for field in fields]
    cls = collections.namedtuple(last, safe, module=module)
    cls.__doc__ = "\n".join(
        [_docs.of(name), ""] + [f"{field}: {_docs.of(name, field)}".rstrip(": ") for field in fields]
    ).strip()
    return cls


def entityClass(name, base):
    module, last = _place(name)
    return type(base)(last, (base,), {
        "__slots__": (), "__module__": module, "__qualname__": last, "__doc__": _docs.of(name)})


def rangeText(field):
    if field.least is None:
        return ""
    return f" from {field.least} to {field.greatest}"


def memberHelp(type_name, field):
    """What help() says of a member."""
    what = {"single": field.type.name if field.type else "",
            "child": f"{field.type.name}, or None" if field.type else ""}.get(field.kind)
    if what is None:
        key = field.keyType.name if field.keyType else "?"
        what = f"queue of {field.type.name}" if field.kind == "queue" else \
            f"{field.type.name} by {key}"
    fixed = field.kind == "single" and not field.settable
    return "\n\n".join(part for part in (
        _docs.of(type_name, field.name),
        f"{what}{rangeText(field)}{', read-only' if fixed else ''}") if part)


# ---- Collections ----


class _Collection:
    __slots__ = ("_entity", "_field")

    def __init__(self, entity, field):
        self._entity = entity
        self._field = field

    def __len__(self):
        return _ptplib.size(self._entity, self._field)

    def __repr__(self):
        return f"<{self._entity.path}.{self._field.name}: {len(self)} elements>"

    def clear(self):
        """Removes all elements."""
        _ptplib.clear(self._entity, self._field)


_missing = object()


class Children(_Collection, collections.abc.Mapping):
    """Child entities by key. A key is a value of its type, or its text as in a path."""

    __slots__ = ()

    def __getitem__(self, key):
        found = _ptplib.find(self._entity, self._field, key, _missing)
        if found is _missing:
            raise KeyError(key)
        return found

    def get(self, key, default=None):
        return _ptplib.find(self._entity, self._field, key, default)

    def __contains__(self, key):
        return _ptplib.find(self._entity, self._field, key, None) is not None

    def __iter__(self):
        return iter(_ptplib.keys(self._entity, self._field))

    # Lists, taken at once: a change during the iteration does no harm.
    def keys(self):
        return _ptplib.keys(self._entity, self._field)

    def values(self):
        return _ptplib.values(self._entity, self._field)

    def items(self):
        return _ptplib.items(self._entity, self._field)

    def __delitem__(self, key):
        if not _ptplib.remove(self._entity, self._field, key):
            raise KeyError(key)

    def create(self, key, *args, **kwargs):
        """The child with this key, which is made if there is none. The arguments are the members
        that its type must be given (`type.given`), in their order or by name."""
        return _ptplib.create(self._entity, self._field, key, *args, **kwargs)


class Map(Children):
    """Values by key."""

    __slots__ = ()

    create = None

    def __contains__(self, key):
        return _ptplib.find(self._entity, self._field, key, _missing) is not _missing

    def __setitem__(self, key, value):
        _ptplib.put(self._entity, self._field, key, value)


class Queue(_Collection, collections.abc.Sequence):
    """Values in order; each has a number, `first` that of the first, and keeps it."""

    __slots__ = ()

    def __getitem__(self, index):
        if isinstance(index, slice):
            return [self[i] for i in range(*index.indices(len(self)))]
        if index < 0:
            index += len(self)
        if index < 0:
            raise IndexError(f"{self._field.name} has {len(self)} elements")
        return _ptplib.queueAt(self._entity, self._field, index)

    def __iter__(self):
        return iter(_ptplib.values(self._entity, self._field))

    @property
    def first(self):
        """The number of the first element."""
        return _ptplib.sequences(self._entity, self._field)[0]

    @property
    def next(self):
        """The number that the next element will get."""
        return _ptplib.sequences(self._entity, self._field)[1]

    def append(self, value):
        _ptplib.append(self._entity, self._field, value)

    def popleft(self):
        """Removes the first element and returns it."""
        value = self[0]
        _ptplib.popFront(self._entity, self._field)
        return value
