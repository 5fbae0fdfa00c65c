"""A directory on loopback that streams are listed on: it takes calls as an Application does, and answers as told."""
from .application import Application


def head(*fields, status="200 OK"):
    return "".join(f"{line}\r\n" for line in [f"HTTP/1.0 {status}", *fields, ""]).encode()


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
