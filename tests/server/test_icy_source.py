"""Encoders that log in with a line "user:password", are told "OK2", and send a header block and then the stream."""
import time

import pytest

from harness import media
from harness.accounts import EVERY_MOUNT, account, ban, user_file
from harness.client import Connection, fetch
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource

ACCEPTED = b"OK2\r\nicy-caps:11\r\n\r\n"
REFUSED = b"bad password\r\n"
HEADERS = "icy-name:Test\r\ncontent-type:audio/mpeg\r\n\r\n"


def assert_refused(server, line, **place):
    with Connection(server.source_port, **place) as connection:
        connection.send(line)
        assert connection.receive_all() == REFUSED


def assert_accepted(server, line, **place):
    with Connection(place.pop("port", server.source_port), **place) as connection:
        connection.send(line)
        assert connection.receive(len(ACCEPTED)) == ACCEPTED


# ---- the login -------------------------------------------------------------------------------------------------------

def test_welcome_is_ok2_and_nothing_more_before_the_header_block(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        connection.send("source:hackme\r\n")
        assert connection.receive(len(ACCEPTED)) == ACCEPTED
        assert connection.receive_for(1) == b""
    server.wait_log("<127.0.0.1> Incoming ICY Source")


@pytest.mark.parametrize("port", ["port", "source_port"])
def test_every_port_takes_a_login(start_server, port):
    server = start_server(mount("/live"))
    assert_accepted(server, "source:hackme\r\n", port=getattr(server, port))


@pytest.mark.parametrize("line", ["source:hackme\n", "source:hackme\t\r\n", "source:hackme:more\r\n"])
def test_login_line_is_trimmed_and_only_its_first_two_parts_count(start_server, line):
    server = start_server(mount("/live"))
    assert_accepted(server, line)


def test_login_may_come_byte_by_byte(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        for byte in "source:hackme\r\n":
            connection.send(byte)
            time.sleep(0.02)
        assert connection.receive(len(ACCEPTED)) == ACCEPTED


@pytest.mark.parametrize("line, fault", [
    ("hackme", "ICY Source lacks a username."),
    ("nobody:hackme", "ICY Source unknown user nobody"),
    (":hackme", "ICY Source unknown user "),
    (":", "ICY Source unknown user "),
    ("source:wrong", "ICY Source bad password for user source"),
    ("source:", "ICY Source bad password for user source"),
    ("listener:hackme", "ICY Source user listener is not a Source user"),
    ("statistics:hackme", "ICY Source user statistics is not a Source user"),
    ("rootless:hackme", "ICY Source user rootless is not a Source user"),
])
def test_refused_logins_hear_the_same_and_the_log_tells_them_apart(start_server, line, fault):
    server = start_server(mount("/live"), users=user_file(
        account("listener", "hackme", "Listener", [1]), account("statistics", "hackme", "Statistics"),
        account("rootless", "hackme", "Administrator", [])))
    assert_refused(server, line + "\r\n")
    server.wait_log("ICY Source", 2)
    assert [text for text in server.log_lines() if "ICY Source" in text] == \
        ["<127.0.0.1> Incoming ICY Source", "<127.0.0.1> " + fault]


def test_password_poke_of_encoders_is_refused(start_server):
    server = start_server(mount("/live"))
    assert_refused(server, "!POKE\nicy-name:Test\n\n")


def test_two_words_in_the_login_line_are_no_login(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        connection.send("source:hack me\r\n")
        assert connection.receive_all() == b""


def test_mount_with_an_address_of_its_own_takes_its_source_there_only(start_server):
    server = start_server([("ServIP", ["127.0.0.1", "127.0.0.2"]), *mount("/live", IP="127.0.0.2")])
    server.wait_log("Server Bound 4 sockets")
    assert_refused(server, "source:hackme\r\n", host="127.0.0.1")
    server.wait_log("<127.0.0.1> ICY Source user source connected to wrong IP")
    assert_accepted(server, "source:hackme\r\n", host="127.0.0.2")


@pytest.mark.parametrize("mounts, address", [([2], "/two"), ([1, 2], "/one"), ([EVERY_MOUNT], "/one")])
def test_account_sends_to_the_first_of_its_mounts(start_server, mounts, address):
    server = start_server([*mount("/one", 1), *mount("/two", 2)], users=user_file(
        account("dj", "secret", "Mount Source", mounts)))
    with IcySource(server, media.mp3_frames(), user="dj", password="secret", pace=4):
        server.wait_source()
        with Listener(server, address) as listener:
            assert listener.head.status == 200
            assert listener.audio(4)[:2] == b"\xff\xfb"


def test_ban_does_not_bar_a_login_line(start_server):
    server = start_server(mount("/live"), users=user_file(banned=ban("127.0.0.1")))
    assert fetch(server.port, "/live").status == 403
    assert_accepted(server, "source:hackme\r\n")


# ---- the header block ------------------------------------------------------------------------------------------------

def test_log_names_peer_address_and_type_of_the_source(start_server):
    server = start_server(mount("/live"))
    with IcySource(server):
        line = server.wait_source()
        assert line == f"<127.0.0.1> Source Connected (A: 127.0.0.1:{server.source_port}) [T: Mpeg Object]"


def test_login_headers_and_stream_in_one_packet_lose_no_byte(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.mp3_frames(100))
    with Connection(server.source_port) as connection:
        connection.send(b"source:hackme\r\n" + HEADERS.encode() + stream)
        assert connection.receive(len(ACCEPTED)) == ACCEPTED
        server.wait_source()
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


def test_line_feeds_alone_and_no_content_type_are_enough(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.plain_blocks(40, length=500))
    with Connection(server.source_port) as connection:
        connection.send(b"source:hackme\nicy-name:Plain\nicy-genre:Any\n\n" + stream)
        assert connection.receive(len(ACCEPTED)) == ACCEPTED
        assert server.wait_source().endswith(" [T: Generic Object ()]")
        with Listener(server, "/live") as listener:
            assert listener.head["icy-name"] == "Plain"
            assert listener.audio(16000) == stream[:16000]


def test_header_block_may_come_byte_by_byte(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        connection.send("source:hackme\r\n")
        connection.receive(len(ACCEPTED))
        for byte in HEADERS:
            connection.send(byte)
            time.sleep(0.005)
        server.wait_source()


def test_connection_object_of_a_source_leaves_by_its_line(start_server):
    server = start_server(mount("/live"))
    with IcySource(server):
        server.wait_source()
        server.wait_log("Somethings wrong here")


def test_source_that_sends_no_header_block_is_ended_after_fifteen_seconds(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        connected = time.monotonic()
        connection.send("source:hackme\r\n")
        assert connection.receive_all(15 + PATIENCE) == ACCEPTED
        assert time.monotonic() - connected > 14


def test_source_that_leaves_before_its_header_block_harms_nobody(start_server):
    server = start_server(mount("/live"))
    with Connection(server.source_port) as connection:
        connection.send("source:hackme\r\nicy-name:x\r\n")
        connection.receive(len(ACCEPTED))
    server.wait_log("<127.0.0.1> Receiver disconnected during recv check with empty buffer")
    with IcySource(server):
        server.wait_source()


# ---- a busy mount ----------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("first_by", [IcySource, lambda server: HttpSource(server, "/live")])
def test_second_source_is_welcomed_never_heard_and_cut_when_the_first_ends(start_server, first_by):
    server = start_server(mount("/live"))
    with first_by(server) as first:
        server.wait_source()
        with IcySource(server) as second:
            second.push(media.join(media.mp3_frames(60, first=900)))
            with Listener(server, "/live") as listener:
                first.push(media.join(media.mp3_frames(60)))
                heard = media.numbers_in(listener.audio(15000))
                assert heard and max(heard) < 60
                first.stop()
                server.wait_log("> Source Disconnected Gracefully (A: ")
                assert second.connection.ends_within(PATIENCE)
    assert len([line for line in server.log_lines() if "> Source Connected" in line]) == 1
