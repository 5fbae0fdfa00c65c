"""Takes a stream in the FLV container apart (Adobe, Video File Format 10.1, annex E).

    header  "FLV", 1 byte version, 1 flags, 4 length of the header | 4 bytes 0
    tag     1 byte type, 3 length of the data, 3 time, 1 high byte of the time, 3 stream 0 | data | 4 length before it

All numbers have their high byte first; times are milliseconds.
"""
import dataclasses
import struct

AUDIO, SCRIPT = 8, 18
HEADER_LENGTH = 13


@dataclasses.dataclass
class Tag:
    kind: int
    time: int
    data: bytes


class FlvReader:
    """Reads from a Listener. `header` is what stands before the first tag."""

    def __init__(self, listener):
        self._listener = listener
        self.header = listener.audio(HEADER_LENGTH)

    def tag(self):
        head = self._listener.audio(11)
        length = int.from_bytes(head[1:4], "big")
        time = head[7] << 24 | int.from_bytes(head[4:7], "big")
        assert head[8:] == bytes(3), "the stream id is not 0"
        data = self._listener.audio(length)
        assert self._listener.audio(4) == struct.pack(">I", 11 + length), "a tag does not tell its length at its end"
        return Tag(head[0], time, data)

    def tag_until(self, holds):
        """The first tag for which holds(tag) is true."""
        while not holds(tag := self.tag()):
            pass
        return tag

    def script(self, name):
        """The map of the next script tag of this name."""
        start = b"\x02" + struct.pack(">H", len(name)) + name.encode()
        tag = self.tag_until(lambda tag: tag.kind == SCRIPT and tag.data.startswith(start))
        return script_map(tag.data[len(start):])


def script_map(data):
    """An ECMA array: 8, 4 bytes count, then keys (2 bytes length, text) and values, 00 00 09 at its end."""
    assert data[0] == 8, "not an ECMA array"
    count, at, entries = int.from_bytes(data[1:5], "big"), 5, {}
    for _ in range(count):
        key, at = _text(data, at)
        entries[key], at = _value(data, at)
    assert data[at:] == b"\0\0\x09", "the array does not end where its count says"
    return entries


def _text(data, at):
    length = int.from_bytes(data[at:at + 2], "big")
    return data[at + 2:at + 2 + length].decode(), at + 2 + length


def _value(data, at):
    kind, at = data[at], at + 1
    if kind == 0:
        return struct.unpack(">d", data[at:at + 8])[0], at + 8
    if kind == 1:
        return bool(data[at]), at + 1
    assert kind == 2, f"a value of the unexpected type {kind}"
    return _text(data, at)
