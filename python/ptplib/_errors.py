"""What the package raises. The messages are those of the library."""

import builtins


class Error(Exception):
    """Base of everything that the package itself raises."""


class ValueFault(Error, ValueError):
    """A value is not of the form that its type has."""


class RangeError(ValueFault):
    """A value is outside the range of its attribute or type; nothing was stored."""


class ReadOnlyError(Error, AttributeError):
    """The entity is a mirror for reading."""


class RemovedError(Error, ReferenceError):
    """The entity has been removed from its tree."""


class RootGone(Error):
    """The server has withdrawn a root; its mirror stays as it is."""


class ConnectionLost(Error, builtins.ConnectionError):
    """There is no server, no answer, or no connection any more."""


class RecordingError(Error):
    """A recording does not exist, is damaged, or cannot be played."""
