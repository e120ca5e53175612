"""Moves the daemon's clock (lab/clock/clock_shim.c, preloaded)."""

import mmap

_MONOTONIC, _WALL, _ALLOWED, _SKIPPED = range(4)


class Clock:
    """A clock for the daemons that are started in `lab` with its `environment`, one after the other.

    move() makes seconds pass at once, whatever the daemon does. skip() lets time pass quickly: whenever the daemon has
    nothing to do, its waiting takes no time, so that it does everything that is due in that time, in the order of its timers."""

    def __init__(self, lab):
        path = lab.files / "clock"
        path.write_bytes(bytes(4 * 8))
        with open(path, "r+b") as file:
            self._words = memoryview(mmap.mmap(file.fileno(), 4 * 8)).cast("q")
        self.environment = {"LD_PRELOAD": str(lab.build_dir / "lib/libclock_shim.so"),
                            "ASAN_OPTIONS": "verify_asan_link_order=0:log_path=/run/sanitizer/wsmd"}

    def move(self, monotonic=0, wall=None):
        """Makes seconds pass at once; the wall clock moves as well unless `wall` is given."""
        self._words[_MONOTONIC] += monotonic
        self._words[_WALL] += monotonic if wall is None else wall

    def skip(self, milliseconds):
        """Allows so much more time to be skipped. It has passed when `idle` is true."""
        self._words[_ALLOWED] += milliseconds

    @property
    def idle(self):
        """Whether all the time that skip() allowed has passed. The daemon has then handled everything that had reached it
        before the call: time is skipped only when nothing is ready."""
        return self._words[_SKIPPED] == self._words[_ALLOWED]

    @property
    def skipped(self):
        """Milliseconds that were skipped so far."""
        return self._words[_SKIPPED]

    def hold(self):
        """Withdraws the rest of the allowance; for times when no daemon runs."""
        self._words[_ALLOWED] = self._words[_SKIPPED]
