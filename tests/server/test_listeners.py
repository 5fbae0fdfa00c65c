"""Players: the dialects of the answer, the burst, and players that do not read."""
import contextlib
import re
import threading
import time

import pytest

from harness import media
from harness.accounts import pseudo_user, user_file
from harness.answers import http_head, icy_head, masked, not_cached
from harness.client import Connection
from harness.flv import FlvReader
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource
from harness.station import FRAME, PROPERTIES, frames, listening, on_air, push_until_heard

# ---- dialects --------------------------------------------------------------------------------------------------------

ICY_FIELDS = [("icy-name", "Name"), ("icy-genre", "Genre"), ("icy-url", "http://x/"), ("content-type", "audio/mpeg"),
              ("icy-pub", "1"), ("icy-br", "128"), ("ice-audio-info", "a=1")]
ICE_FIELDS = [("Content-Type", "audio/mpeg"), *not_cached(), ("ice-name", "Name"), ("ice-genre", "Genre"),
              ("ice-url", "http://x/"), ("ice-public", "1"), ("ice-bitrate", "128"), ("ice-description", "Words"),
              ("ice-audio-info", "a=1")]
FLV_FIELDS = [("Content-Type", "video/x-flv"), *not_cached()]
CHUNKED = ("Transfer-Encoding", "chunked")


def stream_head(server, target, headers="", version="HTTP/1.0"):
    with Connection(server.port) as connection:
        connection.send(f"GET {target} {version}\r\n{headers}\r\n")
        return masked(connection.receive_head().raw)


@pytest.mark.parametrize("target, headers, fields", [
    ("/live", "", ICY_FIELDS),
    ("/live", "Icy-MetaData: 0\r\n", ICY_FIELDS),
    ("/live?http=1", "Icy-MetaData: 1\r\n", [*ICY_FIELDS, ("icy-metaint", 8192)]),
    ("/live", "Accept-Encoding: gzip, chunked\r\n", ICY_FIELDS),
    ("/live", "Accept-Encoding: chunked\r\n", ICE_FIELDS),
    ("/live", "Accept-Encoding: chunked\r\nIcy-MetaData: 1\r\n", ICE_FIELDS),
    ("/live?flv=1", "", FLV_FIELDS),
    ("/live", "Accept: video/x-flv\r\n", FLV_FIELDS),
    ("/live", "Accept: video/*\r\n", FLV_FIELDS),
    ("/live", "Accept: video/x-flv,audio/mpeg;q=0.5\r\n", ICY_FIELDS),
    ("/live", "Accept: video/x-flv, audio/mpeg\r\n", FLV_FIELDS),  # Kept: the blank belongs to the name of the type
    ("/live", "Accept: text/html\r\n", ICY_FIELDS),
    ("/live", "Accept: audio/mpeg;q=0,video/x-flv\r\n", FLV_FIELDS),
])
def test_head_of_a_stream_over_http(start_server, target, headers, fields):
    with on_air(start_server) as (server, _):
        assert stream_head(server, target, headers) == http_head("HTTP/1.0 200 OK", "Close", fields)


@pytest.mark.parametrize("target, headers, metaint", [
    ("/live", "Icy-MetaData: 1\r\n", [("icy-metaint", 8192)]),
    ("/live?icy=1", "", []),
    ("/live?icy=1", "Icy-MetaData: 1\r\n", [("icy-metaint", 8192)]),
])
def test_head_of_a_stream_over_icy(start_server, target, headers, metaint):
    with on_air(start_server) as (server, _):
        assert stream_head(server, target, headers) == icy_head("ICY 200 OK", [*ICY_FIELDS, *metaint])
        assert stream_head(server, target, headers + "Host: h\r\n", "HTTP/1.1") == \
            icy_head("ICY 200 OK", [*ICY_FIELDS, *metaint])


@pytest.mark.parametrize("headers, fields", [("", ICY_FIELDS), ("Accept-Encoding: chunked\r\n", ICE_FIELDS),
                                             ("Accept: video/x-flv\r\n", FLV_FIELDS)])
@pytest.mark.parametrize("kept", ["Keep-Alive", "Close"])
def test_head_of_a_stream_over_http_1_1_is_chunked(start_server, headers, fields, kept):
    with on_air(start_server) as (server, _):
        assert stream_head(server, "/live", f"Host: h\r\nConnection: {kept}\r\n{headers}", "HTTP/1.1") == \
            http_head("HTTP/1.1 200 OK", kept, [*fields, CHUNKED])


def test_audio_info_that_the_source_did_not_tell_is_left_out(start_server):
    server = start_server(mount("/live"))
    with IcySource(server):
        server.wait_source()
        assert "ice-audio-info" not in stream_head(server, "/live")
        assert "\r\nice-audio-info: \r\n" in stream_head(server, "/live", "Accept-Encoding: chunked\r\n")


def test_ogg_is_always_told_the_icecast_way(start_server):
    server = start_server(mount("/live", IsDefault="yes"))
    with IcySource(server, content_type="application/ogg", headers=PROPERTIES):
        server.wait_source()
        fields = [("Content-Type", "application/ogg"), *ICE_FIELDS[1:]]
        for headers in ("", "Icy-MetaData: 1\r\n"):
            assert stream_head(server, "/live", headers) == http_head("HTTP/1.0 200 OK", "Close", fields)


def test_root_is_always_told_the_icy_way(start_server):
    with on_air(start_server, mount("/live", IsDefault="yes")) as (server, _):
        assert stream_head(server, "/", "Accept-Encoding: chunked\r\n") == http_head("HTTP/1.0 200 OK", "Close", ICY_FIELDS)


def test_ogg_and_other_formats_are_never_wrapped_as_flv(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, content_type="audio/aac", headers=PROPERTIES):
        server.wait_source()
        assert "\r\ncontent-type: audio/aac\r\n" in stream_head(server, "/live?flv=1")


@pytest.mark.parametrize("setting, told", [(100, 1024), (0, 1024), (1024, 1024), (4000, 4000)])
def test_metadata_interval_is_a_setting(start_server, setting, told):
    with on_air(start_server, mount("/live", MetaInterval=setting)) as (server, _):
        assert f"\r\nicy-metaint:{told}\r\n" in stream_head(server, "/live", "Icy-MetaData: 1\r\n")


def test_name_format_changes_the_name(start_server):
    with on_air(start_server, mount("/live", NameFormat="%s (%s HQ)")) as (server, _):
        assert "\r\nicy-name: Name (Name HQ)\r\n" in stream_head(server, "/live")


def test_mount_that_does_not_want_to_be_relayed_in_public_says_so(start_server):
    with on_air(start_server, mount("/live", PublicRelays="no")) as (server, _):
        assert "\r\nicy-pub: 0\r\n" in stream_head(server, "/live")


def test_default_of_all_mounts_reaches_those_that_do_not_set_the_key(start_server):
    server = start_server([("DefaultMetaInterval", 2000), *mount("/one"), *mount("/two", 2, User="two", MetaInterval=3000)])
    with HttpSource(server, "/one"), HttpSource(server, "/two", user="two"):
        server.wait_source(2)
        for target, metaint in (("/one", 2000), ("/two", 3000)):
            assert f"\r\nicy-metaint:{metaint}\r\n" in stream_head(server, target, "Icy-MetaData: 1\r\n")


def test_head_of_a_stream_ends_the_connection_of_an_old_client(start_server):
    with on_air(start_server) as (server, _), Connection(server.port) as connection:
        connection.send("HEAD /live HTTP/1.0\r\n\r\n")
        assert masked(connection.receive_all()) == http_head("HTTP/1.0 200 OK", "Close", ICY_FIELDS)
        server.wait_log("> Connection Closed ")


def test_stream_that_ends_closes_its_chunks_and_nothing_more(start_server):
    with on_air(start_server, [("ClientTimeout", 1), *mount("/live")]) as (server, source):
        listener = Listener(server, "/live", version="HTTP/1.1")
        push_until_heard(source, listener, 0)
        source.stop()
        with listener:
            assert listener.receive_all().endswith(b"\r\n0\r\n")


def test_stream_as_flv_has_the_frames_inside(start_server):
    with on_air(start_server) as (server, source):
        source.push(frames(60))
        with Listener(server, "/live?flv=1") as listener:
            reader = FlvReader(listener)
            assert reader.header[:3] == b"FLV"
            assert media.mp3_frame(3) in reader.tag_until(lambda tag: media.mp3_frame(3) in tag.data).data


# ---- burst -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("content_type, maker, limit", [
    ("audio/mpeg", media.mp3_frames, 131072),
    ("audio/aac", media.adts_frames, 131072),
])
def test_burst_is_the_newest_whole_frames_below_the_limit(start_server, content_type, maker, limit):
    server = start_server(mount("/live"))
    stream = [data for data, _ in maker(800)]
    with HttpSource(server, "/live", content_type=content_type) as source:
        server.wait_source()
        with Listener(server, "/live") as first, Listener(server, "/live") as watcher:
            source.push(b"".join(stream))
            server.wait_read([source.connection])
            heard = len(first.audio_until(lambda: len(first._audio) > 250000)) + len(first.receive_for(1))
            assert watcher.audio(heard)[:len(stream[0])] == stream[0]
            with Listener(server, "/live") as late:
                burst = late.receive_for(2)
    size = len(stream[0])
    assert burst == b"".join(stream)[heard - len(burst):heard], "the burst is what came last, without a gap"
    assert limit - size < len(burst) <= limit


def test_burst_of_a_format_without_frames_is_five_hundred_byte_packets(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.plain_blocks(60))
    with HttpSource(server, "/live", content_type="video/x-matroska") as source:
        server.wait_source()
        with Listener(server, "/live") as first:
            source.push(stream)
            server.wait_read([source.connection])
            heard = len(first.audio_until(lambda: len(first._audio) > 40000)) + len(first.receive_for(1))
        with Listener(server, "/live") as late:
            assert late.receive_for(1) == stream[:heard]
    assert heard % 500 == 0


def test_stream_goes_on_behind_the_burst_without_a_gap(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames(), pace=8) as source:
        source.wait_bytes(150000)
        with Listener(server, "/live") as listener:
            heard = media.numbers_in(listener.audio(400000))
    assert heard == list(range(heard[0], heard[0] + len(heard)))


# ---- players that do not read ----------------------------------------------------------------------------------------

def resident_bytes(server):
    text = server.path(f"/proc/{server.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s*(\d+) kB", text).group(1)) * 1024


class Reader(threading.Thread):
    """Reads the stream on a thread of its own and keeps the numbers of the frames."""

    def __init__(self, server):
        super().__init__(daemon=True)
        self.listener = Listener(server, "/live")
        self.numbers, self._rest = [], b""
        self.longest_wait = 0.0

    def run(self):
        last = time.monotonic()
        with contextlib.suppress(OSError, EOFError, ValueError):
            while data := self.listener.receive_some():
                self.longest_wait = max(self.longest_wait, time.monotonic() - last)
                last = time.monotonic()
                self._rest += data
                whole = len(self._rest) // FRAME * FRAME
                self.numbers += media.numbers_in(self._rest[:whole])
                self._rest = self._rest[whole:]


def test_deaf_listeners_are_ended_and_their_neighbour_notices_nothing(start_server):
    with on_air(start_server) as (server, source), contextlib.ExitStack() as stack:
        reader = Reader(server)
        stack.enter_context(reader.listener)
        reader.start()
        deaf = [stack.enter_context(listening(server, receive_buffer=4096)) for _ in range(20)]
        before = resident_bytes(server)
        most, number = 0, 0
        deadline = time.monotonic() + 3 * PATIENCE
        while server_ended(server) < len(deaf):
            assert time.monotonic() < deadline, "the deaf are not ended"
            source.push(frames(100, number))
            number += 100
            most = max(most, resident_bytes(server) - before)
            server.wait_until(lambda: len(reader.numbers) > number - 200, complaint="the reader hears nothing more")
        server.wait_until(lambda: len(reader.numbers) > number - 60, complaint="the reader misses the end")
        assert reader.numbers == list(range(len(reader.numbers)))
        # What waits for them is the same for all of them; nobody has more than two megabytes.
        assert most < 20 * 2 * 1024 * 1024 + 64 * 1024 * 1024
        for _ in deaf:
            server.wait_log("> Connection Closed (No buffer space available) [U: Anonymous]")


def server_ended(server):
    return sum("> Connection Closed (" in line for line in server.log_lines())


def test_listener_with_a_full_socket_is_kicked_at_once(start_server):
    users = user_file(reserve=pseudo_user("reserve", (-1, "IP", "127.0.0.2")))
    with on_air(start_server, mount("/live", UserMax=1), users=users) as (server, source):
        with listening(server, receive_buffer=4096):
            for first in range(0, 10000, 500):  # about four megabytes: less than ends it, more than the system takes
                source.push(frames(500, first))
            with listening(server, source="127.0.0.2"):
                server.wait_log("<127.0.0.2> /live Kicking 127.0.0.1 to make room for new Reserve")
                server.wait_log("<127.0.0.1> Connection Closed")


def test_listeners_that_come_and_go_leave_nothing_behind(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames()) as source:
        source.wait_bytes(20000)
        descriptors = server.path(f"/proc/{server.pid}/fd")
        def open_ones():
            return len(list(descriptors.iterdir()))
        before = open_ones()
        for _ in range(5):
            crowd = [Listener(server, "/live") for _ in range(20)]
            for number, listener in enumerate(crowd):
                listener.reset() if number % 2 else listener.close()
        server.wait_log("> Connection Closed", 100)
        server.wait_until(lambda: open_ones() <= before, complaint="descriptors stay open")
