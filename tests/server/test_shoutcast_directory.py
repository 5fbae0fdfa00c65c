"""Public streams are listed on the SHOUTcast directory. It keeps nobody from anything either.

The fixture `directory` comes before `start_server` in every test, and so closes after the server.
"""
import pytest

from harness.directory import (MANNERS, LocalDirectoryServer, ShoutcastDirectory, close_at_once, head, keep_silent, lines,
                               silent_when_removed)
from harness.listing import assert_source_returns, listings, on_air, wait_status
from harness.server import mount
from harness.station import listening, push_until_heard

SHORT = 2  # seconds that a directory has which will not answer; the others have plenty, for busy machines


@pytest.fixture
def directory():
    with ShoutcastDirectory() as one:
        yield one


@pytest.fixture
def start_listed(directory, start_server):
    def start(timeout=10, address=directory.HOST, **keys):
        keys = {"UserMax": 32, "Directory": address, **keys}
        return start_server([("SocketTimeout", timeout), *mount("/live", **keys)], kind=LocalDirectoryServer)
    return start


def test_stream_is_added_touched_and_removed(directory, start_listed):
    server = start_listed()
    with on_air(server):
        added = directory.wait_call("add")
        assert added.head.first_line == (f"GET /addsrv?v=1&br=128&p={server.port}&m=32&t=Name&g=Genre&url=http%3A%2F%2Fx%2F"
                                         "&content=audio%2Fmpeg&sid=1 HTTP/1.0")
        assert added.head["host"] == f"{directory.HOST}:{directory.PORT}"
        server.wait_log("<127.0.0.7> [/live] added me successfully! (id: 17 | tchfrq: 0)")
        touched = directory.wait_call("touch")
        assert touched.head.first_line == f"GET /tchsrv?id=17&sid=1&p={server.port}&li=0&alt=0&ct=&cm=0&ht=0 HTTP/1.0"
        server.wait_log("<127.0.0.7> [/live] touched! (tchfrq: 300)")
        page = listings(server)
        assert directory.HOST in page and "Yes" in page and "Touched" in page
    assert directory.wait_call("remove").head.first_line == f"GET /remsrv?id=17&p={server.port} HTTP/1.0"
    server.wait_log("<127.0.0.7> [/live] removed me!")
    assert directory.actions() == ["add", "touch", "remove"]


@pytest.mark.parametrize("address", ["http://127.0.0.7/whatever", "https://127.0.0.7:1/"])
def test_directory_is_meant_by_its_host(directory, start_listed, address):
    with on_air(start_listed(address=address)):
        directory.wait_call("add")


def test_listeners_of_a_mount_with_a_port_are_sent_there(directory, start_listed):
    with on_air(start_listed(Port=8200)):
        assert directory.wait_call("add").fields["p"] == "8200"


def test_touch_tells_who_listens(directory, start_listed):
    directory.frequency = 1
    server = start_listed()
    with on_air(server), listening(server):
        directory.wait_call("touch")
        seen = directory.actions().count("touch")
        directory.wait_call("touch", seen + 2)
        touches = [call.fields for call in directory.calls if call.action == "touch"]
        assert touches[-1]["li"] == "1"
        assert sum(int(touch["ht"]) for touch in touches) == 1


def test_stop_of_the_server_removes_what_is_listed(directory, start_listed):
    server = start_listed()
    with on_air(server):
        directory.wait_call("touch")
        assert server.stop() == 0
    assert directory.actions() == ["add", "touch", "remove"]


@pytest.mark.parametrize("keys, kind, words", [
    ({"UserMax": 0}, "audio/mpeg", "Unlimited UserMax is not supported by SHOUTcast!"),
    ({"UserMax": -1}, "audio/mpeg", "Unlimited UserMax is not supported by SHOUTcast!"),
    ({}, "audio/ogg", "audio/ogg is not supported by SHOUTcast!"),
])
def test_what_the_directory_cannot_carry_is_not_told_to_it(directory, start_listed, keys, kind, words):
    server = start_listed(**keys)
    with on_air(server, content_type=kind):
        assert server.wait_log("supported by SHOUTcast!") == f"</live> {words}"
    assert directory.actions() == []


@pytest.mark.parametrize("manner", MANNERS)
def test_odd_answers_that_say_yes(directory, start_listed, manner):
    directory.answer = manner(directory)
    server = start_listed()
    with on_air(server):
        directory.wait_call("touch")
        wait_status(server, "Touched")
    directory.wait_call("remove")


ODD = {
    "garbage": (b"\0\xff\n\n\r\n\r\nwhat?\r\n\r\n" * 10, "Error: "),
    "a huge head": (b"HTTP/1.0 200 OK\r\nX-Much: " + b"x" * 500000 + b"\r\n\r\n", "Error: Connection Failed"),
    "a huge body": (head("Content-Length: 100000000") + b"icy-response: ack\n" * 10000, "Error: No icy-response!"),
    "a redirect": (head("Location: /elsewhere", status="302 Found"), "Error: Found"),
    "an error": (head(status="500 Broken"), "Error: Broken"),
    "half a head": (b"HTTP/1.0 200 OK\r\nContent-Length: 1", "Error: Connection Failed"),
    "half a body": (head("Content-Length: 1000") + b"icy-response: nak\nicy-error: Cut off\n", "Error: Cut off"),
    "nothing": (close_at_once, "Error: Connection Failed"),
    "silence": (keep_silent, "Error: Connection Timed Out"),
    "silence behind the head": (lambda connection, call: (connection.sendall(head("Content-Length: 9")),
                                                          keep_silent(connection, call)), "Error: Connection Timed Out"),
    "a body without a length": (head() + b"icy-response: ack\nicy-id: 1\nicy-tchfrq: 1\n", "Error: No icy-response!"),
    "no": (lines(response="nak", error="<b>Go away</b>"), "Error: &lt;b&gt;Go away&lt;/b&gt;"),
    "yes without an id": (lines(response="ack"), "Added, error missing ID."),
}


@pytest.mark.parametrize("name", ODD)
def test_odd_answers_leave_the_stream_alone(directory, start_listed, name):
    directory.answer, status = ODD[name]
    server = start_listed(timeout=SHORT if "silence" in name else 10)
    with on_air(server) as source, listening(server) as ear:
        directory.wait_call("add")
        wait_status(server, status)
        assert ">No<" in listings(server)
        push_until_heard(source, ear, 300)
        assert directory.actions() == ["add"]


def test_server_stops_beside_a_dead_directory_within_one_exchange(directory, start_listed):
    directory.answer = silent_when_removed(directory)
    server = start_listed(timeout=SHORT)
    with on_air(server):
        directory.wait_call("touch")
        assert server.stop() == 0
    assert "<127.0.0.7> [/live] Error: Connection Timed Out" in server.read("quillwave.log")
    assert directory.actions() == ["add", "touch", "remove"]


def test_mount_does_not_wait_for_the_answer_to_a_removal(directory, start_listed):
    directory.answer = silent_when_removed(directory)
    server = start_listed(timeout=SHORT)
    with on_air(server):
        directory.wait_call("touch")
    directory.wait_call("remove")
    assert_source_returns(server, directory)
