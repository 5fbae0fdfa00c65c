"""Streams with numbers inside, so that a test can tell what arrived: valid headers around made-up contents.

Each maker yields (bytes, seconds of sound), for ever or `count` times.
"""
import itertools
import re
import struct

NUMBER = re.compile(rb"<(\d{10})>")


def _numbers(count, first):
    return itertools.count(first) if count is None else range(first, first + count)


def numbers_in(data):
    """The numbers of all frames or pages that are whole enough to show theirs."""
    return [int(text) for text in NUMBER.findall(data)]


def join(stream):
    """The bytes of a stream that ends."""
    return b"".join(data for data, _ in stream)


def number_text(number):
    """How a frame or page shows its number."""
    return b"<%010d>" % number


def _contents(number, length):
    text = number_text(number)
    return text + bytes([0x40 + number % 64]) * (length - len(text))


# ISO 11172-3 and 13818-3, MPEG-1 and MPEG-2 Layer III:
#   11 bits sync, 2 version, 2 layer, 1 no CRC | 4 bitrate, 2 sampling rate, 1 padding, 1 private | 2 mode, ...
MP3_KBITS = [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320]
MP3_RATES = [44100, 48000, 32000]
MP3_SAMPLES = 1152
MP3_SIDE_INFO = 32  # the longest; all zero: silence, and what follows belongs to nobody
MPEG2_KBITS = [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]
MPEG2_RATES = [22050, 24000, 16000]
MPEG2_SAMPLES = 576


def mp3_frame(number, kbits=128, rate=44100, padding=0, mono=False):
    """The sampling rate decides between MPEG-1 and MPEG-2."""
    first = rate in MP3_RATES
    sync = 0xFB if first else 0xF3
    kbit_table, rate_table = (MP3_KBITS, MP3_RATES) if first else (MPEG2_KBITS, MPEG2_RATES)
    index = kbit_table.index(kbits) << 4 | rate_table.index(rate) << 2 | padding << 1
    length = (144 if first else 72) * kbits * 1000 // rate + padding
    header = bytes([0xFF, sync, index, 0xC0 if mono else 0])
    return header + bytes(MP3_SIDE_INFO) + _contents(number, length - 4 - MP3_SIDE_INFO)


def mp3_frames(count=None, first=0, kbits=128, rate=44100, mono=False):
    samples = MP3_SAMPLES if rate in MP3_RATES else MPEG2_SAMPLES
    for number in _numbers(count, first):
        yield mp3_frame(number, kbits, rate, mono=mono), samples / rate


# ISO 13818-7 ADTS, 7 bytes without CRC:
#   12 bits sync, 1 version, 2 layer, 1 no CRC | 2 profile, 4 sampling rate, 1 private, 3 channels, 4 flags,
#   13 length with the header, 11 fullness, 2 blocks less one
ADTS_RATES = [96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000]
ADTS_SAMPLES = 1024


def adts_frame(number, length=372, rate=44100, channels=2, crc=False):
    fields = [(0xFFF, 12), (0, 1), (0, 2), (0 if crc else 1, 1), (1, 2), (ADTS_RATES.index(rate), 4), (0, 1),
              (channels, 3), (0, 4), (length, 13), (0x7FF, 11), (0, 2)]
    bits = 0
    for value, width in fields:
        bits = bits << width | value
    header = bits.to_bytes(7, "big") + (b"\x12\x34" if crc else b"")
    return header + _contents(number, length - len(header))


def adts_frames(count=None, first=0, length=372, rate=44100):
    for number in _numbers(count, first):
        yield adts_frame(number, length, rate), ADTS_SAMPLES / rate


# RFC 3533, a page:
#   "OggS", 1 byte version, 1 flags, 8 granule position, 4 serial, 4 sequence, 4 CRC, 1 segments, their lengths
OGG_CONTINUED, OGG_FIRST, OGG_LAST = 1, 2, 4
_CRC_TABLE = []
for _byte in range(256):
    _value = _byte << 24
    for _ in range(8):
        _value = (_value << 1 ^ (0x04C11DB7 if _value & 0x80000000 else 0)) & 0xFFFFFFFF
    _CRC_TABLE.append(_value)


def ogg_crc(data):
    crc = 0
    for byte in data:
        crc = (crc << 8 & 0xFFFFFFFF) ^ _CRC_TABLE[crc >> 24 ^ byte]
    return crc


def ogg_page(packets, serial, sequence, granule=0, flags=0, unfinished=False):
    """A page of whole packets, or with `unfinished` one whose last packet goes on in the next page."""
    lacing = b"".join(b"\xff" * (len(packet) // 255) + bytes([len(packet) % 255]) for packet in packets)
    if unfinished:
        assert lacing[-1] == 0, "a packet goes on behind full segments only"
        lacing = lacing[:-1]
    assert len(lacing) <= 255, "too much for one page"
    def header(crc):
        return b"OggS" + struct.pack("<BBqIIIB", 0, flags, granule, serial, sequence, crc, len(lacing)) + lacing
    body = b"".join(packets)
    return header(ogg_crc(header(0) + body)) + body


def vorbis_comments(comments, vendor="quillwave tests"):
    """The comment structure that all Xiph formats share: 32-bit lengths, little end first."""
    def text(words):
        data = words.encode("utf-8")
        return struct.pack("<I", len(data)) + data
    return text(vendor) + struct.pack("<I", len(comments)) + b"".join(text(f"{key}={value}") for key, value in comments)


def vorbis_headers(serial, comments=(), rate=44100, channels=2):
    """The two pages that begin a Vorbis stream."""
    identification = b"\x01vorbis" + struct.pack("<IBIiiiBB", 0, channels, rate, 0, 128000, 0, 0xB8, 1)
    comment = b"\x03vorbis" + vorbis_comments(comments) + b"\x01"
    setup = b"\x05vorbis" + bytes(200) + b"\x01"
    return [ogg_page([identification], serial, 0, flags=OGG_FIRST), ogg_page([comment, setup], serial, 1)]


def opus_headers(serial, comments=(), channels=2):
    """The two pages that begin an Opus stream (RFC 7845)."""
    head = b"OpusHead" + struct.pack("<BBHIhB", 1, channels, 312, 48000, 0, 0)
    tags = b"OpusTags" + vorbis_comments(comments)
    return [ogg_page([head], serial, 0, flags=OGG_FIRST), ogg_page([tags], serial, 1)]


def ogg_data_pages(serial, count=None, first=0, first_sequence=2, samples=4410, rate=44100, length=1000):
    for place, number in enumerate(_numbers(count, first)):
        page = ogg_page([_contents(number, length)], serial, first_sequence + place, (place + 1) * samples)
        yield page, samples / rate


def ogg_stream(headers, pages):
    """Header pages, which take no time, and then data pages."""
    yield from ((page, 0.0) for page in headers)
    yield from pages


def plain_blocks(count=None, first=0, length=1024, seconds=0.02):
    """Bytes of no format at all."""
    for number in _numbers(count, first):
        yield _contents(number, length), seconds
