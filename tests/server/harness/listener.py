"""Players."""
import time

from . import icy
from .client import DEADLINE, Connection, request_text


class Listener(Connection):
    """Asks for a mount and takes what comes apart: chunks first, then ICY metadata, as the head announces them.

    metadata=True asks for ICY metadata. `titles` are those that have come so far, `blocks` their
    (place in the audio, words), `extensions` those of the chunks that had one.
    """

    def __init__(self, server, mount, *, metadata=False, headers=None, method="GET", version="HTTP/1.0", port=None, **options):
        super().__init__(port or server.port, server.host, **options)
        headers = {"User-Agent": "quillwave-tests", **({"Icy-MetaData": "1"} if metadata else {}), **(headers or {})}
        self.send(request_text(method, mount, headers, version))
        self.head = self.receive_head()
        metaint = int(self.head.get("icy-metaint", 0))
        self._demuxer = icy.Demuxer(metaint) if metaint else None
        self._chunked = self.head.get("transfer-encoding", "").lower() == "chunked"
        self._audio = bytearray()
        self.extensions = []

    def _piece(self, within):
        """Audio of one read; empty at the end of the stream."""
        if self._chunked:
            data, extension = self.receive_chunk(within)
            if extension:
                self.extensions.append(extension)
        else:
            data = self.receive_some(within)
        if not data:
            return False
        self._audio += self._demuxer.feed(data) if self._demuxer else data
        return True

    def audio(self, count, within=DEADLINE):
        """The next `count` bytes of audio."""
        while len(self._audio) < count:
            if not self._piece(within):
                raise EOFError(f"the stream ended after {len(self._audio)} of {count} bytes")
        data = bytes(self._audio[:count])
        del self._audio[:count]
        return data

    def audio_from(self, marker, count, within=DEADLINE):
        """`count` bytes of audio from the first place of `marker` on; what comes before it is dropped."""
        del self._audio[:self._find(marker, within)]
        return self.audio(count, within)

    def audio_through(self, marker, within=DEADLINE):
        """All audio up to and with `marker`."""
        return self.audio(self._find(marker, within) + len(marker))

    def audio_for(self, seconds):
        """The audio that comes in this time."""
        deadline = time.monotonic() + seconds
        try:
            while self._piece(deadline - time.monotonic()):
                pass
        except TimeoutError:
            pass
        return self.audio(len(self._audio))

    def _find(self, marker, within):
        while (at := self._audio.find(marker)) < 0:
            if not self._piece(within):
                raise EOFError(f"the stream ended without {marker[:40]!r}")
        return at

    def audio_until(self, holds, within=DEADLINE):
        """Reads on until holds() is true, and gives the audio that came meanwhile."""
        while not holds():
            if not self._piece(within):
                raise EOFError("the stream ended")
        data = bytes(self._audio)
        self._audio.clear()
        return data

    @property
    def blocks(self):
        return self._demuxer.blocks if self._demuxer else []

    @property
    def titles(self):
        return self._demuxer.titles if self._demuxer else []
