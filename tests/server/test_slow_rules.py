"""The rules of 15, 20, 30, 60 and 300 seconds, with the real clock.

Each test waits in a worker of its own. The server counts whole seconds, so a limit may come up to a second early by the
clock of a test; how late it comes depends on the machine.
"""
import contextlib
import threading
import time

import pytest

from harness import media, tcp_table
from harness.client import Connection, fetch, request_text
from harness.listener import Listener
from harness.markup import Page
from harness.panel import page
from harness.server import PATIENCE, mount
from harness.source import HttpSource

LOW = {"kbits": 32}  # 4000 bytes a second: little work for long waits
FRAME = len(media.mp3_frame(0))
MUCH = 10 * 1024 * 1024  # more than all buffers between a server and a player hold


@contextlib.contextmanager
def at_about(seconds):
    """What is done inside takes this time, a second less or some patience more."""
    began = time.monotonic()
    yield
    took = time.monotonic() - began
    assert seconds - 1 <= took <= seconds + PATIENCE, f"it took {took:.1f} seconds"


def keep_sending(connection, data, every, stopped):
    """Sends these bytes one by one, until told to stop or the server has ended the connection."""
    try:
        for byte in data:
            connection.send(bytes([byte]))
            if stopped.wait(every):
                return
    except OSError:
        pass


@contextlib.contextmanager
def trickling(connection, data, every):
    stopped = threading.Event()
    thread = threading.Thread(target=keep_sending, args=(connection, data, every, stopped), daemon=True)
    thread.start()
    yield
    stopped.set()
    thread.join()


# ---- heads: 15 seconds -----------------------------------------------------------------------------------------------

@pytest.mark.waits(15)
def test_silent_connection_is_ended_after_fifteen_seconds_without_a_word(start_server):
    server = start_server()
    with at_about(15), Connection(server.port) as connection:
        assert connection.receive_all(15 + PATIENCE) == b""


@pytest.mark.waits(15)
def test_head_that_trickles_is_ended_after_fifteen_seconds(start_server):
    server = start_server()
    with at_about(15), Connection(server.port) as connection:
        with trickling(connection, b"GET /nowhere HTTP/1.0\r\nX: " + b"x" * 1000, every=0.5):
            assert connection.receive_all(15 + PATIENCE) == b""


@pytest.mark.waits(15)
def test_login_without_its_empty_line_is_ended_after_fifteen_seconds(start_server):
    server = start_server(mount("/live"))
    with at_about(15), Connection(server.port) as connection:
        connection.send("source:hackme\r\n")
        assert connection.receive_until(b"\r\n\r\n") == b"OK2\r\nicy-caps:11\r\n\r\n"
        connection.send("icy-name:x\r\ncontent-type:audio/mpeg\r\n")
        assert connection.receive_all(15 + PATIENCE) == b""
    assert not any("Source Connected" in line for line in server.log_lines())


@pytest.mark.waits(15)
def test_kept_connection_without_a_further_request_is_ended_after_its_first_fifteen_seconds(start_server):
    server = start_server()
    with at_about(15), Connection(server.port) as connection:
        for pause in (6, 6, 0):
            connection.send(request_text("GET", "/nowhere"))
            head = connection.receive_head()
            connection.receive_body(head)
            assert head.status == 404
            time.sleep(pause)
        assert connection.receive_all(15 + PATIENCE) == b""


# ---- bodies: 30 and 60 seconds ---------------------------------------------------------------------------------------

@pytest.mark.waits(30)
@pytest.mark.parametrize("connection_header", ["close", "keep-alive"])
def test_body_that_is_silent_for_thirty_seconds_ends_the_connection_without_an_answer(start_server, connection_header):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", {"Content-Length": 10, "Connection": connection_header}))
        time.sleep(3)
        with at_about(30):
            connection.send("a=b")
            assert connection.receive_all(30 + PATIENCE) == b""


@pytest.mark.waits(60)
def test_body_that_trickles_for_sixty_seconds_is_408(start_server):
    server = start_server()
    with at_about(60), Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", {"Content-Length": 1000, "Connection": "close"}))
        with trickling(connection, b"x" * 1000, every=2):
            head = connection.receive_head(60 + PATIENCE)
            assert head.first_line == "HTTP/1.1 408 Request Timeout"
            connection.receive_all(PATIENCE)


@pytest.mark.waits(66)
def test_body_that_trickles_on_a_kept_connection_has_no_such_limit(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        connection.send(request_text("POST", "/nowhere", {"Content-Length": 34}))
        with trickling(connection, b"x" * 33, every=2):
            assert connection.receive_for(66) == b""
        connection.send("x")
        assert connection.receive_head().status == 404


# ---- sources: 20 and 30 seconds --------------------------------------------------------------------------------------

@pytest.mark.waits(30)
def test_source_that_is_silent_for_thirty_seconds_is_ended_and_a_waiting_listener_with_it(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(60))
    with HttpSource(server, "/live") as source, contextlib.ExitStack() as stack:
        server.wait_source()
        listener = stack.enter_context(Listener(server, "/live"))
        with at_about(30):
            source.push(stream)
            assert listener.audio(16000) == stream[:16000]
            server.wait_log("> Source Disconnected [Error: (110) Connection timed out] "
                            f"(A: 127.0.0.1:{server.port}/live)", within=30 + PATIENCE)
        assert source.connection.ends_within(PATIENCE)
        # Its own thirty seconds count from the last byte that it was sent, so they are over too.
        with at_about(1):
            assert listener.ends_within(PATIENCE)


@pytest.mark.waits(25)
def test_bitrate_limit_refuses_listeners_once_the_source_is_on_for_twenty_seconds(start_server):
    server = start_server([*mount("/over", 1, AvgBitrateLimit=60), *mount("/below", 2, User="other", AvgBitrateLimit=96)])
    with HttpSource(server, "/over", media.mp3_frames(kbits=64)), \
            HttpSource(server, "/below", media.mp3_frames(kbits=64), user="other"):
        server.wait_source(2)
        time.sleep(10)
        with Listener(server, "/over") as early:
            assert early.head.status == 200
            time.sleep(15)
            answer = fetch(server.port, "/over", headers={"User-Agent": "me"})
            assert answer.head.first_line == "HTTP/1.1 451 Unavailable For Legal Reasons"
            server.wait_log(f"<127.0.0.1> /over Exceeds Bitrate Limit [U: Anonymous] (A: 127.0.0.1:{server.port}/over) {{UA: me}}")
            early.receive(1000)  # who listens already goes on
        with Listener(server, "/below") as listener:
            assert listener.head.status == 200


# ---- listeners: 15, 30 and 60 seconds --------------------------------------------------------------------------------

def listener_of_a_source_that_leaves(server, stack):
    stream = media.join(media.mp3_frames(60))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        listener = stack.enter_context(Listener(server, "/live"))
        source.push(stream)
        assert listener.audio(16000) == stream[:16000]
    server.wait_source_gone()
    return listener


@pytest.mark.waits(30)
def test_listener_waits_thirty_seconds_for_a_source(start_server):
    server = start_server(mount("/live"))
    with contextlib.ExitStack() as stack, at_about(30):
        assert listener_of_a_source_that_leaves(server, stack).ends_within(30 + PATIENCE)


@pytest.mark.waits(5)
def test_listener_waits_as_long_as_the_setting_says(start_server):
    server = start_server([("ClientTimeout", 5), *mount("/live")])
    with contextlib.ExitStack() as stack, at_about(5):
        assert listener_of_a_source_that_leaves(server, stack).ends_within(5 + PATIENCE)


@pytest.mark.waits(45)
def test_listener_without_a_limit_still_waits_after_forty_five_seconds(start_server):
    server = start_server([("ClientTimeout", 0), *mount("/live")])
    with contextlib.ExitStack() as stack:
        listener = listener_of_a_source_that_leaves(server, stack)
        assert not listener.ends_within(45)
        with HttpSource(server, "/live") as source:
            server.wait_source(2)
            stream = media.join(media.mp3_frames(60, first=1000))
            source.push(stream)
            assert stream[:1000] in listener.receive(16000)


@pytest.mark.waits(60)
def test_listener_timer_of_one_minute_ends_a_session_at_sixty_seconds(start_server):
    server = start_server(mount("/live", ListenerTimer=1))
    with HttpSource(server, "/live", media.mp3_frames(**LOW)):
        server.wait_source()
        with at_about(60), Listener(server, "/live") as listener:
            assert listener.ends_within(60 + PATIENCE)
        assert float(server.wait_records(1)[0]["time-taken"]) >= 60


@pytest.mark.once
@pytest.mark.waits(301)
def test_listener_counts_as_one_who_stayed_after_five_minutes(start_server):
    server = start_server(mount("/live"))

    def tune_ins():
        return Page(page(server, "/admin/stream/1/").text).figures["Tune-Ins:"]
    with HttpSource(server, "/live", media.mp3_frames(**LOW)):
        server.wait_source()
        with Listener(server, "/live") as listener:
            with at_about(300):
                listener.audio_for(298)
                assert tune_ins() == "1 (5 mins: 0)"
                server.wait_until(lambda: tune_ins() == "1 (5 mins: 1)", complaint="it never counts")


@pytest.mark.waits(30)
def test_listener_that_never_reads_is_ended_fifteen_seconds_after_the_last_byte_went(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        deaf = Connection(server.port, receive_buffer=4096)
        deaf.send("GET /live HTTP/1.0\r\nUser-Agent: deaf\r\n\r\n")
        server.wait_log("{UA: deaf}")
        fill_the_way_to(deaf, server, source)
        with at_about(15):
            trickle = media.mp3_frames(2000, **LOW)
            while not any("> Connection Closed (" in line for line in server.log_lines()):
                data, seconds = next(trickle)
                source.push(data)
                time.sleep(seconds)
        assert "> Connection Closed (Connection timed out) [U: Anonymous]" in server.wait_log("> Connection Closed")
        deaf.close()


def fill_the_way_to(deaf, server, source):
    """Sends until the system takes no more for this listener: what it holds has not grown for a second."""
    held, since = 0, time.monotonic()
    for data, _ in media.mp3_frames(MUCH // (40 * FRAME)):
        source.push(data * 40)
        time.sleep(0.02)
        now_held = unsent_bytes(server.port, deaf.local_port)
        if now_held > held:
            held, since = now_held, time.monotonic()
        elif held and time.monotonic() - since > 1:
            return
    raise AssertionError(f"the system takes more and more: {held} bytes")


def unsent_bytes(port, peer):
    """The bytes that the system holds for a local connection."""
    return sum(entry.unsent for entry in tcp_table.entries() if (entry.port, entry.peer_port) == (port, peer))
