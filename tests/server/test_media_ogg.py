"""Ogg streams: page by page, with the header pages first for everybody, and titles out of the comments."""
import contextlib
import struct

import pytest

from harness import media
from harness.listener import Listener
from harness.server import mount
from harness.source import HttpSource

READ = 65307  # the largest page; the reader delivers this much at a time
KEPT = 65536  # bytes of Vorbis and Opus that are kept for newcomers


def pages(serial, count, **options):
    return [page for page, _ in media.ogg_data_pages(serial, count, **options)]


def padding(serial, first_sequence):
    """Pages behind what a test looks at, enough to fill the reader."""
    return b"".join(pages(serial, 80, first=90000, first_sequence=first_sequence))


@contextlib.contextmanager
def on_air(server):
    with HttpSource(server, "/live", content_type="application/ogg") as source:
        server.wait_source()
        yield source


def heard(server, data, count, start=b""):
    """`count` bytes that a listener hears of `data`, from `start` on, when it has joined before they are sent."""
    with on_air(server) as source:
        source.push(b"".join(media.vorbis_headers(9)) + padding(9, 2))
        with Listener(server, "/live") as listener:
            listener.audio(1000)
            source.push(data)
            return listener.audio_from(start or data[:28], count)


def hear_all(server, source, listener, last):
    """Until the listener has heard the data page of this number."""
    listener.audio_through(media.number_text(last))


COMMENTS = [("TITLE", "Song"), ("ARTIST", "Band"), ("ALBUM", "Record")]
HEADERS = [pytest.param(media.vorbis_headers, id="Vorbis"), pytest.param(media.opus_headers, id="Opus")]


# ---- pages -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("headers", HEADERS)
def test_pages_are_heard_byte_for_byte(start_server, headers):
    server = start_server(mount("/live"))
    stream = b"".join(headers(1, COMMENTS) + pages(1, 30))
    assert heard(server, stream + padding(1, 100), len(stream)) == stream


def test_listener_is_told_the_ogg_way_whatever_it_asks(start_server):
    server = start_server(mount("/live"))
    with on_air(server) as source:
        source.push(b"".join(media.vorbis_headers(1)) + padding(1, 2))
        with Listener(server, "/live", metadata=True) as listener:
            assert listener.head.first_line == "HTTP/1.0 200 OK"
            assert "ice-name" in listener.head and "icy-metaint" not in listener.head
            assert listener.audio(4) == b"OggS"


@pytest.mark.parametrize("junk", [b"junk", b"OggS\x01", b"OggOggOgg", bytes(5000)])
def test_bytes_between_pages_are_dropped(start_server, junk):
    server = start_server(mount("/live"))
    stream = media.vorbis_headers(1) + pages(1, 30)
    whole = b"".join(stream)
    assert heard(server, junk + junk.join(stream) + padding(1, 100), len(whole), whole[:28]) == whole


def test_largest_page_passes(start_server):
    server = start_server(mount("/live"))
    page = media.ogg_page([bytes(255 * 255)], 1, 2, unfinished=True)
    assert len(page) == READ
    stream = b"".join(media.vorbis_headers(1)) + page + page
    assert heard(server, stream + padding(1, 100), len(stream)) == stream


def test_unknown_codec_is_logged_and_passes(start_server):
    server = start_server(mount("/live"))
    stream = media.ogg_page([b"\x7fFLAC" + bytes(60)], 1, 0, flags=media.OGG_FIRST)
    assert heard(server, stream + padding(1, 1), len(stream)) == stream
    assert "OGG Bitstream is Unknown or unsupported" in server.log_lines()


def test_first_page_with_a_granule_position_is_not_examined(start_server):
    server = start_server(mount("/live"))
    stream = media.ogg_page([b"whatever"], 1, 0, granule=5, flags=media.OGG_FIRST)
    assert heard(server, stream + padding(1, 1), len(stream)) == stream
    assert "OGG Bitstream is Unknown or unsupported" not in server.log_lines()


# ---- the burst -------------------------------------------------------------------------------------------------------

def test_newcomer_gets_the_header_pages_and_then_the_newest_pages(start_server):
    server = start_server(mount("/live"))
    headers = b"".join(media.vorbis_headers(1, COMMENTS))
    with on_air(server) as source, Listener(server, "/live") as first:
        source.push(headers + b"".join(pages(1, 400)))
        hear_all(server, source, first, 300)
        with Listener(server, "/live") as newcomer:
            assert newcomer.audio(len(headers)) == headers
            following, = media.numbers_in(newcomer.audio(1000))
            assert following > 200  # the oldest pages are gone
            more = media.numbers_in(newcomer.audio(20000))
            assert more == list(range(following + 1, following + 1 + len(more)))


def test_burst_of_a_chained_stream_begins_with_the_headers_in_force(start_server):
    server = start_server(mount("/live"))
    old = b"".join(media.vorbis_headers(1, COMMENTS))
    new = b"".join(media.opus_headers(2, [("TITLE", "Next")]))
    with on_air(server) as source, Listener(server, "/live") as first:
        source.push(old + b"".join(pages(1, 100)))
        hear_all(server, source, first, 40)
        source.push(new + b"".join(pages(2, 400, first=1000)))
        hear_all(server, source, first, 1300)
        with Listener(server, "/live") as newcomer:
            assert newcomer.audio(len(new)) == new


def test_listener_goes_on_over_a_chain_without_a_break(start_server):
    server = start_server(mount("/live"))
    stream = b"".join(media.vorbis_headers(1) + pages(1, 20) + media.vorbis_headers(2) + pages(2, 20, first=100))
    assert heard(server, stream + padding(2, 100), len(stream)) == stream


def test_returning_source_begins_a_new_header_group(start_server):
    server = start_server(mount("/live"))
    new = b"".join(media.vorbis_headers(2))
    with on_air(server) as source, Listener(server, "/live") as first:
        source.push(b"".join(media.vorbis_headers(1) + pages(1, 100)))
        hear_all(server, source, first, 40)
    server.wait_source_gone()
    with HttpSource(server, "/live", content_type="application/ogg") as source:
        server.wait_source(2)
        with Listener(server, "/live") as first:
            source.push(new + b"".join(pages(2, 400, first=1000)))
            hear_all(server, source, first, 1300)
            with Listener(server, "/live") as newcomer:
                assert newcomer.audio(len(new)) == new


def test_theora_keeps_a_megabyte(start_server):
    server = start_server(mount("/live"))
    headers = [media.ogg_page([b"\x80theora" + bytes(35)], 1, 0, flags=media.OGG_FIRST),
               media.ogg_page([b"\x81theora" + media.vorbis_comments(COMMENTS)], 1, 1)]
    with on_air(server) as source, Listener(server, "/live") as first:
        source.push(b"".join(headers + pages(1, 400)))
        hear_all(server, source, first, 300)
        with Listener(server, "/live") as newcomer:
            assert newcomer.audio(len(headers[0])) == headers[0]
            newcomer.audio(len(headers[1]))
            assert media.numbers_in(newcomer.audio(200000))[:100] == list(range(100))  # far beyond what Vorbis keeps
    assert "Ogg comment parser error: Invalid segment passed" in server.log_lines()


def test_theora_page_above_its_read_buffer_ends_the_session(start_server):
    server = start_server(mount("/live"))
    with on_air(server) as source:
        source.push(media.ogg_page([b"\x80theora" + bytes(35)], 1, 0, flags=media.OGG_FIRST) + padding(1, 1))
        source.push(media.ogg_page([bytes(255 * 255)], 1, 200, unfinished=True) * 3)
        server.wait_log("<127.0.0.1> Ogg Packet exceeded end of buffer, compensation failed.  "
                        "You should restart this stream.")
        server.wait_log("> Source Disconnected [Error: (0) ")


# ---- comments --------------------------------------------------------------------------------------------------------

def logged_titles(server, stream):
    """The titles of the listener log after a listener has heard the stream from its first page on."""
    with on_air(server) as source, Listener(server, "/live") as listener:
        source.push(stream + padding(1, 1000))
        listener.audio(len(stream))
    return [record["x-metatitle"] for record in server.wait_records(2)]


@pytest.mark.parametrize("headers", HEADERS)
@pytest.mark.parametrize("comments, title", [
    (COMMENTS, "Band - Song"), ([("TITLE", "Song")], "Song"), ([("artist", "Band")], "Band"),
    ([("title", "first"), ("TITLE", "second")], "second"), ([("TITLE", "a=b")], "a"), ([("ALBUM", "Record")], "-"),
    ([("TITLE", "T\u00e9l\u00e9")], "T\u00c3\u00a9l\u00c3\u00a9"),  # UTF-8 as it came; the log is read as Latin-1
])
def test_title_of_the_comments_stands_in_the_listener_log(start_server, headers, comments, title):
    server = start_server(mount("/live"))
    assert logged_titles(server, b"".join(headers(1, comments) + pages(1, 5))) == ["-", title]


def test_each_link_of_a_chain_has_its_title(start_server):
    server = start_server(mount("/live"))
    stream = b"".join(media.vorbis_headers(1, [("TITLE", "One")]) + pages(1, 5) +
                      media.opus_headers(2, [("TITLE", "Two")]) + pages(2, 5, first=50))
    with on_air(server) as source, Listener(server, "/live") as listener:
        source.push(stream + padding(2, 1000))
        listener.audio(len(stream))
    assert [record["x-metatitle"] for record in server.wait_records(3)] == ["-", "One", "Two"]


def split_comment_headers(serial, comments):
    """A comment packet of exactly two pages."""
    packet = b"OpusTags" + media.vorbis_comments([*comments, ("FILL", "x" * 600)])
    return [media.opus_headers(serial)[0], media.ogg_page([packet[:510]], serial, 1, unfinished=True),
            media.ogg_page([packet[510:]], serial, 2, flags=media.OGG_CONTINUED)]


def test_comments_may_span_two_pages_and_both_are_header_pages(start_server):
    server = start_server(mount("/live"))
    headers = b"".join(split_comment_headers(1, COMMENTS))
    with on_air(server) as source, Listener(server, "/live") as first:
        source.push(headers + b"".join(pages(1, 400)))
        hear_all(server, source, first, 300)
        with Listener(server, "/live") as newcomer:
            assert newcomer.audio(len(headers)) == headers
    assert {record["x-metatitle"] for record in server.wait_records(4)} == {"-", "Band - Song"}


def test_pages_that_continue_the_third_header_do_not_spoil_the_title(start_server):
    server = start_server(mount("/live"))
    first, _ = media.vorbis_headers(1)
    comment = b"\x03vorbis" + media.vorbis_comments([("TITLE", "Song")]) + b"\x01"
    setup = b"\x05vorbis" + b"\xff" * 2000
    cut = 1020
    stream = (first + media.ogg_page([comment, setup[:cut]], 1, 1, unfinished=True) +
              media.ogg_page([setup[cut:]], 1, 2, flags=media.OGG_CONTINUED))
    assert logged_titles(server, stream) == ["-", "Song"]
    assert not any("Vendor Length too large" in line for line in server.log_lines())


def test_vendor_longer_than_the_packet_is_logged(start_server):
    server = start_server(mount("/live"))
    stream = media.vorbis_headers(1)[0] + media.ogg_page([b"\x03vorbis" + struct.pack("<I", 5000) + bytes(20)], 1, 1)
    assert logged_titles(server, stream) == ["-", "-"]
    assert "Vendor Length too large: 5000 bytes" in server.log_lines()


def test_comment_longer_than_the_packet_ends_the_list(start_server):
    server = start_server(mount("/live"))
    comments = media.vorbis_comments([("TITLE", "Song"), ("ARTIST", "Band")])
    stream = media.opus_headers(1)[0] + media.ogg_page([b"OpusTags" + comments[:-3]], 1, 1)
    assert logged_titles(server, stream) == ["-", "Song"]
    server.wait_log(" of 2 Invalid String length passed for comment at ")
