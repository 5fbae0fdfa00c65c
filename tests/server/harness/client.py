"""Raw sockets with deadlines, and as much of HTTP (RFC 9112) as a test needs to read answers."""
import base64
import dataclasses
import socket
import struct
import time

DEADLINE = 30  # seconds; nothing here waits longer unless told


class Connection:
    """A TCP connection to the server. Reads fail with EOFError or TimeoutError, and say what had come."""

    def __init__(self, port, host="127.0.0.1", source=None, receive_buffer=None):
        family = socket.AF_INET6 if ":" in host else socket.AF_INET
        self.socket = socket.socket(family, socket.SOCK_STREAM)
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        if source:
            self.socket.bind((source, 0))
        self.socket.settimeout(DEADLINE)
        self.socket.connect((host, port))
        self.local_port = self.socket.getsockname()[1]
        self._read = bytearray()  # received, not yet handed out

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def send(self, data):
        self.socket.sendall(data.encode("latin-1") if isinstance(data, str) else data)

    def end_sending(self):
        """Tells the server that no more will come, and goes on reading."""
        self.socket.shutdown(socket.SHUT_WR)

    def close(self):
        self.socket.close()

    def reset(self):
        """Closes with a TCP reset."""
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.socket.close()

    def _more(self, deadline):
        """One read into the buffer; False at the server's end."""
        left = deadline - time.monotonic()
        if left <= 0:
            raise TimeoutError(f"nothing more came; before it: {bytes(self._read[-200:])!r}")
        self.socket.settimeout(left)
        try:
            data = self.socket.recv(65536)
        except socket.timeout:
            raise TimeoutError(f"nothing more came; before it: {bytes(self._read[-200:])!r}") from None
        self._read += data
        return bool(data)

    def _take(self, count):
        data = bytes(self._read[:count])
        del self._read[:count]
        return data

    def receive(self, count, within=DEADLINE):
        """Exactly `count` bytes."""
        deadline = time.monotonic() + within
        while len(self._read) < count:
            if not self._more(deadline):
                raise EOFError(f"{len(self._read)} of {count} bytes came: {bytes(self._read[-200:])!r}")
        return self._take(count)

    def receive_until(self, marker, within=DEADLINE):
        """Everything up to and with the marker."""
        deadline = time.monotonic() + within
        while (at := self._read.find(marker)) < 0:
            if not self._more(deadline):
                raise EOFError(f"no {marker!r} came: {bytes(self._read[-200:])!r}")
        return self._take(at + len(marker))

    def receive_all(self, within=DEADLINE):
        """Everything up to the server's end of the connection, orderly or by a reset."""
        deadline = time.monotonic() + within
        try:
            while self._more(deadline):
                pass
        except ConnectionResetError:
            pass
        return self._take(len(self._read))

    def receive_for(self, seconds):
        """What comes in this time, or until the server ends."""
        deadline = time.monotonic() + seconds
        try:
            while self._more(deadline):
                pass
        except TimeoutError:
            pass
        return self._take(len(self._read))

    def receive_some(self, within=DEADLINE):
        """Whatever is there, at least a byte; empty at the server's end."""
        if not self._read:
            self._more(time.monotonic() + within)
        return self._take(len(self._read))

    def ends_within(self, seconds):
        """Whether the server ends the connection in this time; what it still sends is dropped."""
        try:
            self.receive_all(seconds)
        except TimeoutError:
            return False
        return True

    # ---- HTTP ----------------------------------------------------------------------------------------------------

    def receive_head(self, within=DEADLINE):
        return Head(self.receive_until(b"\r\n\r\n", within))

    def receive_chunk(self, within=DEADLINE):
        """(data, extension) of one chunk; the data is empty at the last one."""
        line = self.receive_until(b"\r\n", within)[:-2]
        size, _, extension = line.partition(b";")
        data = self.receive(int(size, 16), within)
        assert self.receive(2, within) == b"\r\n", "a chunk does not end where it should"
        return data, extension

    def receive_body(self, head, within=DEADLINE):
        """The body as the head announces it: chunked, of a length, or up to the end of the connection."""
        if head.get("transfer-encoding", "").lower() == "chunked":
            body = bytearray()
            while data := self.receive_chunk(within)[0]:
                body += data
            return bytes(body)
        if (length := head.get("content-length")) is not None:
            return self.receive(int(length), within)
        return self.receive_all(within)


class Head:
    """The first line and the header lines of an answer, HTTP or ICY."""

    def __init__(self, raw):
        self.raw = raw
        first, *lines = raw.decode("latin-1").rstrip("\r\n").split("\r\n")
        self.first_line = first
        self.protocol, _, rest = first.partition(" ")
        status, _, self.reason = rest.partition(" ")
        self.status = int(status) if status.isdigit() else 0
        self.lines = [tuple(part.strip() for part in line.split(":", 1)) for line in lines if ":" in line]

    def get(self, name, default=None):
        """The value of the first header of this name, in any case."""
        return next((value for key, value in self.lines if key.lower() == name.lower()), default)

    def __getitem__(self, name):
        if (value := self.get(name)) is None:
            raise KeyError(f"{name} is not among {self.lines}")
        return value

    def __contains__(self, name):
        return self.get(name) is not None

    def __repr__(self):
        return f"Head({self.raw!r})"


@dataclasses.dataclass
class Answer:
    head: Head
    body: bytes

    @property
    def status(self):
        return self.head.status

    @property
    def text(self):
        return self.body.decode("utf-8", "replace")


def basic(user, password):
    """The value of an Authorization header (RFC 7617)."""
    return "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


def request_text(method, target, headers=None, version="HTTP/1.1"):
    headers = {"Host": "localhost", **(headers or {})}
    lines = [f"{method} {target} {version}", *(f"{name}: {value}" for name, value in headers.items() if value is not None)]
    return "\r\n".join(lines) + "\r\n\r\n"


def fetch(port, target, *, method="GET", headers=None, body=b"", user=None, version="HTTP/1.1", host="127.0.0.1",
          source=None, within=DEADLINE):
    """One request on a connection of its own, and its whole answer. `user` is a pair of name and password."""
    headers = dict(headers or {})
    if user:
        headers.setdefault("Authorization", basic(*user))
    if body:
        headers.setdefault("Content-Length", len(body))
    headers.setdefault("Connection", "close")
    with Connection(port, host, source) as connection:
        connection.send(request_text(method, target, headers, version).encode("latin-1") + body)
        head = connection.receive_head(within)
        return Answer(head, b"" if method == "HEAD" else connection.receive_body(head, within))
