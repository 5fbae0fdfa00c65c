"""A web application on loopback that the server calls: it is told of mounts and listeners, and decides."""
import dataclasses
import select
import socket
import threading
import time
import urllib.parse

from .client import Head

PATIENCE = 30
YES = b"HTTP/1.1 200 OK\r\nicecast-auth-user: 1\r\n\r\n"
NO = b"HTTP/1.1 200 OK\r\nicecast-auth-user: 0\r\n\r\n"


@dataclasses.dataclass
class Call:
    head: Head
    body: str

    @property
    def fields(self):
        return dict(urllib.parse.parse_qsl(self.body, keep_blank_values=True))

    @property
    def action(self):
        return self.fields.get("action")


class Application:
    """`answer` is what every call gets: bytes, or a function that is given the connection and the Call.

    `delay` is the time to think about each; calls do not wait for each other. As a context: closes at the end.
    """

    kind = Call

    def __init__(self, answer=YES, delay=0.0):
        self.answer, self.delay = answer, delay
        self.calls = []
        self._news = threading.Condition()
        self._socket = self._listen()
        self.port = self._socket.getsockname()[1]
        self._open = True
        threading.Thread(target=self._accept, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._open = False
        self._socket.close()

    def address(self, path="/"):
        return f"http://127.0.0.1:{self.port}{path}"

    def wait_call(self, action, count=1, within=PATIENCE):
        """The `count`th call with this action."""
        deadline = time.monotonic() + within
        with self._news:
            while len(found := [call for call in self.calls if call.action == action]) < count:
                left = deadline - time.monotonic()
                assert left > 0, f"{action} did not come {count} times; there were {[call.body for call in self.calls]}"
                self._news.wait(left)
        return found[count - 1]

    def actions(self):
        with self._news:
            return [call.action for call in self.calls]

    def _listen(self):
        return socket.create_server(("127.0.0.1", 0), backlog=4096)

    def _accept(self):
        while self._open:
            try:
                if select.select([self._socket], [], [], 0.2)[0]:
                    connection, _ = self._socket.accept()
                    threading.Thread(target=self._serve, args=(connection,), daemon=True).start()
            except (OSError, ValueError):
                return

    def _serve(self, connection):
        with connection:
            connection.settimeout(PATIENCE)
            try:
                call = read_call(connection, self.kind)
                with self._news:
                    self.calls.append(call)
                    self._news.notify_all()
                time.sleep(self.delay)
                if callable(self.answer):
                    self.answer(connection, call)
                else:
                    connection.sendall(self.answer)
                connection.shutdown(socket.SHUT_WR)
                connection.recv(1)  # lets the answer arrive before the close
            except OSError:
                pass  # the server has left, or never finished


def read_call(connection, kind):
    data = b""
    while b"\r\n\r\n" not in data:
        data += receive(connection)
    head, _, body = data.partition(b"\r\n\r\n")
    head = Head(head + b"\r\n\r\n")
    while len(body) < int(head.get("content-length", 0)):
        body += receive(connection)
    return kind(head, body.decode("latin-1"))


def receive(connection):
    data = connection.recv(65536)
    if not data:
        raise ConnectionError("the call is not whole")
    return data
