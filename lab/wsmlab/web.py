"""The lab's collector with its store and its page, outside the lab's network, where a browser reaches it."""

import math
import pathlib
import re
import subprocess
import tempfile
import time

from . import Lab, LabError, history
from .space import Follower, Printed

ADDRESS = "127.0.0.1:8080"
_PATIENCE = 30  # seconds for its end


class _Outside:
    """A program outside the lab, with the interface of the lab's own programs."""

    def __init__(self, name, argv):
        self.name = name
        self.out, self.err = Printed(name), Printed(f"{name} errors")
        self._process = subprocess.Popen([str(word) for word in argv], stdin=subprocess.DEVNULL, stdout=self.out.fd, stderr=self.err.fd)

    @property
    def status(self):
        return self._process.poll()

    @property
    def running(self):
        return self.status is None

    def text(self):
        return self.out.text() + self.err.text()

    def follow(self):
        return Follower(self.out)

    def stop(self):
        self._process.terminate()
        try:
            return self._process.wait(_PATIENCE)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self._process.wait()


class LabWithPage(Lab):
    """A lab whose collector serves the page at `address`, after `days` of history. `url` once it has been started."""

    def __init__(self, build_dir, address=ADDRESS, days=0, stations=0, **options):
        super().__init__(build_dir, **options)
        self._address, self._days, self._stations = address, days, stations
        self._folder = tempfile.TemporaryDirectory(prefix="wsmd-page-")
        self._socket = None
        self.url = None

    def start_collector(self, *options):
        folder = pathlib.Path(self._folder.name)
        count = max(self._stations, history.LEAST)
        (folder / "names").write_text("".join(f"{history.mac_of(n)} {history.name_of(n)}\n" for n in range(count + 1)), encoding="utf-8")
        store = ["--store", f"sqlite:{folder / 'store'}", "--keep", str(math.ceil(self._days) + 30)]
        program = self.build_dir / "bin/wsm-collector"
        if self._days:
            images = history.reports(self._days, int(time.time()) - 60, self._stations)
            (folder / "reports").write_bytes(b"".join(images))
            subprocess.run([program, "--quiet", *store, folder / "reports"], check=True)
            (folder / "reports").unlink()
        self._socket = str(self.files / "sta_server_domain")
        self.collector = _Outside("wsm-collector", [
            program, "--json", "--socket", self._socket, *store, "--names", folder / "names",
            "--http", self._address, *options])
        self._reports, self._new_reports, self._seen = [], self.collector.follow(), 0
        self.wait(self._listens, 10, "the collector to listen")
        port = re.search(r"http: port (\d+)", self.collector.err.text())
        self.url = f"http://{self._address.rpartition(':')[0]}:{port[1] if port else self._address.rpartition(':')[2]}/"
        return self.collector

    def _listens(self):
        if not self.collector.running:
            raise LabError(self.collector.err.text().strip() or f"the collector ended with status {self.collector.status}")
        return any(line.endswith(self._socket) for line in pathlib.Path("/proc/self/net/unix").read_text(encoding="utf-8").splitlines())

    def end(self):
        super().end()
        if self.collector and (status := self.collector.stop()) != 0:
            raise LabError(f"{self.collector.name} ended with status {status}: {self.collector.err.text()}")

    def __exit__(self, *failure):
        try:
            super().__exit__(*failure)
        finally:
            if self.collector and self.collector.running:
                self.collector.stop()
            self._folder.cleanup()
