"""Recordings: what `ptpstate record` has written."""

import re

from . import _ptplib
from ._changes import Observation
from ._errors import Error


class Recording:
    """A recording, a file or a ring of files. Each iteration plays it from the beginning.

        for time, change in ptplib.Recording("monday.ptp").changes():
            print(time, change.path, change.new)

    Times are seconds since 1970, as time.time() gives them."""

    def __init__(self, path):
        self.path = str(path)
        _ptplib.RecordingPlayer(self.path)  # raises if there is none

    def _play(self, watch):
        """Yields time and whether the state is complete, after each frame; calls `watch(root)` for
        each root before its first frame is played."""
        player = _ptplib.RecordingPlayer(self.path)
        player.onRoot = watch
        while (wall := player.next()) is not None:
            yield wall / 1e9, player.complete

    def roots(self):
        """The roots as they are at the end, by name."""
        roots = {}
        for _ in self._play(lambda root: roots.setdefault(root.name, root)):
            pass
        return roots

    def changes(self, since=None, until=None, attributes=()):
        """Pairs of time and change, once the state is complete; for some attributes, if their names
        are given. The state that the entities of a change have is that of this time."""
        pending = []

        def take(change):
            change.path  # now: later the entity may be gone, and the value another
            change.new
            pending.append(change)

        roots = []  # holds the trees

        def watch(root):
            roots.append(root)
            Observation(root, take, True, attributes)

        began = False
        for time, complete in self._play(watch):
            if until is not None and time > until:
                return
            if began and (since is None or time >= since):
                for change in pending:
                    yield time, change
            pending.clear()
            began = complete

    def series(self, path, since=None, until=None):
        """Pairs of time and value of an attribute, such as
        "ptp/status.currentDS.offsetFromMaster": first what it was, then each change. The value is
        None while there is none."""
        attributes = re.findall(r"[.](\w+)", path)
        roots = []
        pending = []

        def take(change):
            if change.attribute != attributes[-1]:
                pending.append(_value(roots[0], path))  # what contains it has come or gone
            elif change.path == path:
                pending.append(change.new)

        def watch(root):
            if path.startswith(root.name + "."):
                roots.append(root)
                Observation(root, take, True, attributes)

        series = []
        began = False
        for time, complete in self._play(watch):
            if until is not None and time > until:
                break
            if complete and not began:
                pending[:] = [_value(roots[0], path)] if roots else []
                began = True
            if began:
                for value in pending:
                    if series and series[-1][1] == value:
                        continue
                    if since is not None and time < since:
                        series = [(since, value)]
                    else:
                        series.append((time, value))
            pending.clear()
        if not roots:
            raise Error(f"'{path}' is not a path below a root of {self.path}")
        return series


def _value(root, path):
    try:
        return root.at(path[len(root.name):])
    except Error:
        return None  # an entity on the way does not exist
