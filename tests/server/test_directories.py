"""Public streams are listed on directories: added, touched and removed. No directory keeps anybody from anything."""
import contextlib
import select
import socket
import time

import pytest

from harness.client import basic, fetch
from harness.directory import Directory, head
from harness.server import ADMIN, PATIENCE, mount
from harness.source import HttpSource
from harness.station import PROPERTIES, frames, listening, push_until_heard, status_of

SHORT = 2  # seconds that a directory has which will not answer; the others have plenty, for busy machines
SOON = 30  # what waits for a directory that will not answer takes that time at most twice


@pytest.fixture
def directory():
    with Directory() as one:
        yield one


def listed_on(*addresses, timeout=10, **keys):
    return [("SocketTimeout", timeout), *mount("/live", Directory=list(addresses), **keys)]


@contextlib.contextmanager
def on_air(server, headers=PROPERTIES, count=1):
    with HttpSource(server, "/live", headers=headers) as source:
        server.wait_source(count)
        source.push(frames(300))
        yield source


def listings(server):
    """The rows of the panel's list of directories."""
    answer = fetch(server.port, "/admin/stream/1/publication", headers={"Authorization": basic(*ADMIN)})
    assert answer.status == 200
    return answer.text


def wait_status(server, words):
    server.wait_until(lambda: words in listings(server), complaint=f"the list of directories never said {words!r}")


def wait_free(server):
    """Until the mount has let go of its source, and would take another."""
    server.wait_until(lambda: status_of(server) != 200, complaint="the mount stays connected")


# ---- the order on the wire ---------------------------------------------------------------------------------------------

def test_stream_is_added_touched_and_removed(start_server, directory):
    server = start_server([("Hostname", "radio.example"), *listed_on(directory.address("/yp"))])
    with on_air(server):
        added = directory.wait_call("add")
        assert added.head.first_line == "POST /yp HTTP/1.0"
        assert added.body == (f"action=add&sn=Name&listenurl=http://radio.example:{server.port}%2Flive&genre=Genre&b=128"
                              "&type=audio%2Fmpeg&url=http%3A%2F%2Fx%2F&desc=Words&stype=&a=1")
        touched = directory.wait_call("touch")
        assert touched.body.startswith("action=touch&sid=17&st=&listeners=0&max_listeners=-1&")
        wait_status(server, "touch done")
        page = listings(server)
        assert directory.address("/yp") in page and "Yes" in page
    assert directory.wait_call("remove").body == "action=remove&sid=17"
    server.wait_log("> [127.0.0.1] ACK: remove done")
    assert directory.actions() == ["add", "touch", "remove"]
    assert "No directories are available." in listings(server)


def test_touches_come_at_the_interval_that_the_directory_asks_for(start_server, directory):
    directory.frequency = 1
    server = start_server(listed_on(directory.address()))
    with on_air(server):
        directory.wait_call("touch", 3)
    directory.wait_call("remove")
    assert directory.actions().count("add") == 1


def test_every_directory_is_told(start_server, directory):
    with Directory() as other:
        server = start_server([("DefaultDirectory", other.address()), *listed_on(directory.address())])
        with on_air(server):
            directory.wait_call("touch")
            other.wait_call("touch")
        directory.wait_call("remove")
        other.wait_call("remove")


def test_stop_of_the_server_removes_what_is_listed(start_server, directory):
    server = start_server(listed_on(directory.address()))
    with on_air(server):
        directory.wait_call("touch")
        assert server.stop() == 0
    assert directory.actions() == ["add", "touch", "remove"]


def test_source_that_comes_back_is_added_again(start_server, directory):
    server = start_server(listed_on(directory.address()))
    for count in (1, 2, 3):
        with on_air(server, count=count):
            directory.wait_call("touch", count)
        directory.wait_call("remove", count)
        wait_free(server)
    assert directory.actions() == ["add", "touch", "remove"] * 3


@pytest.mark.parametrize("keys, headers", [
    ({"Public": "never"}, PROPERTIES),
    ({"Auth": "yes"}, PROPERTIES),
    ({}, {**PROPERTIES, "icy-pub": "0"}),
])
def test_stream_that_is_not_public_is_not_listed(start_server, directory, keys, headers):
    server = start_server(listed_on(directory.address(), **keys))
    with on_air(server, headers), listening_unless_asked(server, keys):
        time.sleep(1)
    assert directory.actions() == []


def listening_unless_asked(server, keys):
    return contextlib.nullcontext() if "Auth" in keys else listening(server)


def test_addresses_that_cannot_be_directories_are_left_out(start_server, directory):
    server = start_server(listed_on("https://x", "ftp://x", "http://yp.example/x:1", directory.address(),
                                    directory.address()))
    with on_air(server):
        directory.wait_call("add")
    for address in ("https://x", "ftp://x", "http://yp.example/x:1"):
        assert server.wait_log(address) == f"</live> {address} is an invalid publication address"
    server.wait_log(f"</live> {directory.address()} is already in the publication list")


# ---- the panel ---------------------------------------------------------------------------------------------------------

def change(server, key, value):
    """As somebody who edits the file and reloads it. A reload that is still reading finds the old file or the new one whole."""
    text = server.read("quillwave.conf")
    lines = [line for line in text.splitlines() if not line.startswith(f"Source{key}1=")]
    server.write("edited.conf", "\n".join([*lines, f"Source{key}1={value}", ""]))
    server.path("edited.conf").replace(server.path("quillwave.conf"))
    server.say("r\n")


def test_new_limit_is_told_by_a_new_listing(start_server, directory):
    server = start_server(listed_on(directory.address(), UserMax=10), console=True)
    with on_air(server):
        directory.wait_call("touch")
        change(server, "UserMax", 20)
        assert "&max_listeners=20&" in directory.wait_call("touch", 2).body
    directory.wait_call("remove", 2)
    assert directory.actions() == ["add", "touch", "remove"] * 2


def test_stream_that_is_public_no_more_is_removed(start_server, directory):
    server = start_server(listed_on(directory.address()), console=True)
    with on_air(server) as source, listening(server) as ear:
        directory.wait_call("touch")
        change(server, "Public", "never")
        directory.wait_call("remove")
        push_until_heard(source, ear, 300)
        change(server, "Public", "always")
        directory.wait_call("add", 2)


# ---- directories that are odd ------------------------------------------------------------------------------------------

def in_single_bytes(directory):
    def answer(connection, call):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in directory.yes(call):
            connection.sendall(bytes([byte]))
            time.sleep(0.001)
    return answer


def behind_an_interim_answer(directory):
    return lambda connection, call: connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n" + directory.yes(call))


def with_a_body(directory):
    return lambda connection, call: connection.sendall(directory.yes(call) + b"x" * 100000)


@pytest.mark.parametrize("manner", [in_single_bytes, behind_an_interim_answer, with_a_body])
def test_odd_answers_that_say_yes(start_server, directory, manner):
    directory.answer = manner(directory)
    server = start_server(listed_on(directory.address()))
    with on_air(server):
        directory.wait_call("touch")
        server.wait_log("ACK: touch done")
    directory.wait_call("remove")


def close_at_once(connection, _):
    connection.shutdown(socket.SHUT_RDWR)


def keep_silent(connection, _):
    select.select([connection], [], [], PATIENCE)


ODD = {
    "garbage": (b"\0\xff\n\n\r\n\r\nwhat?\r\n\r\n" * 10, "Error: "),
    "a huge head": (b"HTTP/1.0 200 OK\r\nYPResponse: 1\r\nX-Much: " + b"x" * 500000 + b"\r\n\r\n", "Error: Connection Failed"),
    "a redirect": (head("Location: /elsewhere", status="302 Found"), "Error: Found"),
    "an error": (head("YPResponse: 1", status="500 Broken"), "Error: Broken"),
    "half an answer": (b"HTTP/1.0 200 OK\r\nYPResponse: 1\r\n", "Error: Connection Failed"),
    "nothing": (close_at_once, "Error: Connection Failed"),
    "silence": (keep_silent, "Error: Connection Timed Out"),
    "no response": (head("SID: 1"), "Error: No YPResponse!"),
    "no": (head("YPResponse: 0", "YPMessage: <b>Go away</b>"), "&lt;b&gt;Go away&lt;/b&gt;"),
    "yes without an id": (head("YPResponse: 1", "YPMessage: Half done"), "Half done"),
}


@pytest.mark.parametrize("name", ODD)
def test_odd_answers_leave_the_stream_alone(start_server, directory, name):
    directory.answer, status = ODD[name]
    server = start_server(listed_on(directory.address(), timeout=SHORT if name == "silence" else 10))
    with on_air(server) as source, listening(server) as ear:
        directory.wait_call("add")
        wait_status(server, status)
        assert ">No<" in listings(server)
        push_until_heard(source, ear, 300)
        assert directory.actions() == ["add"]
    wait_free(server)
    with on_air(server, count=2):
        directory.wait_call("add", 2)


def test_directory_that_refuses_connections(start_server):
    with Directory() as gone:
        address = gone.address()
    server = start_server(listed_on(address))
    with on_air(server) as source, listening(server) as ear:
        server.wait_log("</live> [127.0.0.1] NAK: Connection failed")
        push_until_heard(source, ear, 300)


def test_directory_that_forgot_the_stream_is_told_again(start_server, directory):
    directory.frequency = 1

    def forget_the_first(connection, call):
        forgotten = call.action == "touch" and directory.actions().count("add") == 1
        connection.sendall(head("YPResponse: 0", "YPMessage: Who?") if forgotten else directory.yes(call))
    directory.answer = forget_the_first
    server = start_server(listed_on(directory.address()))
    with on_air(server):
        directory.wait_call("touch", 2)
        assert directory.actions()[:4] == ["add", "touch", "add", "touch"]


# ---- directories that died ---------------------------------------------------------------------------------------------

def say_yes_until_removed(directory):
    def answer(connection, call):
        if call.action == "remove":
            keep_silent(connection, call)
        else:
            connection.sendall(directory.yes(call))
    return answer


def test_server_stops_beside_a_dead_directory(start_server, directory):
    directory.answer = say_yes_until_removed(directory)
    server = start_server(listed_on(directory.address(), timeout=SHORT))
    with on_air(server):
        directory.wait_call("touch")
        start = time.monotonic()
        assert server.stop() == 0
        assert time.monotonic() - start < SOON
    assert "remove" in directory.actions()


def test_mount_is_free_again_beside_a_dead_directory(start_server, directory):
    directory.answer = say_yes_until_removed(directory)
    server = start_server(listed_on(directory.address(), timeout=SHORT))
    with on_air(server):
        directory.wait_call("touch")
    start = time.monotonic()
    server.wait_log("[127.0.0.1] NAK: Connection timed out", within=SOON)
    wait_free(server)
    with on_air(server, count=2) as source, listening(server) as ear:
        assert time.monotonic() - start < SOON
        push_until_heard(source, ear, 300)
        directory.wait_call("add", 2)


def test_settings_of_listed_mounts_hold_no_worker(start_server, directory):
    """More changes than workers, on a directory that keeps silent: pages are answered all the while."""
    directory.answer = say_yes_until_removed(directory)
    server = start_server([("ThreadPool", 3), *listed_on(directory.address(), timeout=SHORT, UserMax=10)], console=True)
    with on_air(server):
        directory.wait_call("touch")
        for limit in range(11, 17):
            change(server, "UserMax", limit)
        assert all(listings(server) for _ in range(10))
        directory.answer = directory._yes
        assert directory.wait_call("add", 2)
