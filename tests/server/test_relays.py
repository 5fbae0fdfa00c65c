"""Mounts that fetch their stream from another server, and servers that fetch theirs from this one."""
import contextlib
import hashlib
import pathlib
import shlex
import socket
import time

import pytest

from harness import media, tcp_table
from harness.application import Application
from harness.client import fetch
from harness.compare import PROBE, assert_heard
from harness.directory import close_at_once, keep_silent
from harness.icecast import Icecast
from harness.listener import Listener
from harness.operator import comes_true, reload
from harness.panel import post
from harness.programs import run_program
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource
from harness.station import FRAME, PROPERTIES, frames, listening, on_air, push_until_heard

SECONDS = 4  # of every stream that is compared
MARK = 4 + media.MP3_SIDE_INFO + 12  # up to and with the number of a frame
PCM = 44100 * 2 * 2  # bytes of a second
SETTLING = 3 * PCM // 2  # what a decoder that comes in the middle may need until it agrees with others
KINDS = ["mp3", "aac", "vorbis", "opus"]


def address(server, path="/live"):
    return f"http://{server.host}:{server.port}{path}"


def relay_of(*addresses, **keys):
    """The settings of a mount /live that relays these, and tries again soon."""
    return mount("/live", **{"DisconnectWait": 1, "Relay": list(addresses), **keys})


def relaying(start_server, *masters, **keys):
    """A server that relays, and does so by now."""
    server = start_server(relay_of(*masters, **keys))
    server.wait_log("> Relay Connected (A: ")
    return server


def hears(server, source, first, target="/live", **options):
    """Whether what the source sends from here on comes out of the server, frame by frame."""
    with Listener(server, target, **options) as listener:
        data = frames(400, first)
        source.push(data)
        heard = listener.audio_from(data[:MARK], 200 * FRAME)
        return heard == data[:len(heard)]


def send_with_ffmpeg(start_program, host, port, recording, path="/live"):
    return start_program("ffmpeg", "-v", "error", "-re", "-i", recording.path, *shlex.split(recording.sending),
                         "-content_type", recording.kind.content_type, f"icecast://source:hackme@{host}:{port}{path}")


def hear_with_curl(start_program, server, recording, place, path="/live"):
    curl = start_program("curl", "-sS", "-N", "-o", place / "heard", f"http://{server.host}:{server.port}{path}")
    return curl.wait_written(place / "heard", recording.size(SECONDS))


def assert_is_of(heard, recording, place):
    """Pages of an Ogg header come first, from the front of the stream; the rest is whole.

    Icecast puts the packets of Vorbis into pages of its own, so that is compared as it sounds.
    """
    if recording.kind.file == "vorbis.ogg":
        (place / "heard.part").write_bytes(heard)
        heard, sent = sound_of(place / "heard.part", place), sound_of(recording.sent, place)
        assert_heard(heard, sent, least=(SECONDS - 2) * PCM, skipping=SETTLING)
    else:
        assert_heard(heard, recording.sent.read_bytes(), least=len(heard) - 16 * PROBE, skipping=16 * PROBE)


def sound_of(file, place):
    run_program("ffmpeg", "-v", "quiet", "-y", "-i", file, "-f", "s16le", place / "sound")
    return (place / "sound").read_bytes()


# ---- from another Quillwave --------------------------------------------------------------------------------------------

@pytest.mark.parametrize("path", ["/live", "/"], ids=["by chunks", "by icy blocks"])
def test_relay_of_another_quillwave_is_the_same_stream(start_server, path):
    with on_air(start_server, mount("/live", IsDefault="yes")) as (master, source):
        source.push(frames(300))
        server = relaying(start_server, address(master, path))
        assert "(A: 127.0.0.1:%d/live) [T: Mpeg Object]" % server.port in server.wait_log("> Relay Connected")
        assert hears(server, source, 1000)


def test_listeners_of_a_relay_are_told_what_the_master_says(start_server):
    with on_air(start_server) as (master, source):
        source.push(frames(100))
        server = relaying(start_server, address(master))
        with Listener(server, "/live") as listener:
            assert [listener.head[name] for name in ("icy-name", "icy-genre", "icy-br", "icy-url", "content-type")] == \
                ["Name", "Genre", "128", "http://x/", "audio/mpeg"]


@pytest.mark.parametrize("path", ["/live", "/"], ids=["by chunks", "by icy blocks"])
def test_titles_come_through(start_server, path):
    master = start_server(mount("/live", IsDefault="yes"))
    with IcySource(master, metaint=10 * FRAME) as source:
        master.wait_source()
        source.push(frames(300))
        server = relaying(start_server, address(master, path))
        with Listener(server, "/live", metadata=True) as listener:
            source.set_title("Ann Other - Søng & more")
            source.push(frames(400, 1000))
            listener.audio_until(lambda: "Ann Other - Søng & more" in listener.titles)


def test_source_on_a_relay_is_greeted_and_never_heard(start_server):
    server = start_server(relay_of("http://127.0.0.1:1/live"))
    server.wait_log("Relay Connect Failed")
    with HttpSource(server, "/live") as source:
        assert source.answer.status == 200
        source.push(frames(30))
        server.wait_log("Relay Connect Failed", 1)
        assert fetch(server.port, "/live", version="HTTP/1.0").status == 503
        assert not any("Source Connected" in line for line in server.log_lines())


# ---- failures ----------------------------------------------------------------------------------------------------------

def test_master_that_dies_and_returns_is_taken_up_again(start_server):
    master = start_server(mount("/live"))
    with HttpSource(master, "/live") as source:
        master.wait_source()
        source.push(frames(300))
        server = relaying(start_server, address(master))
        listener = Listener(server, "/live")
        first = frames(100, 1000)
        source.push(first + frames(100, 1100))
        listener.audio_from(first[:MARK], FRAME)
        master.stop()
    server.wait_log("> Relay Disconnected ")
    server.wait_log("> Relay Connect Failed, Retrying in 1s (A: ")
    master.start()
    with HttpSource(master, "/live") as source:
        master.wait_source()
        source.push(frames(300, 5000))
        server.wait_log("> Relay Connected (A: ", 2)
        again = frames(300, 6000)
        source.push(again)
        assert listener.audio_from(again[:MARK], FRAME * 100) == again[:FRAME * 100]
    listener.close()


def test_master_without_a_source_is_a_failure_with_its_words(start_server):
    master = start_server(mount("/live"))
    server = start_server(relay_of(address(master)))
    assert " [Error: (401) No Source] (A: " in server.wait_log("> Relay Connect Failed, Retrying in 1s")


def test_addresses_are_tried_in_turn(start_server):
    nobody, empty = f"http://127.0.0.1:{1}/live", start_server(mount("/live"))
    with on_air(start_server, directory="master") as (master, source):
        source.push(frames(300))
        server = relaying(start_server, nobody, address(empty), address(empty, "/none"), address(master))
        failures = [line for line in server.log_lines() if "Relay Connect Failed" in line]
        assert ["(401) No Source" in failures[1], "(404) Not Found" in failures[2]] == [True, True]
        assert "Error" not in failures[0]
        assert hears(server, source, 1000)


def test_address_that_cannot_be_read_does_no_harm(start_server):
    with on_air(start_server) as (master, source):
        source.push(frames(300))
        server = relaying(start_server, "http://127.0.0.1/a:b", address(master))
        assert hears(server, source, 1000)


def test_stop_while_a_master_is_silent(start_server):
    with socket.create_server(("127.0.0.1", 0)) as silent:
        server = start_server(relay_of(f"http://127.0.0.1:{silent.getsockname()[1]}/live", DisconnectWait=1000))
        connection, _ = silent.accept()
        assert connection.recv(65536).startswith(b"GET /live HTTP/1.1\r\n")
        assert server.stop() == 0
        connection.close()


def test_relay_taken_away_by_a_reload_lets_sources_in(start_server):
    with on_air(start_server) as (master, source):
        source.push(frames(300))
        server = start_server(relay_of(address(master)), console=True)
        server.wait_log("> Relay Connected (A: ")
        text = "".join(line for line in server.read("quillwave.conf").splitlines(True) if "Relay" not in line)
        reload(server, text)
        master.stop()
    server.wait_log("> Relay Disconnected ")
    server.wait_until(lambda: not server.is_on_the_air("/live"), complaint="the relay stays connected")
    with HttpSource(server, "/live") as own:
        server.wait_source()
        own.push(frames(100))
        comes_true(server, lambda: fetch(server.port, "/live", method="HEAD", version="HTTP/1.0").status == 200)


# ---- masters that are odd ----------------------------------------------------------------------------------------------

SAYS_YES = b"HTTP/1.1 200 OK\r\nContent-Type: audio/mpeg\r\n\r\n"
SLOWLY = 0.02  # seconds


def send_slowly(data):
    def send(connection, _):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for at in range(len(data)):
            connection.sendall(data[at:at + 1])
            time.sleep(SLOWLY)
    return send


def send_for_ever(begin, data=b""):
    """Says this again and again until the caller leaves."""
    def send(connection, _):
        connection.sendall(begin)
        while True:
            connection.sendall(data)
            time.sleep(SLOWLY)
    return send


ODD_STREAMS = {
    "in single bytes": send_slowly(SAYS_YES),
    "interim answers first": b"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n" + SAYS_YES,
    "bare line feeds": SAYS_YES.replace(b"\r\n", b"\n"),
    "another protocol's word": SAYS_YES.replace(b"HTTP/1.1", b"ICY"),
}

# The line that the event log has of it, behind the time until the next try.
ODD_REFUSALS = {
    "a redirect": (b"HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\n\r\n", " [Error: (302) Found] (A: "),
    "an error without end": (send_for_ever(b"HTTP/1.1 404 Not Found\r\n\r\n", b"x" * 1000), " [Error: (404) Not Found] (A: "),
    "no reason": (b"HTTP/1.1 200\r\n\r\n", " (A: "),
    "garbage": (b"\0\xff\n\n\r\n\r\nwhat?\r\n\r\n" * 10, " (A: "),
    "a huge head": (SAYS_YES[:-2] + b"X-Much: " + b"x" * 500000 + b"\r\n\r\n", " (A: "),
    "a head without end": (send_for_ever(SAYS_YES[:-2], b"x"), " (A: "),
    "interim answers without end": (send_for_ever(b"", b"HTTP/1.1 102 Processing\r\n\r\n"), " (A: "),
    "half a head": (SAYS_YES[:-2], " (A: "),
    "nothing": (close_at_once, " (A: "),
    "silence": (keep_silent, " (A: "),
}


@pytest.mark.parametrize("answer", ODD_STREAMS.values(), ids=ODD_STREAMS)
def test_odd_master_is_understood(start_server, answer):
    with Application(answer) as master:
        server = start_server([("SocketTimeout", PATIENCE), *relay_of(master.address())])
        server.wait_log("> Relay Connected (A: ")
        assert not any("Relay Connect Failed" in line for line in server.log_lines())


@pytest.mark.parametrize("answer, words", ODD_REFUSALS.values(), ids=ODD_REFUSALS)
def test_odd_master_is_left_for_the_next(start_server, answer, words):
    with Application(answer) as odd, Application(send_for_ever(SAYS_YES, frames(30))) as master:
        server = start_server([("SocketTimeout", 2), *relay_of(odd.address(), master.address())])
        assert "> Relay Connect Failed, Retrying in 1s" + words in server.wait_log("Relay Connect Failed")
        server.wait_log("> Relay Connected (A: ")
        with listening(server) as ear:
            assert media.NUMBER.search(ear.audio(10 * FRAME))


# ---- the end of a mount, at each instant of its exchange ---------------------------------------------------------------

@contextlib.contextmanager
def full_server():
    """(its address, whether it is being called): connections to it are never made."""
    with contextlib.ExitStack() as sockets:
        full = sockets.enter_context(socket.create_server(("127.0.0.1", 0), backlog=0))
        for _ in range(2):
            waiting = sockets.enter_context(socket.socket())
            waiting.setblocking(False)
            waiting.connect_ex(full.getsockname())
        port = full.getsockname()[1]
        before = calls_under_way(port)
        yield f"http://127.0.0.1:{port}/", lambda _: calls_under_way(port) > before


def calls_under_way(port):
    """How many wait for a connection to this port."""
    return sum(entry.peer_port == port and entry.state == tcp_table.SYN_SENT for entry in tcp_table.entries())


@contextlib.contextmanager
def master_that(answer, *log):
    """(its address, whether the exchange has come so far): called, and as far as the event log says."""
    with Application(answer) as master:
        def has_come(server):
            return master.calls and all(any(words in line for line in server.log_lines()) for words in log)
        yield master.address(), has_come


def then_silence(data):
    def answer(connection, _):
        connection.sendall(data)
        keep_silent(connection, None)
    return answer


INSTANTS = {
    "connecting": full_server,
    "silent": lambda: master_that(keep_silent),
    "in the head": lambda: master_that(then_silence(SAYS_YES[:-2])),
    "before the stream": lambda: master_that(then_silence(SAYS_YES), "> Relay Connected (A: "),
    "in the stream": lambda: master_that(then_silence(SAYS_YES + frames(60)), "> Relay Connected (A: "),
    "resting": lambda: master_that(b"HTTP/1.1 404 Not Found\r\n\r\n", "> Relay Connect Failed"),
}


def act(server, action, *paths):
    assert post(server, "/admin", {"action": action, **{path: "on" for path in paths}}).status == 200


def end_by_panel(action):
    def end(server):
        act(server, action, "/live")
        server.wait_log("Closing Mount /live down")
    return end


@pytest.mark.parametrize("end", [end_by_panel("Delete"), end_by_panel("Disable"), lambda server: None],
                         ids=["delete", "disable", "stop"])
@pytest.mark.parametrize("instant", INSTANTS.values(), ids=INSTANTS)
def test_end_at_each_instant(start_server, instant, end):
    """Nothing ends by itself here, so that whoever waits for an end of the exchange waits in vain."""
    with instant() as (address_of_master, has_come):
        server = start_server([("SocketTimeout", 1000), *relay_of(address_of_master, DisconnectWait=1000)])
        server.wait_until(lambda: has_come(server), complaint="the exchange has not come so far")
        end(server)
        assert server.stop() == 0


@pytest.mark.parametrize("answer", [keep_silent, then_silence(SAYS_YES[:-2]), then_silence(SAYS_YES + frames(60)),
                                    b"HTTP/1.1 404 Not Found\r\n\r\n"], ids=["silent", "in the head", "in the stream", "resting"])
def test_kick_makes_it_call_again(start_server, answer):
    with Application(answer) as master:
        server = start_server([("SocketTimeout", 1000), *relay_of(master.address(), DisconnectWait=1000)])
        for count in range(1, 5):
            server.wait_until(lambda: len(master.calls) == count, complaint="the master is not called")
            act(server, "Kick", "/live")


# ---- chains and many ---------------------------------------------------------------------------------------------------

@pytest.mark.waits(60)
def test_chain_of_three_plays_the_same_bytes(start_server):
    """What comes out behind three servers, at the pace at which it plays, are the bytes that went in."""
    seconds = 60
    with on_air(start_server, directory="first") as (first, source):
        source.push(frames(300))
        second = relaying(start_server, address(first))
        third = relaying(start_server, address(second))
        with Listener(third, "/live") as listener:
            stretch = frames(seconds * 38, 10000)
            begun, heard = time.monotonic(), b""
            for past in range(seconds):
                source.push(stretch[past * 38 * FRAME:(past + 1) * 38 * FRAME])
                heard += listener.audio_for(begun + past + 1 - time.monotonic())
            source.push(frames(300, 20000))  # which the readers' buffers keep
            heard += listener.audio_through(frames(1, 20000)[:MARK])
            heard = heard[heard.index(stretch[:MARK]):][:len(stretch)]
            assert hashlib.sha256(heard).hexdigest() == hashlib.sha256(stretch).hexdigest()


def test_fifty_relays_at_once(start_server):
    count = 50
    with on_air(start_server, directory="first") as (master, source):
        source.push(frames(300))
        settings = [pair for index in range(1, count + 1)
                    for pair in mount(f"/live{index}", index, Relay=address(master), DisconnectWait=1)]
        server = start_server(settings)
        server.wait_until(
            lambda: sum("> Relay Connected" in line for line in server.log_lines()) >= count, complaint="some are missing")
        listeners = [Listener(server, f"/live{index}") for index in range(1, count + 1)]
        stretch = frames(300, 5000)
        source.push(stretch)
        for listener in listeners:
            assert listener.audio_from(stretch[:MARK], FRAME * 50) == stretch[:FRAME * 50]
            listener.close()


def test_fifty_relays_of_silent_masters_disturb_nobody(start_server):
    paths = [f"/relay{index}" for index in range(2, 52)]
    with Application(keep_silent) as silent:
        settings = [pair for index, path in enumerate(paths, 2) for pair in mount(path, index, Relay=silent.address())]
        server = start_server([("SocketTimeout", 1000), *mount("/live"), *settings])
        server.wait_until(lambda: len(silent.calls) == len(paths), complaint="some are not called")
        with HttpSource(server, "/live") as source:
            server.wait_source()
            source.push(frames(300))
            with listening(server) as ear:
                push_until_heard(source, ear, 1000)
            act(server, "Delete", *paths)
            server.wait_until(lambda: server.read("quillwave.log").count("Closing Mount /relay") == len(paths),
                              complaint="some go on")
            with listening(server) as ear:
                push_until_heard(source, ear, 2000)


# ---- Icecast -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("kind", KINDS)
def test_relay_of_icecast(start_server, start_program, recordings, tmp_path, kind):
    recording = recordings[kind]
    master = Icecast(start_program, tmp_path / "icecast").start()
    send_with_ffmpeg(start_program, master.host, master.port, recording)
    server = relaying(start_server, master.address("/live"))
    assert_is_of(hear_with_curl(start_program, server, recording, tmp_path), recording, tmp_path)


@pytest.mark.parametrize("kind", KINDS)
def test_icecast_relays_this_server(start_server, start_program, recordings, tmp_path, kind):
    recording = recordings[kind]
    server = start_server(mount("/live"))
    send_with_ffmpeg(start_program, server.host, server.port, recording)
    server.wait_source()
    slave = Icecast(start_program, tmp_path / "icecast", relays=[(server.port, "/live")]).start()
    server.wait_log("Connection Opened")
    slave.program.wait_until(lambda: plays(slave), "the stream is not there")
    assert_is_of(hear_with_curl(start_program, slave, recording, tmp_path), recording, tmp_path)


def plays(server):
    with Listener(server, "/live") as listener:
        return listener.head.status == 200


def test_titles_of_icecast_come_through(start_server, start_program, tmp_path):
    master = Icecast(start_program, tmp_path / "icecast").start()
    with HttpSource(master, "/live", headers=PROPERTIES, version="HTTP/1.0") as source:
        source.push(frames(300))
        server = relaying(start_server, master.address("/live"))
        with Listener(server, "/live", metadata=True) as listener:
            answer = fetch(master.port, "/admin/metadata?mount=/live&mode=updinfo&song=Some+One+-+Thing",
                           user=("admin", "hackme"))
            assert answer.status == 200, answer.text
            source.push(frames(2000, 1000))
            listener.audio_until(lambda: "Some One - Thing" in listener.titles)


def test_icecast_gets_the_titles_of_this_server(start_server, start_program, tmp_path):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=10 * FRAME) as source:
        server.wait_source()
        source.push(frames(300))
        slave = Icecast(start_program, tmp_path / "icecast", relays=[(server.port, "/live")], metadata=True).start()
        server.wait_log("Connection Opened")
        source.set_title("Some One - Thing")
        source.push(frames(300, 1000))
        with Listener(slave, "/live", metadata=True) as listener:
            source.push(frames(1000, 2000))
            listener.audio_until(lambda: "Some One - Thing" in listener.titles)
