"""For ./demo: plays a recording and prints what happens."""

import time

from . import Lab
from .happenings import Happenings, ended_with

PAUSE_S = 0.05


def play_recording(path, build_dir, end):
    """Prints one line per happening until the recording is over, or the time `end` is reached. It has no live view:
    a view asks the daemon, the daemon then asks its driver, and the reports would differ from the recorded ones."""
    with Lab(build_dir) as lab:
        player = lab.replay(path)
        print("\n".join(player.lines()), flush=True)
        happenings, over = Happenings(lab), False
        try:
            while not over and time.monotonic() < end:
                over = lab.replay_is_over(player)  # before the last look
                for happening in happenings.take():
                    print(happening, flush=True)
                time.sleep(0 if over else PAUSE_S)
        except KeyboardInterrupt:
            pass
        reports = len(lab.reports())
        status = lab.daemon.stop()
        if over:
            print(player.lines()[-1])
        print(f"{reports} reports{'' if over else ', stopped before the end of the recording'}; {ended_with(status)}")
