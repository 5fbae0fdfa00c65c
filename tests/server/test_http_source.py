"""Encoders that come with an HTTP request: SOURCE in the old way, PUT in the new one."""
import time

import pytest

from harness import media
from harness.accounts import EVERY_MOUNT, account, ban, user_file
from harness.client import Connection, basic, request_text
from harness.listener import Listener
from harness.server import ADMIN, PATIENCE, mount
from harness.source import HttpSource

LAZY = ("Warning: Source connected requesting PUT method but failed to supply a Content-Length or Transfer-Encoding "
        "header.  A lazy programmer has forced us to fall back to legacy Icecast SOURCE method.  Do not contact us "
        "about this warning, contact the maintainer of your source application.")
LOGIN = {"Authorization": basic("source", "hackme"), "Content-Type": "audio/mpeg"}


def ask(server, method, target, headers, version="HTTP/1.0"):
    """The head of the answer to a source that then leaves."""
    with Connection(server.port) as connection:
        connection.send(request_text(method, target, headers, version))
        return connection.receive_head()


# ---- the answer ------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("version", ["HTTP/1.0", "ICE/1.0"])
def test_source_hears_200_and_the_log_tells_of_the_old_way(start_server, version):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", version=version) as source:
        assert source.answer.first_line == "HTTP/1.0 200 OK"
        server.wait_log("<127.0.0.1> Source Falling back to ICE protocol")
        assert "<127.0.0.1> Incoming HTTP Source" in server.log_lines()
        line = server.wait_source()
        assert line == f"<127.0.0.1> Source Connected (A: 127.0.0.1:{server.port}/live) [T: Mpeg Object]"


def test_ice_request_needs_no_host(start_server):
    server = start_server(mount("/live"))
    head = ask(server, "SOURCE", "/live", {**LOGIN, "Host": None}, "ICE/1.0")
    assert head.status == 200


@pytest.mark.parametrize("framing", [{"Content-Length": 1000000}, {"Transfer-Encoding": "chunked"}])
def test_put_hears_100_continue_without_a_body(start_server, framing):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        connection.send(request_text("PUT", "/live", {**LOGIN, "Expect": "100-continue", **framing}))
        head = connection.receive_head()
        assert head.first_line == "HTTP/1.1 100 Continue"
        assert "Transfer-Encoding" not in head
        server.wait_source()
        assert connection.receive_for(0.5) == b""
    assert LAZY not in server.log_lines()


def test_put_that_does_not_frame_its_body_hears_200_and_a_warning_is_logged(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(100))
    with HttpSource(server, "/live", method="PUT") as source:
        assert source.answer.status == 200
        server.wait_log(LAZY)
        assert LAZY in server.log_lines()
        server.wait_source()
        source.push(stream)
        with Listener(server, "/live") as listener:
            assert listener.audio(417) in stream


def test_200_over_http_1_1_announces_chunks_and_ends_them_at_once(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", version="HTTP/1.1") as source:
        assert source.answer.first_line == "HTTP/1.1 200 OK"
        assert source.answer["Transfer-Encoding"] == "chunked"
        assert source.last_chunk == b"0\r\n"


# ---- who may ---------------------------------------------------------------------------------------------------------

ACCOUNTS = user_file(
    account("other", "secret", "Mount Source", [2]), account("dj", "secret", "Mount Source", [1]),
    account("manager", "secret", "Mount Manager", [EVERY_MOUNT]), account("listener", "secret", "Listener", [1]),
    account("statistics", "secret", "Statistics"))


@pytest.mark.parametrize("user, password", [("dj", "secret"), ("manager", "secret"), ADMIN])
def test_account_with_the_right_to_the_mount_is_taken(start_server, user, password):
    server = start_server([*mount("/live", 1), *mount("/two", 2)], users=ACCOUNTS)
    with HttpSource(server, "/live", user=user, password=password):
        server.wait_source()


@pytest.mark.parametrize("user", ["other", "listener", "statistics"])
def test_account_without_the_right_hears_401_with_no_challenge(start_server, user):
    server = start_server([*mount("/live", 1), *mount("/two", 2)], users=ACCOUNTS)
    head = ask(server, "SOURCE", "/live", {**LOGIN, "Authorization": basic(user, "secret")})
    assert head.first_line == "HTTP/1.0 401 Unauthorized"
    assert "WWW-Authenticate" not in head
    with HttpSource(server, "/live"):  # the mount still waits
        server.wait_source()


@pytest.mark.parametrize("method", ["SOURCE", "PUT"])
@pytest.mark.parametrize("login", [None, basic("source", "wrong"), basic("nobody", "hackme"),
                                   basic("source", ""), "Basic c291cmNl"])  # the last is a name with no colon
def test_stranger_who_would_send_is_a_listener_and_finds_no_source(start_server, method, login):
    server = start_server(mount("/live"))
    head = ask(server, method, "/live", {**LOGIN, "Authorization": login, "User-Agent": "encoder"})
    assert head.first_line == "HTTP/1.0 503 Service Unavailable"
    server.wait_log("<127.0.0.1> No Source (/live) {UA: encoder}")
    assert not any("Incoming HTTP Source" in line for line in server.log_lines())


def test_banned_address_hears_403(start_server):
    server = start_server(mount("/live"), users=user_file(banned=ban("127.0.0.1")))
    with Connection(server.port) as connection:
        connection.send(request_text("SOURCE", "/live", LOGIN, "HTTP/1.0"))
        head = connection.receive_head()
        assert head.first_line == "HTTP/1.0 403 Forbidden"
        assert head["Content-Type"] == "text/plain"
        assert connection.receive_body(head) == b"Forbidden"
    server.wait_log("<127.0.0.1> Banned user")


def test_source_for_no_mount_hears_404(start_server):
    server = start_server(mount("/live"))
    assert ask(server, "SOURCE", "/nowhere", {**LOGIN, "User-Agent": "encoder"}).status == 404
    server.wait_log("<127.0.0.1> Invalid Resource Request (/nowhere) {UA: encoder}")


def test_mount_is_found_by_its_decoded_address(start_server):
    server = start_server(mount("/my radio"))
    with HttpSource(server, "/my%20radio"):
        server.wait_source()


@pytest.mark.parametrize("method", ["SOURCE", "PUT"])
def test_second_source_on_a_busy_mount_is_a_listener(start_server, method):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames(), pace=4) as first:
        server.wait_source()
        first.wait_bytes(20000)
        with Listener(server, "/live", method=method, headers=LOGIN) as second:
            assert second.head.status == 200
            assert second.head["icy-pub"] == "0"
            assert second.audio(417)[:2] == b"\xff\xfb"


# ---- the body --------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("size", [1, 100, 5000])
def test_stream_in_the_packet_of_the_head_loses_no_byte(start_server, size):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(100))
    with Connection(server.port) as connection:
        connection.send(request_text("SOURCE", "/live", LOGIN, "HTTP/1.0").encode() + stream[:size])
        assert connection.receive_head().status == 200
        server.wait_source()
        connection.send(stream[size:])
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


def test_head_may_come_byte_by_byte(start_server):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        for byte in request_text("SOURCE", "/live", LOGIN, "HTTP/1.0"):
            connection.send(byte)
            time.sleep(0.005)
        assert connection.receive_head().status == 200
        server.wait_source()


@pytest.mark.parametrize("chunk", [7, 417, 1000, 20000])
def test_chunks_of_any_size_are_put_together(start_server, chunk):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(100))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        source.connection.send(b"".join(source.pack(stream[at:at + chunk]) for at in range(0, len(stream), chunk)))
        server.wait_source()
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


def test_chunk_frames_may_be_torn_apart_anywhere(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(60))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        for at in range(0, len(stream), 1000):
            piece = stream[at:at + 1000]
            for part in (b"%X" % len(piece), b"\r", b"\n", piece[:1], piece[1:], b"\r", b"\n"):
                source.connection.send(part)
                time.sleep(0.002)
        with Listener(server, "/live") as listener:
            assert listener.audio(16000) == stream[:16000]


def test_chunk_of_size_zero_ends_the_session_gracefully(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        source.push(media.join(media.mp3_frames(60)))
        source.end()
        server.wait_log(f"<127.0.0.1> Source Disconnected Gracefully (A: 127.0.0.1:{server.port}/live)")
        assert source.connection.ends_within(PATIENCE)


def test_chunk_header_without_an_end_ends_the_session(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        source.connection.send(b"1" * 4000)
        server.wait_log("> Source Disconnected [Error: (")
