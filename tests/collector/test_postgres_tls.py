"""A PostgreSQL that takes none but encrypted connections, and who believes its certificate."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

import postgres
from brokers import free_port
from certificates import certificate
from images import NOON, mac, visit


@pytest.fixture(scope="module")
def secured(server):
    """The port of one with a password and a certificate for 127.0.0.1, and the folder of who vouches for it."""
    if shutil.which("openssl") is None:
        pytest.skip("openssl is not installed")
    folder, port = pathlib.Path(tempfile.mkdtemp(prefix="wsm-tls-")), free_port()
    certificate(folder, "ca", "authority")
    certificate(folder, "other", "another authority", authority="other")
    certificate(folder, "server", "database")
    who = postgres.as_user()
    for name in ("server.crt", "server.key"):
        shutil.copy(folder / name, server.folder / name)
        (server.folder / name).chmod(0o600)
        if who:
            os.chown(server.folder / name, who["user"], who["group"])
    server.psql("ALTER USER wsm PASSWORD 'secret'")
    (server.folder / "data/pg_hba.conf").write_text("local all all trust\nhostssl all all 127.0.0.1/32 scram-sha-256\n")
    server.stop()
    server.settings = ("listen_addresses=127.0.0.1", "ssl=on", f"ssl_cert_file={server.folder}/server.crt",
                       f"ssl_key_file={server.folder}/server.key")
    server.port = port
    server.start()
    yield port, folder
    shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture(name="store")
def a_store(secured, build_dir):
    """Stores a stay there, with this host and these words of the URL; what became of it."""
    port, folder = secured

    def store_one(words, host="127.0.0.1", password="secret"):
        url = f"postgresql://wsm:{password}@{host}:{port}/postgres?{words.format(folder=folder)}"
        done = subprocess.run([build_dir / "bin/wsm-collector", "--quiet", "--store", url, "-"], input=visit(1, NOON, 100), capture_output=True,
                              timeout=120, check=False)
        asked = subprocess.run([build_dir / "bin/wsm-collector", "query", "--store", url, "sessions", "--csv"], capture_output=True, text=True,
                               timeout=60, check=False)
        return done.returncode, done.stderr.decode(), asked
    return store_one


def test_a_server_that_is_vouched_for_by_name_is_believed(store):
    status, said, asked = store("sslmode=verify-full&sslrootcert={folder}/ca.crt")
    assert (status, said) == (0, "")
    assert mac(1) in asked.stdout


@pytest.mark.parametrize("words, host, password, why", [
    pytest.param("sslmode=verify-full&sslrootcert={folder}/other.crt", "127.0.0.1", "secret", "certificate verify failed", id="another authority"),
    pytest.param("sslmode=verify-full&sslrootcert={folder}/ca.crt", "localhost", "secret", 'does not match host name "localhost"', id="another name"),
    pytest.param("sslmode=verify-full&sslrootcert={folder}/none.crt", "127.0.0.1", "secret", "none.crt", id="no authority"),
    pytest.param("sslmode=disable", "127.0.0.1", "secret", "no encryption", id="in clear"),
    pytest.param("sslmode=verify-full&sslrootcert={folder}/ca.crt", "127.0.0.1", "wrong", "password authentication failed", id="wrong password")])
def test_nothing_goes_to_a_server_that_is_not(store, words, host, password, why):
    status, said, asked = store(words, host, password)
    assert status == 1 and why in said
    assert asked.returncode == 1 and why in asked.stderr
    assert "secret" not in said + asked.stderr
