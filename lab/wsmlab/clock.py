"""The daemon's clock, moved from outside (lab/clock/clock_shim.c, preloaded)."""

import mmap

_MONOTONIC, _WALL, _ALLOWED, _SKIPPED = range(4)


class Clock:
    """A clock for the daemons that are started in `lab` with its `environment`, one after the other.

    move() makes seconds pass at once, whatever the daemon does. skip() lets them fly: each time the daemon has nothing
    to do, its waiting takes no time, so that it does all that it would do in that time, in the order of its timers."""

    def __init__(self, lab):
        path = lab.files / "clock"
        path.write_bytes(bytes(4 * 8))
        with open(path, "r+b") as file:
            self._words = memoryview(mmap.mmap(file.fileno(), 4 * 8)).cast("q")
        self.environment = {"LD_PRELOAD": str(lab.build_dir / "lib/libclock_shim.so"),
                            "ASAN_OPTIONS": "verify_asan_link_order=0:log_path=/run/sanitizer/wsmd"}

    def move(self, monotonic=0, wall=None):
        """Seconds that pass at once; the wall clock goes along unless it is moved by itself."""
        self._words[_MONOTONIC] += monotonic
        self._words[_WALL] += monotonic if wall is None else wall

    def skip(self, milliseconds):
        """So much more may pass in no time. Done when `idle`."""
        self._words[_ALLOWED] += milliseconds

    @property
    def idle(self):
        """All that skip() allowed has passed. The daemon has then been through everything that had reached it before
        the call: time is skipped only when nothing is ready."""
        return self._words[_SKIPPED] == self._words[_ALLOWED]

    @property
    def skipped(self):
        """Milliseconds that were skipped so far."""
        return self._words[_SKIPPED]

    def hold(self):
        """What was allowed and has not been skipped yet is not to be; for when no daemon runs."""
        self._words[_ALLOWED] = self._words[_SKIPPED]
