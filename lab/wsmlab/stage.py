"""Playing a scenario while its view is on the screen."""

import shlex
import threading

from .board import Notice
from .scenario import AS_EXPECTED, STOPPED, Failed, Line, Stopped


class Stage:
    """Plays on its own thread while it is entered; what happens goes to `watcher`, which must not follow the lab
    itself. `outcome`: as ./demo prints it; `failed`: whether something expected has not come."""

    def __init__(self, scenario, lab, watcher):
        self.outcome, self.failed = STOPPED, False
        self._scenario, self._lab, self._watcher = scenario, lab, watcher
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._run, name="stage", daemon=True)

    def __enter__(self):
        self._watcher.found.put(Notice(self._scenario.title))
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()

    def _run(self):
        try:
            self._scenario.play(self._lab, self._tell, stop=self._over.is_set)
            self.outcome = AS_EXPECTED
        except Failed as failure:
            self.outcome, self.failed = f"FAILED {failure}", True
        except Stopped:
            return
        except Exception as error:  # the screen's thread raises it again
            self._watcher.found.put(error)
            return
        self._watcher.found.put(Notice(f"{self.outcome.splitlines()[0]}: {self._scenario.title}"))

    def _tell(self, item):
        if isinstance(item, Line):
            self._watcher.say(f"{'ok     -> ' if item.expects else 'do     '}{shlex.join(item.words)}")
        else:
            item.at = self._watcher.now  # one clock for all that is on the screen
            self._watcher.found.put(item)
