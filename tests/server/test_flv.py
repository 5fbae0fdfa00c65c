"""MPEG and AAC streams in the FLV container, for Flash players."""
import contextlib

import pytest

from harness import media
from harness.flv import AUDIO, SCRIPT, FlvReader
from harness.listener import Listener
from harness.server import mount
from harness.source import HttpSource, IcySource

HEADER = b"FLV\x01\x04\0\0\0\x09" + bytes(4)  # audio only
CREATED_BY = "Quillwave Distributed Network Media Server/1.0.2 evergreen (Linux 64-bit)"


@contextlib.contextmanager
def player(server, frames, content_type="audio/mpeg", target="/live?flv=1", metaint=None, title=None, **listener):
    """A Flash player on a stream of these frames, and what it reads."""
    with IcySource(server, content_type=content_type, metaint=metaint) as source:
        server.wait_source()
        if title is not None:
            source.set_title(title, "http://x/")
        source.push(b"".join(frames))
        with Listener(server, target, **listener) as connection:
            yield connection, FlvReader(connection)


def mp3(count=100, **kind):
    return [data for data, _ in media.mp3_frames(count, **kind)]


def adts(count=100, **kind):
    return [media.adts_frame(number, **kind) for number in range(count)]


# ---- who gets it -----------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("target, accept", [
    ("/live?flv=1", None), ("/live?x=1&flv=no", "audio/mpeg"), ("/live", "video/x-flv"),
    ("/live", "text/html,video/x-flv;q=0.5")])
def test_query_or_accept_header_asks_for_flv(start_server, target, accept):
    server = start_server(mount("/live"))
    with player(server, mp3(), target=target, headers={"Accept": accept}) as (listener, flv):
        assert listener.head["Content-Type"] == "video/x-flv"
        assert listener.head["Cache-Control"] == "max-age=0, no-cache, no-store"
        assert listener.head["Expires"] == "Mon, 25 Jan 2002 10:11:57 GMT"
        assert listener.head["Pragma"] == "no-cache"
        assert flv.header == HEADER


@pytest.mark.parametrize("accept", ["audio/mpeg", "*/*", "audio/*", "audio/mpeg,video/x-flv", "image/png"])
def test_stream_stays_bare_for_a_player_that_accepts_it_or_neither(start_server, accept):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        source.push(b"".join(mp3()))
        with Listener(server, "/live", headers={"Accept": accept}) as listener:
            assert listener.head["content-type"] == "audio/mpeg"
            assert listener.audio(417) == media.mp3_frame(0)


@pytest.mark.parametrize("content_type", ["audio/aac", "audio/flac"])
def test_other_types_are_not_wrapped(start_server, content_type):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", content_type=content_type):
        server.wait_source()
        with Listener(server, "/live?flv=1") as listener:
            assert listener.head["content-type"] == content_type


def test_wrapping_over_http_1_1_travels_in_chunks(start_server):
    server = start_server(mount("/live"))
    with player(server, mp3(), version="HTTP/1.1") as (listener, flv):
        assert listener.head["Transfer-Encoding"] == "chunked"
        assert flv.header == HEADER
        assert flv.tag().data[1:] == media.mp3_frame(0)


# ---- MP3 -------------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("kind, first_byte, step", [
    ({}, 0x2F, 25), ({"mono": True}, 0x2E, 25), ({"rate": 48000}, 0x23, 23), ({"rate": 32000}, 0x23, 35),
    ({"rate": 22050, "kbits": 64}, 0x2B, 25), ({"rate": 22050, "kbits": 64, "mono": True}, 0x2A, 25)])
def test_each_mp3_frame_is_a_tag(start_server, kind, first_byte, step):
    server = start_server(mount("/live"))
    frames = mp3(**kind)
    with player(server, frames) as (_, flv):
        for number in range(30):
            tag = flv.tag()
            assert (tag.kind, tag.data[0]) == (AUDIO, first_byte)
            assert tag.data[1:] == frames[number]
            assert tag.time == number * step


# ---- AAC -------------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("kind, config, step", [
    ({}, (1 << 3 | 4 >> 1, 4 << 7 & 0x80 | 2 << 3), 23), ({"rate": 22050}, (1 << 3 | 7 >> 1, 7 << 7 & 0x80 | 2 << 3), 46),
    ({"rate": 48000, "channels": 1}, (1 << 3 | 3 >> 1, 3 << 7 & 0x80 | 1 << 3), 21), ({"channels": 0}, (0x0A, 0x10), 23)])
def test_aac_begins_with_its_configuration_and_each_frame_is_a_tag(start_server, kind, config, step):
    server = start_server(mount("/live"))
    frames = adts(**kind)
    with player(server, frames, "audio/aacp") as (_, flv):
        first = flv.tag()
        assert (first.kind, first.time) == (AUDIO, 0)
        assert first.data == bytes([0xAF, 0, *config])
        for number in range(30):
            tag = flv.tag()
            assert tag.data[:2] == b"\xaf\x01"
            assert tag.data[2:] == frames[number][7:]
            assert tag.time == (number + 1) * step


def test_adts_header_with_a_checksum_is_two_bytes_longer(start_server):
    server = start_server(mount("/live"))
    frames = adts(crc=True)
    with player(server, frames, "audio/aacp") as (_, flv):
        flv.tag()
        assert flv.tag().data[2:] == frames[0][9:]


# ---- hostile frames --------------------------------------------------------------------------------------------------

def test_frames_shorter_than_their_headers_do_no_harm(start_server):
    server = start_server(mount("/live"))
    free_format = b"\xff\xfb\x02\x00"  # bitrate 0 with a padding byte: a frame of one byte
    with player(server, [free_format] * 30 + mp3()) as (_, flv):
        assert flv.tag_until(lambda tag: media.numbers_in(tag.data)).data[1:] == media.mp3_frame(0)


def test_adts_frames_shorter_than_their_headers_do_no_harm(start_server):
    server = start_server(mount("/live"))
    short = bytearray(media.adts_frame(0, length=40)[:7])
    short[4], short[5] = 0, 3 << 5 | short[5] & 31  # a length of 3
    with player(server, [bytes(short)] * 30 + adts(), "audio/aacp") as (_, flv):
        flv.tag_until(lambda tag: media.numbers_in(tag.data))


# ---- script tags -----------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("content_type, frames, told", [
    ("audio/mpeg", mp3(), {"audiocodecid": 2, "audiochannels": 2, "stereo": True, "audiosamplerate": 44100}),
    ("audio/mpeg", mp3(rate=22050, kbits=64, mono=True),
     {"audiocodecid": 2, "audiochannels": 1, "stereo": False, "audiosamplerate": 22050}),
    ("audio/aacp", adts(), {"audiocodecid": 10, "audiochannels": 2, "stereo": True, "audiosamplerate": 44100}),
    ("audio/aacp", adts(channels=7), {"audiocodecid": 10, "audiochannels": 8, "stereo": True, "audiosamplerate": 44100}),
])
def test_title_comes_as_metadata_of_the_container(start_server, content_type, frames, told):
    server = start_server(mount("/live"))
    with player(server, frames, content_type, metaint=1000, title="A song") as (_, flv):
        assert flv.script("onMetaData") == {"createdby": CREATED_BY, "title": "A song", "url": "http://x/", **told}
        assert flv.script("onCuePoint") == {}


def test_other_keys_come_as_a_cue_point(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=1000) as source:
        server.wait_source()
        source.set_words(b"StreamTitle='T';key='value';More='x y';")
        source.push(b"".join(mp3()))
        with Listener(server, "/live?flv=1") as listener:
            assert FlvReader(listener).script("onCuePoint") == {"More": "x y", "key": "value"}


def test_no_script_tag_comes_before_a_title(start_server):
    server = start_server(mount("/live"))
    with player(server, mp3()) as (_, flv):
        assert {flv.tag().kind for _ in range(50)} == {AUDIO}


def test_script_tags_stand_behind_the_frame_of_their_title_and_come_once(start_server):
    server = start_server(mount("/live"))
    with player(server, mp3(200), metaint=1000, title="A song") as (_, flv):
        kinds = [flv.tag().kind for _ in range(100)]
        assert kinds.count(SCRIPT) == 2
        at = kinds.index(SCRIPT)
        assert at > 0 and kinds[at:at + 3] == [SCRIPT, SCRIPT, AUDIO]


def test_length_of_a_long_title_has_a_wrong_high_byte(start_server):
    server = start_server(mount("/live"))
    title = "t" * 128
    with player(server, mp3(), metaint=1000, title=title) as (_, flv):
        data = flv.tag_until(lambda tag: tag.kind == SCRIPT).data
        assert b"\0\x05title\x02\xff\x80" + title.encode() in data


def test_script_tags_take_no_time(start_server):
    server = start_server(mount("/live"))
    with player(server, mp3(), metaint=1000, title="A song") as (_, flv):
        tags = [flv.tag() for _ in range(50)]
        at = next(place for place, tag in enumerate(tags) if tag.kind == SCRIPT)
        assert tags[at].time == tags[at + 1].time == tags[at + 2].time == tags[at - 1].time + 25
