"""What a source tells of its stream, how its session ends, and what the next one finds."""
import contextlib

import pytest

from harness import media
from harness.client import Connection, fetch
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource

MARK = 4 + media.MP3_SIDE_INFO + 12  # up to and with the number of a frame


def frames(count, first=0):
    return media.join(media.mp3_frames(count, first))


def push_until_heard(source, listener, first):
    """Sends frames of these numbers and gives the frame `first` as it is heard."""
    data = frames(60, first)
    source.push(data)
    return listener.audio_from(data[:MARK], 417)


def cuts(server):
    return [line for line in server.log_lines() if "> Source Disconnected" in line]


# ---- properties ------------------------------------------------------------------------------------------------------

ICE_HEADERS = {"Accept-Encoding": "chunked"}  # a listener that asks so is told the properties by other names


def listener_head(server, **options):
    with Listener(server, "/live", **options) as listener:
        return listener.head


@pytest.mark.parametrize("names", [
    {"icy-name": "Name", "icy-genre": "Genre", "icy-pub": "1", "icy-br": "96", "icy-url": "http://x/"},
    {"ice-name": "Name", "ice-genre": "Genre", "ice-public": "1", "ice-bitrate": "96", "ice-url": "http://x/"},
    {"icy-name": "Name", "ice-name": "no", "icy-genre": "Genre", "ice-genre": "no", "icy-pub": "1", "ice-public": "0",
     "icy-br": "96", "ice-bitrate": "1", "icy-url": "http://x/", "ice-url": "http://no/"},
])
@pytest.mark.parametrize("kind", [IcySource, lambda server, headers: HttpSource(server, "/live", headers=headers)])
def test_listeners_are_told_the_properties_of_the_stream(start_server, kind, names):
    server = start_server(mount("/live"))
    with kind(server, headers=names):
        server.wait_source()
        head = listener_head(server)
        assert [head[name] for name in ("icy-name", "icy-genre", "icy-pub", "icy-br", "icy-url", "content-type")] == \
            ["Name", "Genre", "1", "96", "http://x/", "audio/mpeg"]


def test_stream_without_properties_is_unknown(start_server):
    server = start_server(mount("/live"))
    with IcySource(server):
        server.wait_source()
        head = listener_head(server)
        assert [head[name] for name in ("icy-name", "icy-genre", "icy-pub", "icy-br", "icy-url")] == \
            ["Unknown", "Unknown", "0", "", ""]


def test_description_and_audio_info_are_told_in_the_icecast_way(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, headers={"ice-description": "Words", "icy-description": "no", "ice-audio-info": "a=1;b=2"}):
        server.wait_source()
        head = listener_head(server, headers=ICE_HEADERS)
        assert (head["ice-description"], head["ice-audio-info"]) == ("Words", "a=1;b=2")


def test_properties_of_the_former_source_do_not_stay(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, headers={"icy-name": "First", "icy-br": "96", "icy-url": "http://x/"}):
        server.wait_source()
    server.wait_source_gone()
    with IcySource(server):
        server.wait_source(2)
        head = listener_head(server)
        assert [head[name] for name in ("icy-name", "icy-br", "icy-url")] == ["Unknown", "", ""]


@pytest.mark.parametrize("content_type, words", [
    ("audio/mpeg", "Mpeg Object"), ("video/mpeg", "Mpeg Object"), ("audio/aac", "AAC Object"),
    ("audio/aacp", "AAC Object"), ("application/ogg", "Ogg Object"), ("audio/ogg", "Ogg Object"),
    ("audio/flac", "Generic Object (audio/flac)"), ("text/aac+mpeg", "AAC Object"),
])
def test_content_type_chooses_the_framing(start_server, content_type, words):
    server = start_server(mount("/live"))
    with IcySource(server, content_type=content_type):
        assert server.wait_source().endswith(f" [T: {words}]")
        assert listener_head(server).get("content-type") == content_type


# ---- ends ------------------------------------------------------------------------------------------------------------

def test_source_that_closes_leaves_gracefully(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live"):
        server.wait_source()
    assert server.wait_source_gone() == f"<127.0.0.1> Source Disconnected Gracefully (A: 127.0.0.1:{server.port}/live)"
    assert fetch(server.port, "/live").status == 503


def test_source_that_is_reset_leaves_with_the_error(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        source.connection.reset()
        server.wait_log("<127.0.0.1> Source Disconnected [Error: (104) Connection reset by peer] "
                        f"(A: 127.0.0.1:{server.port}/live)")


def test_silent_source_is_ended_after_thirty_seconds(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        server.wait_log("> Source Disconnected [Error: (110) ", within=30 + PATIENCE)
        assert source.connection.ends_within(PATIENCE)


@pytest.mark.parametrize("content_type", ["audio/mpeg", "audio/aac"])
def test_stream_without_a_frame_in_8192_bytes_is_ended(start_server, content_type):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", content_type=content_type) as source:
        server.wait_source()
        source.push(bytes(8191))
        assert not source.connection.ends_within(0.5) and not cuts(server)
        source.push(bytes(1))
        server.wait_log("> Source Disconnected [Error: (0) ")
        assert source.connection.ends_within(PATIENCE)


def test_ultravox_is_refused_once_and_the_mount_waits_again(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", content_type="misc/ultravox") as source:
        assert source.connection.ends_within(PATIENCE)
    refusal = f"<127.0.0.1> Ultravox Underlay Not supported (A: 127.0.0.1:{server.port}/live)"
    server.wait_log(refusal)
    with HttpSource(server, "/live"):
        server.wait_source()
    assert server.log_lines().count(refusal) == 1
    assert not any("Last message repeated" in line for line in server.log_lines())


def test_mount_serves_one_source_after_the_other(start_server):
    server = start_server(mount("/live"))
    for turn in range(1, 4):
        with IcySource(server) as source:
            server.wait_source(turn)
            with Listener(server, "/live") as listener:
                push_until_heard(source, listener, 1000 * turn)
        server.wait_source_gone(turn)


def test_disabling_a_mount_in_the_file_ends_source_and_listeners(start_server):
    server = start_server(mount("/live"), console=True)
    before = server.read("quillwave.conf")
    with HttpSource(server, "/live") as source, contextlib.ExitStack() as stack:
        server.wait_source()
        listener = stack.enter_context(Listener(server, "/live"))
        push_until_heard(source, listener, 0)
        server.write("quillwave.conf", before + "SourceDisabled1=yes\n")
        server.say("r\n")
        server.wait_log("Closing Mount /live down")
        assert source.connection.ends_within(PATIENCE)
        assert listener.ends_within(PATIENCE)
    server.write("quillwave.conf", before + "SourceDisabled1=no\n")
    server.say("r\n")
    server.wait_log("Configuration reload started", 2)

    def taken_again():
        try:
            again = HttpSource(server, "/live").start()
        except PermissionError:
            return None
        again.stop()
        return True
    server.wait_until(taken_again, complaint="the enabled mount takes no source")


# ---- the source comes back -------------------------------------------------------------------------------------------

def test_listeners_of_a_source_that_returns_with_the_same_type_go_on(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    server.wait_source_gone()
    with listener, HttpSource(server, "/live") as source:
        server.wait_source(2)
        push_until_heard(source, listener, 100)


def test_frames_of_the_former_source_are_still_in_the_burst(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        with Listener(server, "/live") as listener:
            push_until_heard(source, listener, 0)
    server.wait_source_gone()
    with HttpSource(server, "/live"):
        server.wait_source(2)
        with Listener(server, "/live") as listener:
            assert listener.audio(417) == media.mp3_frame(0)


def test_source_of_another_type_starts_anew_and_old_listeners_hear_no_more(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        old = Listener(server, "/live")
        push_until_heard(source, old, 0)
    server.wait_source_gone()
    with old, HttpSource(server, "/live", content_type="audio/aac") as source:
        server.wait_source(2)
        stream = media.join(media.adts_frames(60))
        source.push(stream)
        with Listener(server, "/live") as new:
            assert new.head["content-type"] == "audio/aac"
            assert new.audio(15000) == stream[:15000]
        assert b"\xff\xf1" not in old.audio_for(1)


PLAIN = {"method": "SOURCE"}
CHUNKED = {"method": "PUT", "chunked": True}


@pytest.mark.parametrize("first, second", [(PLAIN, CHUNKED), (CHUNKED, PLAIN), (CHUNKED, CHUNKED)])
def test_next_source_may_frame_its_body_otherwise(start_server, first, second):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", **first) as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    server.wait_source_gone()
    stream = frames(120, first=100)
    with listener, HttpSource(server, "/live", **second) as source:
        server.wait_source(2)
        for at in range(0, len(stream), 1000):
            source.push(stream[at:at + 1000])
        assert listener.audio_from(stream[:MARK], 40000) == stream[:40000]


@pytest.mark.parametrize("first, second", [(None, 1000), (1000, None), (1000, 3000)])
def test_next_icy_source_may_have_another_metadata_interval(start_server, first, second):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=first) as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    server.wait_source_gone()
    stream = frames(120, first=100)
    with listener, IcySource(server, metaint=second) as source:
        server.wait_source(2)
        source.push(stream)
        assert listener.audio_from(stream[:MARK], 40000) == stream[:40000]


def test_chunked_source_may_follow_one_with_metadata_blocks(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=1000) as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    server.wait_source_gone()
    stream = frames(120, first=100)
    with listener, HttpSource(server, "/live", **CHUNKED) as source:
        server.wait_source(2)
        source.push(stream)
        assert listener.audio_from(stream[:MARK], 40000) == stream[:40000]


# ---- listeners meanwhile ---------------------------------------------------------------------------------------------

def test_listener_waits_client_timeout_seconds_for_a_source(start_server):
    server = start_server([("ClientTimeout", 2), *mount("/live")])
    with HttpSource(server, "/live") as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    with listener:
        assert listener.ends_within(PATIENCE)


def test_listener_waits_for_ever_with_client_timeout_zero(start_server):
    server = start_server([("ClientTimeout", 0), *mount("/live")])
    with HttpSource(server, "/live") as source:
        server.wait_source()
        listener = Listener(server, "/live")
        push_until_heard(source, listener, 0)
    server.wait_source_gone()
    with listener:
        assert not listener.ends_within(4)


def test_listener_moves_to_the_fallback_and_returns_with_the_source(start_server):
    server = start_server([*mount("/live", 1, Backup="/spare"), *mount("/spare", 2, User="spare")])
    with HttpSource(server, "/spare", user="spare") as spare:
        server.wait_source()
        with HttpSource(server, "/live") as source:
            server.wait_source(2)
            listener = Listener(server, "/live")
            push_until_heard(source, listener, 0)
        with listener:
            push_until_heard(spare, listener, 1000)
            with HttpSource(server, "/live") as source:
                server.wait_source(3)
                push_until_heard(source, listener, 2000)


def test_listener_that_comes_while_only_the_fallback_plays_hears_it(start_server):
    server = start_server([*mount("/live", 1, Backup="/spare"), *mount("/spare", 2, User="spare")])
    with HttpSource(server, "/spare", user="spare") as spare:
        server.wait_source()
        with Listener(server, "/live") as listener:
            push_until_heard(spare, listener, 1000)
            assert "/live) [L: 1]" in server.wait_log("> Connection Opened [U: ")
            with HttpSource(server, "/live") as source:
                server.wait_source(2)
                push_until_heard(source, listener, 2000)


def test_fallback_without_a_source_is_no_fallback(start_server):
    server = start_server([*mount("/live", 1, Backup="/spare"), *mount("/spare", 2, User="spare")])
    assert fetch(server.port, "/live").status == 503


# ---- intro -----------------------------------------------------------------------------------------------------------

INTRO = media.join(media.plain_blocks(4, first=5000, length=500))


def write_intro(server):
    server.path("intro.bin").write_bytes(INTRO + b"less than a packet")
    return mount("/live", Intro=server.path("intro.bin"))


def test_listener_hears_the_intro_and_then_the_stream(start_server):
    server = start_server(write_intro)
    with HttpSource(server, "/live") as source:
        server.wait_source()
        with Listener(server, "/live") as listener:
            assert listener.audio(1500) == INTRO[:1500]
            push_until_heard(source, listener, 0)


def test_intro_alone_is_no_source(start_server):
    server = start_server(write_intro)
    assert fetch(server.port, "/live").status == 503


def test_missing_intro_leaves_the_stream_alone(start_server):
    server = start_server(mount("/live", Intro="nowhere.mp3"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        with Listener(server, "/live") as listener:
            source.push(frames(60))
            assert listener.audio(417) == media.mp3_frame(0)


def test_mount_without_a_source_refuses_listeners_in_their_dialect(start_server):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        connection.send("GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n")
        assert connection.receive_all().startswith(b"ICY 401 No Source\r\n")


def test_mount_is_also_found_by_its_number(start_server):
    server = start_server([*mount("/one", 1), *mount("/two", 2, User="two")])
    with HttpSource(server, "/stream/2", user="two") as source:
        server.wait_source()
        with Listener(server, "/two") as listener:
            push_until_heard(source, listener, 0)
