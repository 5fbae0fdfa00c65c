"""Encoders of others send real streams, and curl listens: what it gets are the bytes that were sent."""
import shlex

import pytest

from harness.compare import PROBE, assert_heard
from harness.server import mount

SECONDS = 5  # of every stream


def send_with_ffmpeg(start_program, server, recording, *options):
    """ffmpeg as a source on /live, at the pace at which the stream plays."""
    address = f"icecast://source:hackme@{server.host}:{server.port}/live"
    return start_program("ffmpeg", "-v", "error", "-re", "-i", recording.path, *shlex.split(recording.sending),
                         "-content_type", recording.kind.content_type, *options, address)


def hear_with_curl(start_program, server, recording, place):
    """The first seconds that curl gets from /live."""
    curl = start_program("curl", "-sS", "-N", "-o", place / "heard", f"http://{server.host}:{server.port}/live")
    return curl.wait_written(place / "heard", recording.size(SECONDS))


def starts_with_mpeg_frame(data):
    return data[0] == 0xFF and data[1] & 0xE0 == 0xE0


def starts_with_adts_frame(data):
    return data[0] == 0xFF and data[1] & 0xF6 == 0xF0


def ogg_page_length(data, at):
    """RFC 3533: 26 bytes, the number of segments, their lengths, the segments."""
    segments = data[at + 26]
    return 27 + segments + sum(data[at + 27:at + 27 + segments])


def assert_all_heard(heard, sent):
    assert_heard(heard, sent, least=len(heard) - PROBE)


@pytest.mark.parametrize("kind, framing, starts_with_frame", [
    ("mp3", "Mpeg Object", starts_with_mpeg_frame),
    ("aac", "AAC Object", starts_with_adts_frame),
])
def test_ffmpeg_sends_frames_and_curl_gets_every_byte(start_server, start_program, recordings, tmp_path, kind, framing,
                                                      starts_with_frame):
    server, recording = start_server(mount("/live")), recordings[kind]
    send_with_ffmpeg(start_program, server, recording)
    assert f"[T: {framing}]" in server.wait_source()
    heard = hear_with_curl(start_program, server, recording, tmp_path)
    assert starts_with_frame(heard)
    assert_all_heard(heard, recording.sent.read_bytes())


@pytest.mark.parametrize("kind", ["vorbis", "opus", "flac", "theora"])
def test_ffmpeg_sends_pages_and_curl_gets_every_byte(start_server, start_program, recordings, tmp_path, kind):
    server, recording = start_server(mount("/live")), recordings[kind]
    send_with_ffmpeg(start_program, server, recording)
    assert "[T: Ogg Object]" in server.wait_source()
    heard = hear_with_curl(start_program, server, recording, tmp_path)
    sent = recording.sent.read_bytes()
    head = ogg_page_length(sent, 0)
    head += ogg_page_length(sent, head)
    assert heard[:head] == sent[:head], "the header pages do not come first"
    assert_all_heard(heard[head:], sent[head:])


def test_ffmpeg_sends_with_the_old_method(start_server, start_program, recordings, tmp_path):
    server, recording = start_server(mount("/live")), recordings["mp3"]
    send_with_ffmpeg(start_program, server, recording, "-legacy_icecast", "1")
    server.wait_source()
    assert "requesting PUT method" not in server.read("quillwave.log")
    heard = hear_with_curl(start_program, server, recording, tmp_path)
    assert starts_with_mpeg_frame(heard)
    assert_all_heard(heard, recording.sent.read_bytes())


@pytest.mark.parametrize("options", [[], ["-H", "Transfer-Encoding: chunked"]], ids=["of a length", "chunked"])
def test_curl_sends(start_server, start_program, recordings, tmp_path, options):
    server, recording = start_server(mount("/live")), recordings["mp3"]
    start_program("curl", "-sS", "-T", recording.sent, "-H", "Content-Type: audio/mpeg", *options, "--limit-rate", "40K",
                  "-u", "source:hackme", f"http://{server.host}:{server.port}/live")
    server.wait_source()
    heard = hear_with_curl(start_program, server, recording, tmp_path)
    assert starts_with_mpeg_frame(heard)
    assert_all_heard(heard, recording.sent.read_bytes())


def test_ezstream_sends_in_the_way_of_icy(start_server, start_program, recordings, tmp_path):
    """libshout logs in on the port above the one it is told, and names no content type."""
    server, recording = start_server(mount("/live")), recordings["mp3"]
    config = tmp_path / "ezstream.xml"
    config.write_text(ezstream_config(server, recording.sent))
    config.chmod(0o600)
    start_program("ezstream", "-v", "-c", config)
    server.wait_source()
    heard = hear_with_curl(start_program, server, recording, tmp_path)
    assert_all_heard(heard, recording.sent.read_bytes())


def ezstream_config(server, file):
    return f"""<?xml version="1.0" encoding="UTF-8"?>
<ezstream>
  <servers><server>
    <protocol>ICY</protocol><hostname>{server.host}</hostname><port>{server.port}</port>
    <password>source:hackme</password><tls>None</tls>
  </server></servers>
  <streams><stream>
    <mountpoint>/live</mountpoint><format>MP3</format><stream_name>A station of ezstream</stream_name>
  </stream></streams>
  <intakes><intake><type>file</type><filename>{file}</filename></intake></intakes>
</ezstream>
"""


def test_ffmpeg_with_a_wrong_password_gives_up(start_server, start_program, recordings):
    server = start_server(mount("/live", Pass="another"))
    ffmpeg = send_with_ffmpeg(start_program, server, recordings["mp3"])
    assert ffmpeg.wait_end() != 0
    assert "Source Connected" not in server.read("quillwave.log")
