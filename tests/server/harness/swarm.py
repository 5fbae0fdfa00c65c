"""A source and many listeners in one loop, which knows when it was late itself.

For questions about stalls: a gap counts for the server only when the loop looked all the time.
"""
import selectors
import socket
import time

from .client import request_text

ON_TIME = 0.1  # seconds between two looks; a loop that was away for longer cannot tell who was late


class Ear:
    """One listener. `state` is "asking", "hearing" or "gone"."""

    def __init__(self, port, target):
        self.socket = socket.socket()
        self.socket.setblocking(False)
        self.socket.connect_ex(("127.0.0.1", port))
        self.asking = request_text("GET", target, {"User-Agent": "swarm"}, "HTTP/1.0").encode()
        self.head = b""
        self.state = "asking"
        self.status = None
        self.bytes = 0
        self.last = None  # when audio came last
        self.stalls = []


class Swarm:
    """push() is called with the seconds gone whenever a tenth of a second is over, as the source of the streams."""

    def __init__(self, port, push):
        self.port, self.push = port, push
        self.ears = []
        self.selector = selectors.DefaultSelector()
        self.looked = time.monotonic()
        self.late = self.looked  # until when the loop has been no witness
        self.pushed = self.looked

    def join(self, target, count):
        group = [Ear(self.port, target) for _ in range(count)]
        for ear in group:
            self.selector.register(ear.socket, selectors.EVENT_WRITE, ear)
        self.ears += group
        return group

    def run(self, seconds=0.0, until=None, within=120):
        """Runs for so long, or until something holds. Whether it does."""
        begun = time.monotonic()
        while True:
            now = self.look()
            if until is not None and until():
                return True
            if now - begun > (within if until is not None else seconds):
                return until is None

    def look(self):
        ready = self.selector.select(0.02)
        now = time.monotonic()
        if now - self.looked > ON_TIME:
            self.late = now
        self.looked = now
        if now - self.pushed >= 0.1:
            self.push(now - self.pushed)
            self.pushed = now
        for key, events in ready:
            if events & selectors.EVENT_WRITE:
                self.ask(key.data)
            else:
                self.hear(key.data, now)
        return now

    def ask(self, ear):
        try:
            ear.socket.send(ear.asking)
            self.selector.modify(ear.socket, selectors.EVENT_READ, ear)
        except OSError:
            self.leave(ear)

    def hear(self, ear, now):
        try:
            data = ear.socket.recv(65536)
        except OSError:
            data = b""
        if not data:
            return self.leave(ear)
        if ear.state == "asking":
            data = self.read_head(ear, data)
        if ear.state != "hearing" or not data:
            return
        if ear.last is not None and ear.last > self.late:
            ear.stalls.append(now - ear.last)
        ear.last = now
        ear.bytes += len(data)

    @staticmethod
    def read_head(ear, data):
        ear.head += data
        head, end, rest = ear.head.partition(b"\r\n\r\n")
        if not end:
            return b""
        ear.status = int(head.split()[1])
        ear.state = "hearing"
        return rest

    def leave(self, ear):
        self.selector.unregister(ear.socket)
        ear.socket.close()
        ear.state = "gone"

    def close(self):
        for ear in self.ears:
            ear.socket.close()
        self.selector.close()


def longer(group, seconds):
    """How many gaps of a group were longer than this."""
    return sum(gap > seconds for ear in group for gap in ear.stalls)
