"""Streams cut into frames: they pass byte for byte, and whoever joins begins at a frame."""
import contextlib

import pytest

from harness import media
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource

BURST = 131072  # bytes that an MPEG or AAC stream keeps for newcomers
GENERIC_PACKET = 500


def on_air(server, stack, content_type="audio/mpeg", **options):
    source = stack.enter_context(HttpSource(server, "/live", content_type=content_type, **options))
    server.wait_source()
    return source


def heard(server, data, count, content_type="audio/mpeg"):
    """The first `count` bytes that a listener hears of a stream that is nothing but `data`."""
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, content_type)
        source.push(data)
        return stack.enter_context(Listener(server, "/live")).audio(count)


FORMATS = [
    pytest.param("audio/mpeg", lambda count: media.mp3_frames(count), id="MPEG-1"),
    pytest.param("audio/mpeg", lambda count: media.mp3_frames(count, rate=22050, kbits=64, mono=True), id="MPEG-2"),
    pytest.param("audio/mpeg", lambda count: media.mp3_frames(count, kbits=320), id="320 kbit/s"),
    pytest.param("audio/aac", lambda count: media.adts_frames(count), id="ADTS"),
    pytest.param("audio/aacp", lambda count: media.adts_frames(count, length=1000, rate=22050), id="ADTS, long"),
    pytest.param("audio/flac", lambda count: media.plain_blocks(count, length=777), id="generic"),
]


@pytest.mark.parametrize("content_type, make", FORMATS)
def test_stream_is_heard_byte_for_byte(start_server, content_type, make):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, content_type)
        first = media.join(make(50))
        source.push(first)
        listener = stack.enter_context(Listener(server, "/live"))
        listener.audio(500)  # it has joined: what comes from here on reaches it once
        stream = media.join(make(900))[len(first):]
        source.push(stream)
        count = len(stream) - 10000  # what does not fill the reader's 8192 bytes waits for more
        assert listener.audio_from(stream[:60], count) == stream[:count]


@pytest.mark.parametrize("content_type, make, sync", [
    ("audio/mpeg", media.mp3_frames, b"\xff\xfb"), ("audio/aac", media.adts_frames, b"\xff\xf1")])
def test_everybody_begins_with_a_whole_frame(start_server, content_type, make, sync):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        on_air(server, stack, content_type, stream=make(), pace=20)
        for _ in range(8):
            with Listener(server, "/live") as listener:
                start = listener.audio(60)
                number, = media.numbers_in(start)
                frame = next(make(1, number))[0]
                assert start == frame[:60]


def test_newcomer_hears_all_that_is_kept_and_it_is_the_newest(start_server):
    server = start_server(mount("/live"))
    frame = len(media.mp3_frame(0))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack)
        first = stack.enter_context(Listener(server, "/live"))
        source.push(media.join(media.mp3_frames(600)))
        newest = media.numbers_in(first.audio_through(media.number_text(575)) + first.audio_for(2))[-1]
        newcomer = stack.enter_context(Listener(server, "/live"))
        kept = BURST // frame
        burst = newcomer.audio(kept * frame)
        assert media.numbers_in(burst) == list(range(newest - kept + 1, newest + 1))
        assert newcomer.audio_for(1) == b""


# ---- MPEG ------------------------------------------------------------------------------------------------------------

def test_bytes_between_mpeg_frames_are_dropped(start_server):
    server = start_server(mount("/live"))
    frames = [media.mp3_frame(number) for number in range(100)]
    junk = b"ID3\x03" + b"\0\x01\x02" * 100
    assert heard(server, junk + junk.join(frames), 20000) == b"".join(frames)[:20000]


@pytest.mark.parametrize("false_start", [
    b"\xff\xfb\xf0\x00", b"\xff\xfb\x9c\x00", b"\xff\xeb\x90\x00", b"\xff\xf9\x90\x00", b"\xff\x1b\x90\x00"],
    ids=["bitrate 15", "rate 3", "version 1", "layer 0", "sync"])
def test_what_only_looks_like_an_mpeg_frame_is_skipped(start_server, false_start):
    server = start_server(mount("/live"))
    frames = media.join(media.mp3_frames(100))
    assert heard(server, false_start + frames, 20000) == frames[:20000]


def test_padded_frames_are_one_byte_longer(start_server):
    server = start_server(mount("/live"))
    frames = b"".join(media.mp3_frame(number, padding=number % 2) for number in range(100))
    assert heard(server, b"junk" + frames, 20000) == frames[:20000]


def test_padding_of_layer_one_is_one_byte_too(start_server):
    server = start_server(mount("/live"))
    # MPEG-1 Layer I, 384 kbit/s, 44100 Hz, padded: 384 / 8 * 384000 / 44100 + 1 bytes
    frames = b"".join(b"\xff\xff\xc2\x00" + bytes([number]) * (417 + 1 - 4) for number in range(1, 100))
    assert heard(server, b"junk" + frames, 20000) == frames[:20000]


def test_free_format_frames_end_the_session(start_server):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack)
        source.push((b"\xff\xfb\x00\x00" + bytes(413)) * 20)
        server.wait_log("> Source Disconnected [Error: (0) ")


# ---- AAC -------------------------------------------------------------------------------------------------------------

def test_bytes_between_adts_frames_are_dropped(start_server):
    server = start_server(mount("/live"))
    frames = [media.adts_frame(number) for number in range(100)]
    assert heard(server, b"junk" + b"\xff\x00more".join(frames), 20000, "audio/aac") == b"".join(frames)[:20000]


def test_adts_length_with_bit_ten_set_ends_the_session(start_server):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, "audio/aac")
        listener = stack.enter_context(Listener(server, "/live"))
        source.push(media.join(media.adts_frames(20, length=1024)))
        server.wait_log("> Source Disconnected [Error: (0) ")
        assert source.connection.ends_within(PATIENCE)
        assert listener.audio_for(1) == b""


# ---- anything else ---------------------------------------------------------------------------------------------------

def test_other_types_are_cut_into_packets_of_500_bytes(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.plain_blocks(20, length=GENERIC_PACKET))[:8192]
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, "video/unheard-of")
        listener = stack.enter_context(Listener(server, "/live"))
        source.push(stream)
        assert listener.audio(8000) == stream[:8000]
        assert listener.audio_for(1) == b""


def test_newcomer_of_another_type_begins_with_a_packet(start_server):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, "video/unheard-of")
        first = stack.enter_context(Listener(server, "/live"))
        source.push(media.join(media.plain_blocks(3000, length=GENERIC_PACKET)))
        first.audio_through(media.number_text(2900))
        newcomer = stack.enter_context(Listener(server, "/live"))
        assert newcomer.audio(12).startswith(b"<")


def test_stream_that_never_fills_the_reader_is_not_heard(start_server):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack:
        source = on_air(server, stack, "video/unheard-of")
        listener = stack.enter_context(Listener(server, "/live"))
        source.push(bytes(8191))
        assert listener.audio_for(1) == b""
        source.push(bytes(1))
        assert listener.audio(500) == bytes(500)
