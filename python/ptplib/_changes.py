"""Observing: callbacks, and changes one after another for `for` and `async for`."""

import asyncio
import collections
import time
import weakref

from . import _ptplib

# A client whose changes nobody takes stops reading when so many wait: its server then sends only the
# latest value of each attribute, once they have been taken.
CROWDED = 10_000


class Observation:
    """An observer. It observes until `close()`, or until the tree is no longer used."""

    __slots__ = ("_observer", "_tree", "__weakref__")

    def __init__(self, entity, callback, below, attributes):
        if isinstance(attributes, str):
            attributes = (attributes,)
        self._tree = entity._tree
        self._observer = _ptplib.Observer(entity, callback, below, list(attributes))
        self._tree.observers.add(self)

    def close(self):
        """Ends it. A callback may end its own observation."""
        self._observer.close()
        self._tree.observers.discard(self)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()


class Changes:
    """The changes of an entity, from now on, for `for` and `async for`; ends with `close()`.

    `for` handles the connection while it waits, for `timeout` seconds at most; `async for` lets the
    running asyncio loop do that."""

    def __init__(self, entity, below, attributes, timeout):
        self._queue = collections.deque()
        self._client = entity._tree.client
        self._timeout = timeout
        self._future = None
        self._error = None
        self._closed = False
        me = weakref.ref(self)

        def take(change):
            if (changes := me()) is not None:
                changes._take(change)
        # An iterator that nobody holds any more ends.
        self._observation = Observation(entity, take, below, attributes)
        weakref.finalize(self, self._observation.close).atexit = False
        if self._client is not None:
            self._client._iterators.add(self)

    def _take(self, change):
        change.path  # now: later the entity may be gone, and the value another
        change.new
        self._queue.append(change)
        self._wake()

    def _wake(self):
        future = self._future
        if future is not None and not future.done():
            future.set_result(None)

    def _fail(self, error):
        self._error = error
        self._wake()

    @property
    def crowded(self):
        return len(self._queue) >= CROWDED

    def close(self):
        self._observation.close()
        self._closed = True
        self._wake()
        if self._client is not None:
            self._client._iterators.discard(self)
            self._client._watch()

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    async def __aenter__(self):
        return self

    async def __aexit__(self, *exc):
        self.close()

    # ---- for ----

    def __iter__(self):
        return self

    def __next__(self):
        end = None if self._timeout is None else time.monotonic() + self._timeout
        while not self._queue:
            if self._closed:
                raise StopIteration
            left = None if end is None else end - time.monotonic()
            if self._client is None or (left is not None and left <= 0):
                raise StopIteration
            self._client.wait(left)
        return self._queue.popleft()

    # ---- async for ----

    def __aiter__(self):
        return self

    async def __anext__(self):
        if self._client is not None:
            self._client._attach(asyncio.get_running_loop())
        while not self._queue:
            if self._error is not None:
                raise self._error
            if self._closed:
                raise StopAsyncIteration
            self._future = asyncio.get_running_loop().create_future()
            try:
                await self._future
            finally:
                self._future = None
        change = self._queue.popleft()
        if self._client is not None and len(self._queue) == CROWDED // 2:
            self._client._watch()
        return change


def observe(self, callback, *, below=True, attributes=()):
    """Calls `callback(change)` after every change here and below, or only here; for some attributes,
    if their names are given. What it raises comes out of the setter, or of the `wait` or `sync` that
    has brought the change. Returns an `Observation`, whose `close()` ends it."""
    return Observation(self, callback, below, attributes)


def changes(self, *, below=True, attributes=(), timeout=None):
    """The changes here and below from now on, for `for` and `async for`."""
    return Changes(self, below, attributes, timeout)


def at(self, path):
    """What is at a path below this entity, as ptpstate writes it: an entity, a collection, a value.

        status.at("portDS[Ethernet1].portState")"""
    return _ptplib.at(self, path)


def create(self, child, name=""):
    """Makes a singleton child, or finds it. `name`: for a child that has one."""
    return _ptplib.createChild(self, child, name)
