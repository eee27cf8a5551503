"""A connection to a server of states."""

import asyncio
import weakref

from . import _ptplib
from ._errors import Error

_modes = ("read", "write", "claim")


class Client:
    """Mirrors roots of a server. One thread uses it and everything that it mirrors.

        with ptplib.connect("/run/ptp.sock") as client:
            status = client.mirror("ptp/status")

    A mirror follows its source while the program waits: in `wait()`, `sync()`, `for` over
    `changes()`, or in the asyncio loop, once `follow()` or `async for` has been used."""

    def __init__(self, socket, timeout=10.0):
        self._connection = _ptplib.Connection(str(socket), timeout)
        self._mirrors = {}
        self._iterators = weakref.WeakSet()
        self._loop = None
        self._watched = (-1, False, False)
        self.socket = str(socket)

    def _open(self):
        if self._connection is None:
            raise Error(f"{self.socket}: the connection has been closed")
        return self._connection

    def roots(self):
        """What the server offers: pairs of type and name."""
        return self._open().roots()

    def mirror(self, name, type=None, mode="read"):
        """Mirrors a root, and waits until all of it is here. `type`: the class or the name of its
        type, if the server has several roots of this name. `mode`: "read", "write" to send changes
        to the server, or "claim" to be the only one that does."""
        if mode not in _modes:
            raise ValueError(f'the mode is "read", "write" or "claim", not "{mode}"')
        wanted = type if type is None or isinstance(type, str) else typeName(type)
        full = wanted
        if wanted is None:
            types = [offered for offered, its_name in self.roots() if its_name == name]
            if len(types) != 1:
                names = ", ".join(sorted({its_name for _, its_name in self.roots()}))
                raise Error(f"{self.socket}: there is no root {name}; there are: {names}"
                            if not types else
                            f"{self.socket}: {name} may be " + " or ".join(types) +
                            ": give its type")
            full = types[0]
        known, known_mode = self._mirrors.get((full, name), (None, mode))
        if known_mode != mode:
            raise Error(f'{name} is mirrored already, with mode="{known_mode}"')
        root = known or self._open().mirror(full, name, mode, self)
        self._mirrors[full, name] = (root, mode)
        return root

    def wait(self, timeout=None):
        """Waits until something has arrived, and applies it; for `timeout` seconds at most, if it is
        given. Returns whether something has. Ctrl-C ends it. Raises `ConnectionLost`, and what
        observers raise."""
        if timeout is not None:
            return self._open().turn(max(timeout, 0.0))
        while not self._open().turn(3600.0):
            pass
        return True

    def poll(self):
        """Applies what has arrived, and sends what has been changed, without waiting."""
        return self.wait(0)

    def sync(self):
        """Waits until the server has applied every change made here, and every change that it made
        before has arrived."""
        self._open().sync()

    @property
    def closed(self):
        """Whether the connection is over; `reason` says why."""
        return self._connection is None or self._connection.over

    @property
    def reason(self):
        return self._connection.reason if self._connection is not None else "closed"

    def fileno(self):
        """The descriptor, for a loop of your own: call `poll()` when it is readable."""
        return self._open().fileno()

    def close(self):
        """Ends the connection, after a `sync()` if a root is mirrored for writing. The mirrors stay
        as they are."""
        connection = self._connection
        if connection is None:
            return
        try:
            if not connection.over and any(mode != "read" for _, mode in self._mirrors.values()):
                connection.sync()
        finally:
            self._detach()
            self._connection = None
            self._mirrors.clear()
            for iterator in list(self._iterators):
                iterator.close()

    def __enter__(self):
        return self

    def __exit__(self, exc_type, exc, tb):
        if exc_type is None:
            self.close()
        else:
            self._detach()
            self._connection = None

    # ---- asyncio ----

    def follow(self):
        """Lets the running asyncio loop handle the connection from now on."""
        self._attach(asyncio.get_running_loop())

    def _attach(self, loop):
        if self._loop is not loop:
            self._detach()
            self._loop = loop
        self._watch()

    def _detach(self):
        fd, reading, writing = self._watched
        if self._loop is not None and fd >= 0 and not self._loop.is_closed():
            if reading:
                self._loop.remove_reader(fd)
            if writing:
                self._loop.remove_writer(fd)
        self._watched = (-1, False, False)
        self._loop = None

    def _watch(self):
        """Tells the loop what to wait for: nothing to read while an iterator is crowded."""
        loop, connection = self._loop, self._connection
        if loop is None or connection is None or loop.is_closed():
            return
        writing = connection.flush()
        fd = connection.fileno()
        if fd < 0:
            error = None
            try:
                connection.turn(0.0)
            except Exception as caught:  # pylint: disable=broad-except
                error = caught
            self._lose(error)
            return
        reading = not any(iterator.crowded for iterator in self._iterators)
        _, was_reading, was_writing = self._watched
        if reading != was_reading:
            if reading:
                loop.add_reader(fd, self._ready)
            else:
                loop.remove_reader(fd)
        if writing != was_writing:
            if writing:
                loop.add_writer(fd, self._ready)
            else:
                loop.remove_writer(fd)
        self._watched = (fd, reading, writing)

    def _ready(self):
        if self._connection is None:
            return
        try:
            self._connection.turn(0.0)
        except Error as error:
            self._lose(error)
            return
        except Exception as error:  # an observer's: the loop tells it, the connection goes on
            self._loop.call_exception_handler(
                {"message": "an observer of a mirror has raised", "exception": error})
            self._loop.call_soon(self._ready)
        self._watch()

    def _lose(self, error):
        self._detach()
        for iterator in list(self._iterators):
            iterator._fail(error)


def typeName(cls):
    """The name of the type that a class stands for: "Ptp::Status"."""
    module = cls.__module__.removeprefix("ptplib.types.")
    return "::".join([*module.split("."), cls.__qualname__])


def connect(socket, timeout=10.0):
    """Connects to the server at a UNIX socket. `timeout`: how many seconds to wait for it, now and
    whenever it is asked something."""
    return Client(socket, timeout)
