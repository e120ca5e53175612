"""A PostgreSQL of a test's own: below a temporary folder, on a socket there, as a user without rights."""

import contextlib
import glob
import os
import pathlib
import pwd
import shutil
import signal
import subprocess
import tempfile

from programs import wait

BIN = next(iter(sorted(glob.glob("/usr/lib/postgresql/*/bin"), key=lambda path: int(path.split("/")[-2]), reverse=True)), None)
USER = "nobody"


def as_user():
    """It refuses to be run by root."""
    if os.geteuid() != 0:
        return {}
    entry = pwd.getpwnam(USER)
    return {"user": entry.pw_uid, "group": entry.pw_gid, "extra_groups": []}


class Postgres:
    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="wsm-pg-"))  # a socket's path is short
        who = as_user()
        if who:
            os.chown(self.folder, who["user"], who["group"])
        self.environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "HOME": str(self.folder), "TZ": "UTC"}
        self.run([f"{BIN}/initdb", "-D", self.folder / "data", "-U", "wsm", "-A", "trust", "-E", "UTF8", "--no-sync"])
        self.process = None
        self.start()

    def run(self, argv):
        done = subprocess.run([str(word) for word in argv], cwd=self.folder, env=self.environment, capture_output=True, text=True,
                              check=False, timeout=120, **as_user())
        assert done.returncode == 0, done.stdout + done.stderr

    def start(self):
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(
                [f"{BIN}/postgres", "-D", self.folder / "data", "-k", self.folder, "-c", "listen_addresses=",
                 "-c", "max_connections=40", "-c", "autovacuum_naptime=5s"],
                cwd=self.folder, env=self.environment, stdout=log, stderr=log, **as_user())
        wait(lambda: self.answers() or self.process.poll() is not None, "the database")
        assert self.process.poll() is None, self.log()

    def log(self):
        return (self.folder / "log").read_text(errors="replace")

    def answers(self):
        return subprocess.run([f"{BIN}/pg_isready", "-q", "-h", self.folder], check=False).returncode == 0

    def stop(self, number=signal.SIGQUIT):
        if self.process.poll() is None:
            self.process.send_signal(number)
        return self.process.wait(60)

    def close(self):
        self.stop()
        shutil.rmtree(self.folder, ignore_errors=True)

    def url(self, database="postgres"):
        return f"postgresql://wsm@/{database}?host={self.folder}"

    def psql(self, sql, database="postgres"):
        """Rows of a statement, as lists of texts."""
        done = subprocess.run([f"{BIN}/psql", "-X", "-q", "-A", "-t", "-F", "\x1f", "-v", "ON_ERROR_STOP=1", "-d", self.url(database), "-c", sql],
                              capture_output=True, text=True, check=False, timeout=120, env=self.environment)
        assert done.returncode == 0, done.stderr
        return [line.split("\x1f") for line in done.stdout.splitlines()]

    def session(self, database="postgres"):
        """psql that reads statements from its input, for a transaction that is held open."""
        return subprocess.Popen([f"{BIN}/psql", "-X", "-q", "-A", "-t", "-d", self.url(database)], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, text=True, env=self.environment)


@contextlib.contextmanager
def a_postgres():
    one = Postgres()
    try:
        yield one
    finally:
        one.close()
