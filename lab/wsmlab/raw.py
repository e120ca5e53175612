"""A collector that keeps received messages as bytes, for tests that compare bytes."""

import selectors
import socket
import threading


class RawCollector:
    """Listens at the collector's path in a lab. `messages`: the bytes of each connection, in the order of the connections;
    `peers`: the path that each was bound to."""

    def __init__(self, lab):
        self._lab = lab
        self.messages, self.peers = [], []
        path = lab.files / "sta_server_domain"
        path.unlink(missing_ok=True)
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(path))
        self._listener.listen(1024)
        self._stop, self._stopped = socket.socketpair()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def _serve(self):
        with selectors.DefaultSelector() as selector:
            selector.register(self._listener, selectors.EVENT_READ)
            selector.register(self._stopped, selectors.EVENT_READ)
            while self._stopped not in [key.fileobj for key, _ in selector.select()]:
                connection, _ = self._listener.accept()
                with connection:
                    connection.settimeout(10)
                    data = bytearray()
                    while chunk := connection.recv(4096):
                        data += chunk
                    self.peers.append(connection.getpeername())
                    self.messages.append(bytes(data))

    def wait(self, count, timeout=10):
        """Waits for `count` messages since the beginning; returns the last of them."""
        self._lab.wait(lambda: len(self.messages) >= count, timeout, f"{count} reports")
        return self.messages[count - 1]

    def close(self):
        self._stop.close()
        self._thread.join()
        self._listener.close()
        self._stopped.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()
