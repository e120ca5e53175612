#!/usr/bin/python3
"""Plays the stories of the radio tests, in one virtual machine: stories.py BUILD-FOLDER [REGEX]. At the end of each, the daemon,
its reports, the kernel and hostapd must agree. Writes one JSON line for each to $OUT/results, as soon as it is over."""

import json
import os
import pathlib
import re
import sys
import time
import traceback

import client_stories  # noqa: F401 # the import registers the stories
import scenario_stories  # noqa: F401
import service_stories  # noqa: F401
from wsmlab.air import Air
from story import STORIES, play


def main():
    build_dir, results = sys.argv[1], pathlib.Path(os.environ["OUT"])
    os.environ["PATH"] = f"{build_dir}/bin:{os.environ['PATH']}"  # where a lab looks for its programs
    chosen = re.compile(sys.argv[2] if len(sys.argv) > 2 else "")
    with Air(build_dir, results) as air, (results / "results").open("a", encoding="utf-8", buffering=1) as told:
        begin = time.monotonic()
        air.start(clients=2)
        print(f"everything runs after {time.monotonic() - begin:.0f} s", flush=True)
        for one in filter(lambda one: chosen.search(one.__name__), STORIES):
            begin = time.monotonic()
            try:
                play(one, air)
                fault = ""
            except Exception:  # pylint: disable=broad-except # after any failure the next story is played, too
                fault = traceback.format_exc()
            seconds = time.monotonic() - begin
            told.write(json.dumps({"story": one.__name__, "fault": fault, "seconds": round(seconds, 1)}) + "\n")
            print(f"{seconds:6.1f} s  {one.__name__}{': FAILED' if fault else ''}", flush=True)


if __name__ == "__main__":
    main()
