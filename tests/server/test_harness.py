"""The harness itself: a stream goes in at one end and comes out at the other."""
import itertools
import random

import pytest

from harness import icy, media
from harness.compare import assert_heard
from harness.client import fetch
from harness.listener import Listener
from harness.server import ADMIN, Server, mount
from harness.source import HttpSource, IcySource


def test_what_the_mixer_puts_in_the_demuxer_takes_out():
    mixer, demuxer = icy.Mixer(100), icy.Demuxer(100)
    audio = bytes(itertools.islice(itertools.cycle(range(256)), 1000))
    mixer.announce("One's own", "http://x/")
    mixed = mixer.mix(audio[:450])
    mixer.announce("Two")
    mixed += mixer.mix(audio[450:])
    assert b"".join(demuxer.feed(mixed[i:i + 7]) for i in range(0, len(mixed), 7)) == audio
    assert demuxer.titles == ["One's own", "Two"]
    assert [place for place, _ in demuxer.blocks] == [100, 500]


def test_ogg_pages_have_the_checksum_of_the_format():
    assert media.ogg_crc(b"123456789") == 0x89A1897F  # as published for this polynomial, start 0, nothing reflected
    page = media.ogg_page([b"x" * 255, b"y"], serial=7, sequence=3, granule=9)
    assert page[:4] == b"OggS" and page[26:30] == b"\x03\xff\x00\x01"
    without = page[:22] + bytes(4) + page[26:]
    assert int.from_bytes(page[22:26], "little") == media.ogg_crc(without)


SENT = random.Random(1).randbytes(100000)


def test_a_piece_of_what_was_sent_is_heard_whole():
    found = assert_heard(SENT[7000:90000], SENT, least=83000)
    assert [(stretch.at, stretch.place, stretch.length) for stretch in found] == [(0, 7000, 83000)]


def test_a_piece_that_comes_twice_is_no_loss():
    assert len(assert_heard(SENT[:50000] + SENT[45000:90000], SENT, least=95000)) == 2


@pytest.mark.parametrize("heard, complaint", [
    (SENT[:20000] + SENT[20001:90000], "something is missing"),
    (SENT[:20000] + b"\0\0" + SENT[20002:90000], "too little fits"),
    (SENT[:20000], "too little fits"),
    (SENT[:60000] + bytes(3000), "too much fits nowhere"),
], ids=["a byte left out", "bytes changed", "too short", "something else behind it"])
def test_what_is_not_as_it_was_sent_is_found(heard, complaint):
    with pytest.raises(AssertionError, match=complaint):
        assert_heard(heard, SENT, least=50000)


@pytest.mark.parametrize("method", ["SOURCE", "PUT"])
@pytest.mark.parametrize("chunked", [False, True])
def test_http_source_is_heard_byte_for_byte(start_server, method, chunked):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames(), method=method, chunked=chunked, keep=True) as source:
        source.wait_bytes(20000)
        with Listener(server, "/live") as listener:
            heard = listener.audio(40000)
    start = bytes(source.sent).find(heard[:417])
    assert start >= 0 and heard == source.sent[start:start + len(heard)]


def test_icy_source_is_heard_with_its_titles(start_server):
    server = start_server(mount("/live", IsDefault="yes"))
    with IcySource(server, media.mp3_frames(), metaint=4096, keep=True) as source:
        source.wait_bytes(20000)
        with Listener(server, "/live", metadata=True) as listener:
            listener.audio(20000)
            source.set_title("A new title")
            listener.audio_until(lambda: "A new title" in listener.titles)


def test_user_and_status_of_an_answer(start_server):
    server = start_server()
    assert fetch(server.port, "/nowhere", user=ADMIN).status == 404


def test_records_of_the_listener_log_are_taken_apart(tmp_path):
    server = Server(tmp_path, config=False, arguments=[])
    server.write("quillwave-w3c.log", '#Software: x\n#Fields: date cs-version cs(User-Agent) x-metatitle\n'
                                      '2026-01-02 "HTTP/1.1" "a ""b"" c" -\n2026-01-03 "" - "t"\n')
    assert server.listener_log() == [
        {"date": "2026-01-02", "cs-version": "HTTP/1.1", "cs(User-Agent)": 'a "b" c', "x-metatitle": "-"},
        {"date": "2026-01-03", "cs-version": "", "cs(User-Agent)": "-", "x-metatitle": "t"}]
    server.close()
