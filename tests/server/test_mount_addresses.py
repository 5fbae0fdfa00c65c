"""Where a mount is found: default mounts, numbers, ports and addresses of its own, fallbacks."""
import contextlib

import pytest

from harness import media
from harness.client import Connection, fetch
from harness.listener import Listener
from harness.server import mount
from harness.source import HttpSource
from harness.station import FRAME, frames, listening, on_air, push_until_heard, status_of

# ---- addresses -------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("target", ["/;", "/;stream.nsv", "/;?a=b", "/anything/;x", "/stream/1", "/live"])
def test_default_mount_has_further_addresses(start_server, target):
    with on_air(start_server, mount("/live", IsDefault="yes")) as (server, source):
        source.push(frames(60))
        with Listener(server, target) as listener:
            assert listener.head.status == 200
            assert listener.audio(FRAME) == media.mp3_frame(0)


def test_root_without_a_default_mount_is_no_stream(start_server):
    with on_air(start_server) as (server, _):
        assert fetch(server.port, "/;").head.first_line == "ICY 404 Not Found"
        assert status_of(server, "/stream/1") == 200
        assert status_of(server, "/stream/2") == 404


def names_at(server, port, host="127.0.0.1"):
    """The name of the stream that a SHOUTcast player hears at this address."""
    with Connection(port, host) as connection:
        connection.send("GET /;stream HTTP/1.0\r\n\r\n")
        return connection.receive_head().get("icy-name")


def test_mount_with_a_port_of_its_own_is_what_plays_there(start_server):
    def settings(server):
        return [*mount("/any", 1, IsDefault="yes"), *mount("/own", 2, User="own", Port=server.source_port)]
    server = start_server(settings)
    with HttpSource(server, "/any", headers={"icy-name": "any"}), \
            HttpSource(server, "/own", user="own", headers={"icy-name": "own"}):
        server.wait_source(2)
        assert names_at(server, server.port) == "any"
        assert names_at(server, server.source_port) == "own"
        with Listener(server, "/any", port=server.source_port) as listener:
            assert listener.head["icy-name"] == "any"


def test_mount_with_an_address_of_its_own_is_what_plays_there(start_server):
    def settings(server):
        return [("ServIP", ["127.0.0.1", "127.0.0.2"]), *mount("/any", 1, IsDefault="yes"),
                *mount("/both", 2, User="both", IP="127.0.0.2", Port=server.port),
                *mount("/own", 3, User="own", IP="127.0.0.2")]
    server = start_server(settings)
    with contextlib.ExitStack() as stack:
        for name, user in (("any", "source"), ("both", "both"), ("own", "own")):
            stack.enter_context(HttpSource(server, f"/{name}", user=user, headers={"icy-name": name}))
        server.wait_source(3)
        assert names_at(server, server.port) == "any"
        assert names_at(server, server.port, "127.0.0.2") == "both"
        assert names_at(server, server.source_port, "127.0.0.2") == "own"


@pytest.mark.parametrize("address, complaint", [
    ("", "Configuration Error: Mount with no SourceMount2 definition.  Please define SourceMount2."),
    ("more", "Configuration Error: SourceMount2 must start with /."),
    ("/", "Configuration Error: Definition of / or /;* as SourceMounts are illegal, use SourceIsDefault2=Yes instead."),
    ("/;x", "Configuration Error: Definition of / or /;* as SourceMounts are illegal, use SourceIsDefault2=Yes instead."),
    ("/live", "Mount /live already defined, discarding additional duplicates."),
    (["/two", "/three"], "Warning: Source 2 has multiple SourceMount2 definitions.  Only one definition can be used.  "
                         "Using SourceMount2=/two."),
])
def test_mount_with_an_impossible_address_is_left_out(start_server, address, complaint):
    server = start_server([*mount("/live"), ("SourceMount2", address), *mount("/last", 3, User="last")])
    server.wait_log(complaint)
    assert [fetch(server.port, target).status for target in ("/live", "/last")] == [503, 503]
    assert fetch(server.port, "/three").status == 404
    assert server.thread_names().count("/live") == 1


# ---- fallbacks -------------------------------------------------------------------------------------------------------

TWO = [*mount("/live", 1, Backup="/spare"), *mount("/spare", 2, User="spare", Backup="/live")]


def test_listener_goes_to_and_fro_between_two_mounts_that_back_each_other_up(start_server):
    server = start_server(TWO)
    with contextlib.ExitStack() as stack:
        live_source = stack.enter_context(HttpSource(server, "/live"))
        spare = stack.enter_context(HttpSource(server, "/spare", user="spare"))
        server.wait_source(2)
        listener = stack.enter_context(Listener(server, "/live"))
        push_until_heard(live_source, listener, 0)
        live_source.stop()
        server.wait_source_gone()
        push_until_heard(spare, listener, 1000)
        live_source = stack.enter_context(HttpSource(server, "/live"))
        server.wait_source(3)
        push_until_heard(live_source, listener, 2000)
        spare.stop()
        server.wait_source_gone(2, "/spare")
        push_until_heard(live_source, listener, 3000)


def test_move_to_the_fallback_brings_its_burst_once(start_server):
    server = start_server(TWO)
    with HttpSource(server, "/live") as source, HttpSource(server, "/spare", user="spare") as spare:
        server.wait_source(2)
        with Listener(server, "/spare") as watcher, Listener(server, "/live") as listener:
            spare.push(frames(100, 1000))
            watcher.audio_from(frames(2, 1000), FRAME)
            push_until_heard(source, listener, 0)
            source.stop()
            spare.push(frames(60, 1100))
            heard = media.numbers_in(listener.audio_from(media.mp3_frame(1000), 120 * FRAME))
    assert heard == list(range(1000, 1120))


def test_listener_on_the_fallback_counts_on_the_mount_that_it_asked_for(start_server):
    server = start_server([*mount("/live", 1, Backup="/spare", UserMax=1), *mount("/spare", 2, User="spare", UserMax=0)])
    with HttpSource(server, "/spare", user="spare"):
        server.wait_source()
        with listening(server):
            assert status_of(server) == 451
            server.wait_log("<127.0.0.1> /live Full [U: Anonymous]")
        server.wait_log("> Connection Closed ")
    assert not any("that is not registered" in line for line in server.log_lines())


def test_head_through_a_fallback_leaves_nothing_behind(start_server):
    server = start_server([*mount("/live", 1, Backup="/spare"), *mount("/spare", 2, User="spare")])
    with HttpSource(server, "/spare", user="spare"), Connection(server.port) as connection:
        server.wait_source()
        for turn in (1, 2):
            connection.send("HEAD /live HTTP/1.1\r\nHost: h\r\n\r\n")
            assert connection.receive_head().status == 200
            server.wait_log("> Connection Closed ", turn)
        connection.close()
        server.wait_log("Receiver disconnected during recv check")
    assert not any("that is not registered" in line for line in server.log_lines())


def test_mount_that_backs_itself_up_keeps_its_listeners_waiting(start_server):
    with on_air(start_server, mount("/live", Backup="/live")) as (server, source):
        with Listener(server, "/live") as listener:
            push_until_heard(source, listener, 0)
            source.stop()
            server.wait_source_gone()
            with HttpSource(server, "/live") as again:
                server.wait_source(2)
                push_until_heard(again, listener, 1000)
