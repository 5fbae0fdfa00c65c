"""Directories on loopback that streams are listed on: they take calls as an Application does, and answer as told."""
import pathlib
import select
import socket
import time
import urllib.parse

from .application import PATIENCE, Application, Call
from .server import Server, binary

PORT_PATIENCE = 600  # seconds; all tests with a SHOUTcast directory take turns, whoever runs them


def head(*fields, status="200 OK"):
    return "".join(f"{line}\r\n" for line in [f"HTTP/1.0 {status}", *fields, ""]).encode()


def close_at_once(connection, _):
    connection.shutdown(socket.SHUT_RDWR)


def keep_silent(connection, _):
    select.select([connection], [], [], PATIENCE)


def silent_when_removed(directory, woken=None):
    """Says yes to all but a removal, or to that as well once the threading.Event `woken` is set."""
    def answer(connection, call):
        if call.action == "remove" and not woken:
            return keep_silent(connection, call)
        if call.action == "remove":
            woken.wait(PATIENCE)
        connection.sendall(directory.yes(call))
    return answer


def in_single_bytes(directory):
    def answer(connection, call):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in directory.yes(call):
            connection.sendall(bytes([byte]))
            time.sleep(0.001)
    return answer


def behind_an_interim_answer(directory):
    return lambda connection, call: connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n" + directory.yes(call))


def with_more_than_told(directory):
    return lambda connection, call: connection.sendall(directory.yes(call) + b"x" * 100000)


def after_some_thought(directory):
    def answer(connection, call):
        time.sleep(2)
        connection.sendall(directory.yes(call))
    return answer


# Odd ways to say yes, all in order.
MANNERS = [in_single_bytes, behind_an_interim_answer, with_more_than_told, after_some_thought]


class Directory(Application):
    """Says yes to all; `frequency` is the seconds between touches that it asks for. `answer` says otherwise."""

    def __init__(self, frequency=300, **options):
        super().__init__(self._yes, **options)
        self.frequency = frequency

    def _yes(self, connection, call):
        connection.sendall(self.yes(call))

    def yes(self, call):
        fields = ["YPResponse: 1", f"YPMessage: {call.action} done"]
        if call.action == "add":
            fields += ["SID: 17", f"TouchFreq: {self.frequency}"]
        return head(*fields)


def lines(**pairs):
    """An answer of the SHOUTcast directory: "icy-key: value" in each line of the body."""
    body = "".join(f"icy-{key}: {value}\n" for key, value in pairs.items())
    return head(f"Content-Length: {len(body)}") + body.encode()


class Query(Call):
    @property
    def target(self):
        return urllib.parse.urlsplit(self.head.first_line.split()[1])

    @property
    def fields(self):
        return dict(urllib.parse.parse_qsl(self.target.query, keep_blank_values=True))

    @property
    def action(self):
        return {"/addsrv": "add", "/tchsrv": "touch", "/remsrv": "remove"}.get(self.target.path, self.target.path)


class ShoutcastDirectory(Directory):
    """The one that LocalDirectoryServer knows. There is only one at a time: a test that asks for it has to close it
    after its server, which would otherwise call the next one.

    `minutes` between touches is what it asks for when a stream is added, `frequency`, in seconds, when it is touched.
    """

    kind = Query
    HOST, PORT = "127.0.0.7", 9917  # as in tests/CMakeLists.txt

    def __init__(self, minutes=0, **options):
        super().__init__(**options)
        self.minutes = minutes

    def yes(self, call):
        if call.action == "add":
            return lines(response="ack", id=17, tchfrq=self.minutes)
        return lines(response="ack", tchfrq=self.frequency)

    def _listen(self):
        deadline = time.monotonic() + PORT_PATIENCE
        while True:
            try:
                return socket.create_server((self.HOST, self.PORT))
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)


class LocalDirectoryServer(Server):
    """The program as it is built for the ShoutcastDirectory above."""

    def program(self):
        return str(pathlib.Path(binary()).with_name("quillwave_local_directory"))
