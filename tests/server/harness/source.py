"""Encoders: they log in, and then a thread sends a stream at the pace at which it plays."""
import threading
import time

from . import icy
from .client import Connection, basic, request_text


class Source:
    """The common part. `stream` yields (bytes, seconds), as the makers in `media` do; without one push() sends.

    `pace` is how many times faster than it plays a stream is sent; None is as fast as it goes.
    start() logs in and sets the thread going; what was sent is in `sent` (with keep=True) and `sent_bytes`.
    As a context: starts, and stops at the end.
    """

    def __init__(self, server, stream=(), *, port=None, pace=1.0, keep=False):
        self.connection = Connection(port or server.port, server.host)
        self.stream = stream
        self.pace = pace
        self.sent = bytearray() if keep else None  # the stream's own bytes, without framing and metadata
        self.sent_bytes = 0
        self.error = None  # what ended the sending, when it was not the end of the stream
        self._stopping = threading.Event()
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.stop()

    def log_in(self):
        raise NotImplementedError

    def pack(self, data):
        """The bytes on the wire for bytes of the stream."""
        return data

    def start(self):
        self.log_in()
        self._thread.start()
        return self

    def push(self, data):
        """Sends these bytes of the stream now; for sources without a stream of their own."""
        self.connection.send(self.pack(data))

    def stop(self):
        """Stops sending and closes the connection."""
        self._stopping.set()
        if self._thread.is_alive():
            self._thread.join(10)
        self.connection.close()

    def wait_sent(self, within=60):
        """Until the whole stream is sent; for streams that end."""
        assert self._ended.wait(within), "the source is still sending"
        if self.error:
            raise self.error

    def wait_bytes(self, count, within=60):
        """Until so many bytes of the stream have been sent."""
        deadline = time.monotonic() + within
        while self.sent_bytes < count:
            if self._ended.is_set() or time.monotonic() > deadline:
                raise AssertionError(f"only {self.sent_bytes} bytes were sent: {self.error}")
            time.sleep(0.01)

    def ended_by_server(self, within):
        """Whether sending failed in this time because the server has ended the connection."""
        return self._ended.wait(within) and self.error is not None

    def _run(self):
        due = time.monotonic()
        try:
            for data, seconds in self.stream:
                if self._stopping.is_set():
                    break
                self.connection.send(self.pack(data))
                self.sent_bytes += len(data)
                if self.sent is not None:
                    self.sent += data
                if self.pace:
                    due += seconds / self.pace
                    self._stopping.wait(max(0.0, due - time.monotonic()))
        except OSError as fault:
            self.error = fault
        finally:
            self._ended.set()


class IcySource(Source):
    """Logs in with the line "user:password", as SHOUTcast encoders do. With `metaint` it sends titles."""

    def __init__(self, server, stream=(), *, user="source", password="hackme", content_type="audio/mpeg", metaint=None,
                 headers=None, port=None, **options):
        super().__init__(server, stream, port=port or server.source_port, **options)
        self.login = f"{user}:{password}"
        self.headers = {"content-type": content_type, **(headers or {})}
        if metaint:
            self.headers["icy-metaint"] = metaint
        self._mixer = icy.Mixer(metaint) if metaint else None

    def log_in(self):
        self.connection.send(self.login + "\r\n")
        answer = self.connection.receive_until(b"\r\n")
        if answer != b"OK2\r\n":
            raise PermissionError(answer.decode("latin-1"))
        self.connection.receive_until(b"\r\n\r\n")
        self.connection.send("".join(f"{name}:{value}\r\n" for name, value in self.headers.items()) + "\r\n")

    def set_title(self, title, url=""):
        """The title goes out with the next metadata block."""
        self._mixer.announce(title, url)

    def set_words(self, words):
        """The next metadata block is made of these words: bytes as they stand, a text is a title."""
        if isinstance(words, bytes):
            self._mixer.announce(raw=words)
        else:
            self._mixer.announce(words)

    def pack(self, data):
        return self._mixer.mix(data) if self._mixer else data


class HttpSource(Source):
    """Sends with SOURCE or PUT to a mount. `chunked` frames the body (RFC 9112), one chunk per piece of the stream.

    `answer` is the head of the server's answer to the login, `last_chunk` what ends the body that it may announce.
    With expect=True, the default for PUT, the request asks for "100-continue".
    """

    def __init__(self, server, mount, stream=(), *, method="SOURCE", user="source", password="hackme",
                 content_type="audio/mpeg", headers=None, chunked=False, expect=None, version="HTTP/1.1", **options):
        super().__init__(server, stream, **options)
        self.mount, self.method, self.version = mount, method, version
        self.chunked = chunked
        self.answer = self.last_chunk = None
        self.headers = {"Authorization": basic(user, password), "Content-Type": content_type, **(headers or {})}
        if chunked:
            self.headers["Transfer-Encoding"] = "chunked"
        if method == "PUT" if expect is None else expect:
            self.headers["Expect"] = "100-continue"

    def log_in(self):
        self.connection.send(request_text(self.method, self.mount, self.headers, self.version))
        self.answer = self.connection.receive_head()
        if self.answer.status not in (100, 200):
            raise PermissionError(self.answer.first_line)
        if "Transfer-Encoding" in self.answer:
            self.last_chunk = self.connection.receive(3)  # unread bytes would make a close a reset

    def pack(self, data):
        return b"%x\r\n%s\r\n" % (len(data), data) if self.chunked else data

    def end(self):
        """The end of a chunked body, as a well-behaved client sends it."""
        self.connection.send(b"0\r\n\r\n")
