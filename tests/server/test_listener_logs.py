"""What the two logs tell of a listener."""
import contextlib
import re
import time

import pytest

from harness.client import Connection, basic
from harness.listener import Listener
from harness.server import mount
from harness.source import IcySource
from harness.station import frames, listening, on_air, push_until_heard

UUID = r"[0-9a-f]+(?:-[0-9a-f]+){4}"


def test_listener_is_logged_when_it_comes_and_when_it_goes(start_server):
    with on_air(start_server) as (server, _):
        listening(server, "/live?a=b", headers={"User-Agent": "me", "Authorization": basic("source", "hackme")}).close()
        opened = server.wait_log("> Connection Opened ")
        closed = server.wait_log("> Connection Closed ")
    found = re.fullmatch(rf"<127\.0\.0\.1> Connection Opened \[U: source\] \(A: 127\.0\.0\.1:{server.port}/live\) \[L: 1\] "
                         rf"{{UA: me}} \[I: ({UUID})\]", opened)
    assert found, opened
    assert re.fullmatch(rf"<127\.0\.0\.1> Connection Closed \[U: source\] \[L: 0\] {{\d+ bytes}} \(\d+ secs\) "
                        rf"\[I: {found.group(1)}\]", closed), closed


def test_listener_that_resets_is_logged_with_the_error(start_server):
    with on_air(start_server) as (server, _):
        listening(server).reset()
        server.wait_log("<127.0.0.1> Connection Closed (Connection reset by peer) [U: Anonymous] [L: 0] {")
        server.wait_log("<127.0.0.1> Receiver disconnected during recv check with empty buffer")


def test_listeners_are_counted_in_the_log(start_server):
    with on_air(start_server) as (server, _), contextlib.ExitStack() as stack:
        listeners = [stack.enter_context(listening(server)) for _ in range(3)]
        server.wait_log("[L: 3] {UA: ")
        for left in (2, 1, 0):
            listeners[left].close()
            server.wait_log(f"> Connection Closed [U: Anonymous] [L: {left}] {{")


def ended_session(start_server, target="/live", **options):
    """(record, bytes that came, server) of one listener, which the server has ended."""
    with on_air(start_server, [("ClientTimeout", 1), ("Hostname", "radio.example"), *mount("/live")]) as (server, source):
        with Connection(server.port) as connection:
            connection.send(options.get("request", f"GET {target} HTTP/1.0\r\nUser-Agent: a \"b\" c\r\n\r\n"))
            source.push(frames(100))
            received = connection.receive(10000)
            source.stop()
            received += connection.receive_all()
        return server.wait_records(1)[-1], received, server


def test_record_of_a_listener(start_server):
    record, received, _ = ended_session(start_server, "/live?a=b")
    seconds = record.pop("time-taken")
    then = f"{record.pop('date')} {record.pop('time')}"
    assert record == {
        "s-ip": "127.0.0.1", "s-dns": "radio.example", "c-ip": "127.0.0.1", "c-dns": "127.0.0.1", "cs-username": "-",
        "cs-method": "\x02", "cs-uri-stem": "/live", "cs-uri-query": "?a=b", "sc-status": "200",
        "sc-bytes": str(len(received)), "cs-version": "HTTP/1.0", "cs(User-Agent)": 'a "b" c', "x-metatitle": "-"}
    assert re.fullmatch(r"\d+\.000000", seconds)
    assert abs(time.mktime(time.strptime(then, "%Y-%m-%d %H:%M:%S")) - time.mktime(time.gmtime())) < 120


def test_listener_log_begins_with_its_four_header_lines(start_server):
    server = ended_session(start_server)[2]
    first, version, date, fields = server.read("quillwave-w3c.log", "latin-1").split("\n")[:4]
    assert first == "#Software:  Quillwave Distributed Network Media Server 1.0.2 evergreen"
    assert version == "#Version: 1.0"
    assert re.fullmatch(r"#Date: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d", date)
    assert fields == ("#Fields: date time s-ip s-dns c-ip c-dns cs-username cs-method cs-uri-stem cs-uri-query sc-status "
                      "sc-bytes time-taken cs-version cs(User-Agent) x-metatitle")


@pytest.mark.parametrize("request_head, method, version, user", [
    ("GET /live HTTP/1.1\r\nHost: h\r\n\r\n", "\x02", "HTTP/1.0", "-"),  # Kept: the log knows no HTTP/1.1
    ("GET /live HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n", "\x02", "ICY", "-"),
    (f"POST /live HTTP/1.0\r\nAuthorization: {basic('dj', 'x')}\r\n\r\n", "\x04", "HTTP/1.0", "dj"),
    ("PUT /live HTTP/1.0\r\n\r\n", "\x05", "HTTP/1.0", "-"),
])
def test_record_tells_method_version_and_user(start_server, request_head, method, version, user):
    record = ended_session(start_server, request=request_head)[0]
    assert (record["cs-method"], record["cs-version"], record["cs-username"], record["cs(User-Agent)"]) == \
        (method, version, user, "-")


def test_listener_log_is_off_when_its_path_has_a_zero_in_it(start_server):
    with on_air(start_server, [("W3CLogFile", "log0.log"), *mount("/live")]) as (server, _):
        listening(server).close()
        server.wait_log("> Connection Closed ")
        time.sleep(0.5)
    assert not server.path("log0.log").exists() and not server.path("quillwave-w3c.log").exists()


def test_each_track_gets_a_record_when_the_next_one_begins(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=1000) as source:
        server.wait_source()
        with Listener(server, "/live", metadata=True) as listener:
            push_until_heard(source, listener, 0)
            for turn, title in enumerate(("One", "Two"), 1):
                source.set_title(title)
                push_until_heard(source, listener, 1000 * turn)
                listener.audio_until(lambda: title in listener.titles)
                server.wait_records(turn)
        records = server.wait_records(3)
    assert [record["x-metatitle"] for record in records] == ["-", "One", "Two"]
    sizes = [int(record["sc-bytes"]) for record in records]
    assert sizes == sorted(sizes), "bytes are those of the whole connection so far"
