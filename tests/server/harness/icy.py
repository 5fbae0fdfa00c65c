"""ICY metadata: after every `metaint` bytes of audio one byte tells the length of a block in units of 16 bytes.

The block is text, StreamTitle='...';StreamUrl='...'; filled up with NUL. Length 0: nothing has changed.
"""
import re

UNIT = 16


def block(title=None, url="", raw=None):
    """A block with its length byte; without anything to say the one byte 0. `raw` are the words themselves."""
    if title is None and raw is None:
        return b"\0"
    words = raw if raw is not None else f"StreamTitle='{title}';StreamUrl='{url}';".encode("utf-8")
    units = len(words) // UNIT + 1
    return bytes([units]) + words.ljust(units * UNIT, b"\0")


class Mixer:
    """Puts blocks into audio, as encoders do. A title goes into the next block, once."""

    def __init__(self, metaint):
        self.metaint = self.left = metaint
        self._next = None

    def announce(self, title=None, url="", raw=None):
        self._next = block(title, url, raw)

    def mix(self, audio):
        out = bytearray()
        while len(audio) >= self.left:
            out += audio[:self.left] + (self._next or b"\0")
            audio, self.left, self._next = audio[self.left:], self.metaint, None
        self.left -= len(audio)
        return bytes(out + audio)


class Demuxer:
    """Takes a stream apart: feed() gives the audio; `blocks` are (place in the audio, words) of those not empty."""

    def __init__(self, metaint):
        self.metaint = self.left = metaint
        self.place = 0
        self.blocks = []
        self._raw = bytearray()

    def feed(self, data):
        self._raw += data
        audio = bytearray()
        while self._raw:
            if self.left:
                part = self._raw[:self.left]
                audio += part
                self.left -= len(part)
                self.place += len(part)
                del self._raw[:len(part)]
                continue
            length = self._raw[0] * UNIT
            if len(self._raw) < 1 + length:
                break
            if length:
                self.blocks.append((self.place, bytes(self._raw[1:1 + length]).rstrip(b"\0")))
            del self._raw[:1 + length]
            self.left = self.metaint
        return bytes(audio)

    @property
    def titles(self):
        return [title_of(words) for _, words in self.blocks]


def title_of(words):
    found = re.search(rb"StreamTitle='(.*?)';", words, re.S)
    return found.group(1).decode("utf-8", "replace") if found else None
