"""Names behind the addresses of listeners, and the file that tells the types of files."""
import shutil
import socket

from harness import media
from harness.listener import Listener
from harness.panel import page, post, rows_of, settings_of
from harness.server import ROOT, mount
from harness.source import HttpSource
from harness.station import listening, on_air, push_until_heard

NAME = socket.gethostbyaddr("127.0.0.1")[0]
LIVE = mount("/live")
SETTINGS = "/admin/configure"
STARTED, STOPPED = "Name Lookup Thread started.", "Name Lookup Thread stopped."
THREAD = "NameLookup Proc"  # as much of "NameLookup Process" as the kernel takes


# ---- names -----------------------------------------------------------------------------------------------------------

def switch(server, value):
    """Changes the setting on the panel."""
    box, _ = settings_of(page(server, SETTINGS))["NameLookups"]
    post(server, SETTINGS, {"action": "Save", box: value})


def names(server):
    """The first cells of the page of listeners that name one."""
    return [cell for row in rows_of(page(server, "/admin/listeners")) for cell in row if cell in (NAME, "127.0.0.1")]


def wait_names(server, *expected):
    server.wait_until(lambda: sorted(names(server)) == sorted(expected), complaint=f"the listeners are not {expected}")


def test_listeners_are_shown_and_logged_by_name(start_server):
    with on_air(start_server, [("NameLookups", "yes"), *LIVE]) as (server, _):
        server.wait_log(STARTED)
        assert THREAD in server.thread_names()
        listener = listening(server)
        wait_names(server, NAME)
        listener.close()
        record = server.wait_records(1)[-1]
    assert (record["c-ip"], record["c-dns"]) == ("127.0.0.1", NAME)
    server.stop()
    lines = server.log_lines()
    assert lines.count(STARTED) == lines.count(STOPPED) == 1


def test_without_the_setting_listeners_keep_their_addresses(start_server):
    with on_air(start_server) as (server, source):
        assert THREAD not in server.thread_names()
        with listening(server) as listener:
            push_until_heard(source, listener, 0)
            assert names(server) == ["127.0.0.1"]
        assert server.wait_records(1)[-1]["c-dns"] == "127.0.0.1"
    assert STARTED not in server.log_lines()


def test_lookups_begin_when_they_are_switched_on(start_server):
    with on_air(start_server) as (server, _), listening(server):
        switch(server, "yes")
        server.wait_log(STARTED)
        with listening(server):
            wait_names(server, "127.0.0.1", NAME)  # who came before keeps the address


# Kept: what was switched off stays off until the next start.
def test_lookups_that_were_switched_off_stay_off(start_server):
    with on_air(start_server, [("NameLookups", "yes"), *LIVE]) as (server, source):
        server.wait_log(STARTED)
        switch(server, "no")
        assert STOPPED in server.log_lines() or server.wait_log(STOPPED)
        switch(server, "yes")
        with listening(server) as listener:
            push_until_heard(source, listener, 0)
            assert names(server) == ["127.0.0.1"]
            post(server, "/admin/listeners", {"action": "Kick", **ticks(server)})
            listener.receive_all()  # it ends, although nobody takes it out of the queue
    assert server.log_lines().count(STARTED) == 1


def ticks(server):
    """All boxes of the page of listeners, ticked."""
    markup = page(server, "/admin/listeners").text
    return {piece.split('"', 1)[0]: "on" for piece in markup.split('id="select_check" name="')[1:]}


# ---- types -----------------------------------------------------------------------------------------------------------

JUNK = b"no frame begins in here, and plain bytes keep all of it"
INTRO = media.join(media.mp3_frames(20, first=5000))


def intro_heard(start_server, name, types=None, *more):
    """(what a listener hears first, the server), with an intro file of this name."""
    def settings(server):
        server.path(name).write_bytes(JUNK + INTRO)
        if types:
            server.write("mime.types", types)
        return [*mount("/live", Intro=name), *more]
    server = start_server(settings)
    with HttpSource(server, "/live", media.mp3_frames()):
        server.wait_source()
        with Listener(server, "/live") as listener:
            return listener.audio(2000), server


def test_intro_is_cut_into_frames_by_its_type(start_server):
    heard, server = intro_heard(start_server, "intro.MP3", "# types\naudio/mpeg\tmp2 mp3\n")
    assert heard == INTRO[:2000]
    assert "Mime Types loaded from mime.types" in server.log_lines()


def test_without_types_an_intro_is_plain_bytes(start_server):
    heard, server = intro_heard(start_server, "intro.mp3")
    assert heard == (JUNK + INTRO)[:2000]
    assert "WARNING: MimeFile: mime.types could not be loaded" in server.log_lines()


def test_zero_leaves_the_types_away_without_a_warning(start_server):
    heard, server = intro_heard(start_server, "intro.mp3", "audio/mpeg mp3\n", ("MimeFile", "0"))
    assert heard == (JUNK + INTRO)[:2000]
    assert not any("Mime" in line for line in server.log_lines())


def test_types_that_come_with_the_server_know_the_streams(start_server):
    def settings(server):
        shutil.copy(ROOT / "mime.types", server.path("own.types"))
        server.path("intro.mp3").write_bytes(JUNK + INTRO)
        server.path("intro.aac").write_bytes(JUNK + media.join(media.adts_frames(20, first=6000)))
        server.path("intro.ogg").write_bytes(JUNK + media.join(media.ogg_stream(media.vorbis_headers(7), media.ogg_data_pages(7, 5))))
        return [("MimeFile", "own.types"), *mount("/mp3", 1, Intro="intro.mp3"), *mount("/aac", 2, Intro="intro.aac", User="b"),
                *mount("/ogg", 3, Intro="intro.ogg", User="c")]
    server = start_server(settings)
    assert "Mime Types loaded from own.types" in server.log_lines()
    sources = {"/mp3": "source", "/aac": "b", "/ogg": "c"}
    begins = {"/mp3": INTRO[:400], "/aac": media.adts_frame(6000), "/ogg": b"OggS"}
    for count, (address, user) in enumerate(sources.items(), 1):
        with HttpSource(server, address, media.mp3_frames(), user=user):
            server.wait_source(count)
            with Listener(server, address) as listener:
                assert listener.audio(len(begins[address])) == begins[address], address
