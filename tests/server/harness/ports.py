"""Blocks of ports for servers that run at the same time, in one test run or in several."""
import itertools
import os
import socket

BLOCK = 10
FIRST, END = 10000, 32000  # below the ports that the system gives to outgoing connections
_count = (END - FIRST) // BLOCK
_start = itertools.count(os.getpid() * 37)


class PortBlock:
    """Neighbouring ports, `first` to `first + BLOCK - 1`, free when taken and this process's until released.

    A block is reserved by a name of the kernel's (an abstract Unix socket), which goes with the process.
    """

    def __init__(self):
        for number in itertools.islice(_start, _count):
            first = FIRST + number % _count * BLOCK
            self._claim = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
            try:
                self._claim.bind(f"\0quillwave-test-ports-{first}")
                for port in range(first, first + BLOCK):
                    _must_be_free(port)
            except OSError:
                self._claim.close()
                continue
            self.first = first
            return
        raise RuntimeError("all ports are taken")

    def release(self):
        self._claim.close()


def _must_be_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # as the server does: TIME_WAIT is no hindrance
        probe.bind(("", port))
