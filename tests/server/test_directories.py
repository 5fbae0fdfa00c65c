"""Public streams are listed on directories: added, touched and removed. No directory keeps anybody from anything."""
import contextlib
import threading
import time

import pytest

from harness.directory import MANNERS, Directory, close_at_once, head, keep_silent, silent_when_removed
from harness.listing import assert_source_returns, listings, on_air, wait_status
from harness.panel import post
from harness.server import mount
from harness.station import PROPERTIES, listening, push_until_heard, status_of

LONG = 60
SHORT = 2  # seconds that a directory has which will not answer; the others have plenty, for busy machines


@pytest.fixture
def directory():
    with Directory() as one:
        yield one


def listed_on(*addresses, timeout=10, **keys):
    return [("SocketTimeout", timeout), *mount("/live", Directory=list(addresses), **keys)]


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
        server.wait_source_gone(count)
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

@pytest.mark.parametrize("manner", MANNERS)
def test_odd_answers_that_say_yes(start_server, directory, manner):
    directory.answer = manner(directory)
    server = start_server(listed_on(directory.address()))
    with on_air(server):
        directory.wait_call("touch")
        server.wait_log("ACK: touch done")
    directory.wait_call("remove")


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
    server.wait_source_gone()
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

def test_server_stops_beside_a_dead_directory_within_one_exchange(start_server, directory):
    directory.answer = silent_when_removed(directory)
    server = start_server(listed_on(directory.address(), timeout=SHORT))
    with on_air(server):
        directory.wait_call("touch")
        assert server.stop() == 0
    assert "[127.0.0.1] NAK: Connection timed out" in server.read("quillwave.log")
    assert directory.actions() == ["add", "touch", "remove"]


def test_mount_is_free_again_beside_a_dead_directory(start_server, directory):
    directory.answer = silent_when_removed(directory)
    server = start_server(listed_on(directory.address(), timeout=SHORT))
    with on_air(server):
        directory.wait_call("touch")
    server.wait_log("[127.0.0.1] NAK: Connection timed out")
    assert_source_returns(server, directory)


def test_source_that_comes_back_does_not_wait_for_a_dead_directory(start_server, directory):
    woken = threading.Event()
    directory.answer = silent_when_removed(directory, woken)
    server = start_server(listed_on(directory.address(), timeout=LONG))
    with on_air(server):
        directory.wait_call("touch")
    directory.wait_call("remove")
    with on_air(server, count=2) as source, listening(server) as ear:
        push_until_heard(source, ear, 300)
        assert directory.actions() == ["add", "touch", "remove"]
        woken.set()
        directory.wait_call("touch", 2)
    directory.wait_call("remove", 2)
    assert directory.actions() == ["add", "touch", "remove"] * 2


def test_mount_is_deleted_beside_a_dead_directory(start_server, directory):
    directory.answer = silent_when_removed(directory)
    server = start_server(listed_on(directory.address(), timeout=SHORT))
    with on_air(server):
        directory.wait_call("touch")
        post(server, "/admin", {"/live": "on", "action": "Delete"})
        assert status_of(server) == 404
        assert "timed out" not in server.read("quillwave.log")


def test_settings_of_listed_mounts_hold_no_worker(start_server, directory):
    """More changes than workers, on a directory that keeps silent: pages are answered all the while."""
    directory.answer = silent_when_removed(directory)
    server = start_server([("ThreadPool", 3), *listed_on(directory.address(), timeout=SHORT, UserMax=10)], console=True)
    with on_air(server):
        directory.wait_call("touch")
        for limit in range(11, 17):
            change(server, "UserMax", limit)
        assert all(listings(server) for _ in range(10))
        directory.answer = directory._yes
        assert directory.wait_call("add", 2)
