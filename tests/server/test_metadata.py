"""Titles: how they come in with a stream, and how each kind of listener gets them."""
import contextlib

import pytest

from harness import icy, media
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource

CHUNKS = {"Accept-Encoding": "chunked"}


def frames(count, first=0):
    return media.join(media.mp3_frames(count, first))


class Station:
    """A server with one mount, an ICY source on it that announces titles, and a listener that has joined."""

    def __init__(self, server, stack, metaint=2048, **listener):
        self.server = server
        self.source = stack.enter_context(IcySource(server, metaint=metaint))
        server.wait_source()
        self.next = 0
        self.send(60)
        self.listener = stack.enter_context(Listener(server, "/live", **listener))
        self.listener.audio(5000)

    def send(self, count):
        self.source.push(frames(count, self.next))
        self.next += count

    def announce(self, words):
        """Puts a block of these words, or of this title, into the stream and enough behind it to be heard."""
        self.source.set_words(words)
        self.send(80)


@contextlib.contextmanager
def station(server, **options):
    with contextlib.ExitStack() as stack:
        yield Station(server, stack, **options)


# ---- blocks to the listener ------------------------------------------------------------------------------------------

@pytest.mark.parametrize("setting, told", [(None, "8192"), (1024, "1024"), (1500, "1500"), (4097, "4097"), (100, "1024"),
                                           (0, "1024")])
def test_blocks_stand_where_the_head_announces_them(start_server, setting, told):
    server = start_server(mount("/live", **({} if setting is None else {"MetaInterval": setting})))
    with station(server, metadata=True) as on_air:
        assert on_air.listener.head["icy-metaint"] == told
        stream = frames(200, on_air.next)
        on_air.source.set_title("A title")
        on_air.send(200)
        assert on_air.listener.audio_from(stream[:60], 60000) == stream[:60000]  # a block elsewhere would stand in here
        assert on_air.listener.titles == ["A title"]


@pytest.mark.parametrize("wish", [{}, {"Icy-MetaData": "0"}, {"Icy-MetaData": "yes"}, {"Icy-MetaData": "11"}])
def test_listener_that_does_not_ask_gets_the_bare_stream(start_server, wish):
    server = start_server(mount("/live"))
    with station(server, headers=wish) as on_air:
        assert "icy-metaint" not in on_air.listener.head
        stream = frames(200, on_air.next)
        on_air.source.set_title("A title")
        on_air.send(200)
        assert on_air.listener.audio_from(stream[:60], 60000) == stream[:60000]


def test_first_block_of_a_stream_without_titles_is_empty(start_server):
    server = start_server(mount("/live", MetaInterval=1024))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        source.push(frames(60))
        with Listener(server, "/live", metadata=True) as listener:
            assert listener.audio(10000) == frames(60)[:10000]
            assert listener.blocks == []


def test_title_in_the_burst_comes_with_the_first_block(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, metaint=1024) as source:
        server.wait_source()
        source.set_title("From the start", "http://x/")
        source.push(frames(200))
        with Listener(server, "/live", metadata=True) as listener:
            listener.audio(30000)
            assert listener.blocks == [(8192, b"StreamTitle='From the start';StreamUrl='http://x/';")]


def test_each_title_comes_once_and_in_order(start_server):
    server = start_server(mount("/live", MetaInterval=1024))
    with station(server, metadata=True) as on_air:
        for title in ("One", "Two", "Two", "Three"):
            on_air.announce(title)
        on_air.listener.audio_until(lambda: "Three" in on_air.listener.titles)
        on_air.send(80)
        on_air.listener.audio_through(media.number_text(on_air.next - 30))
        assert on_air.listener.titles == ["One", "Two", "Three"]


@pytest.mark.parametrize("length", [0, 1, 2, 3, 15, 16, 17, 200, 3900])
def test_block_of_any_length_is_whole_and_ends_with_a_nul(start_server, length):
    title = "t" * length
    server = start_server(mount("/live"))
    with station(server, metadata=True) as on_air:
        on_air.source.set_title(title, "u")
        on_air.send(200)
        on_air.listener.audio_until(lambda: on_air.listener.blocks)
        assert on_air.listener.blocks[0][1] == f"StreamTitle='{title}';StreamUrl='u';".encode()


@pytest.mark.parametrize("agent, url, told", [
    ("Shoutcast Server 2.6", "http://host/song", "http://host/song"), ("Shoutcast Server 2.6", "no address", ""),
    ("Shoutcast Server 2.6", "http://host/a:b", ""), ("a player", "no address", "no address"),
    ("a Shoutcast Server", "no address", "no address")])
def test_shoutcast_servers_are_spared_broken_addresses(start_server, agent, url, told):
    server = start_server(mount("/live"))
    with station(server, metadata=True, headers={"User-Agent": agent}) as on_air:
        on_air.source.set_title("Song", url)
        on_air.send(200)
        on_air.listener.audio_until(lambda: on_air.listener.blocks)
        assert on_air.listener.blocks[0][1] == f"StreamTitle='Song';StreamUrl='{told}';".encode()


# ---- blocks from the source ------------------------------------------------------------------------------------------

@pytest.mark.parametrize("words, told", [
    (b"StreamTitle='Song';", b"StreamTitle='Song';StreamUrl='';"),
    (b"streamtitle='Song';STREAMURL='u';", b"StreamTitle='Song';StreamUrl='u';"),
    (b"StreamUrl='u';", b"StreamTitle='';StreamUrl='u';"),
    (b"StreamTitle='It's';StreamUrl='';", b"StreamTitle='It's';StreamUrl='';"),
    (b"StreamTitle='Cut';short';StreamUrl='u';", b"StreamTitle='Cut';StreamUrl='';"),
    (b"StreamTitle='a=b';StreamUrl='u';", b"StreamTitle='a=b';StreamUrl='u';"),
    (b"StreamTitle=\"Song';", b"StreamTitle='Song';StreamUrl='';"),
    (b"StreamTitle='a+b%21%zz';", b"StreamTitle='a b!%zz';StreamUrl='';"),
    (b"StreamTitle='caf\xe9';", b"StreamTitle='caf\xe9';StreamUrl='';"),
    (b"Stream%54itle='Song';", b"StreamTitle='Song';StreamUrl='';"),
    (b"StreamTitle='Song';adw_ad='true';", b"StreamTitle='Song';StreamUrl='';"),
    (b"Stream'title='Old way'", b"StreamTitle='Old way'';StreamUrl='';"),  # the quote at the end stays on
])
def test_words_of_a_block_are_understood(start_server, words, told):
    server = start_server(mount("/live"))
    with station(server, metadata=True) as on_air:
        on_air.announce(words)
        on_air.listener.audio_until(lambda: on_air.listener.blocks)
        assert on_air.listener.blocks[0][1] == told


@pytest.mark.parametrize("words", [
    b"title='Song';", b"\xff\xfb\x90\x00" * 8, b"StreamTitle=''", b"StreamTitle"], ids=repr)
def test_block_that_is_none_ends_the_source(start_server, words):
    server = start_server(mount("/live"))
    with station(server) as on_air:
        on_air.source.set_words(words)
        with contextlib.suppress(OSError):
            on_air.send(80)
        server.wait_log("<127.0.0.1> ACK Couldn't read meta packet!")
        server.wait_source_gone()
        assert on_air.source.connection.ends_within(PATIENCE)


def test_block_without_a_nul_ends_the_source(start_server):
    server = start_server(mount("/live"))
    words = b"StreamTitle='';;"
    assert len(words) == icy.UNIT
    with IcySource(server, headers={"icy-metaint": 1000}) as source:
        server.wait_source()
        source.push(frames(3)[:1000] + b"\1" + words + frames(60))
        server.wait_log("<127.0.0.1> ACK Couldn't read meta packet!")


def test_interval_of_zero_means_no_blocks(start_server):
    server = start_server(mount("/live"))
    stream = frames(100)
    with IcySource(server, headers={"icy-metaint": 0}) as source:
        server.wait_source()
        source.push(stream)
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


@pytest.mark.parametrize("metaint", [1, 100, 1000, 8192, 16000])
def test_blocks_of_the_source_never_reach_a_listener(start_server, metaint):
    server = start_server(mount("/live"))
    stream = frames(100)
    with IcySource(server, metaint=metaint) as source:
        server.wait_source()
        source.set_title("Song")
        source.push(stream)
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


# ---- chunk extensions ------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("words, extension", [
    (b"StreamTitle='A song';StreamUrl='http://x/';", b"StreamTitle='A+song';StreamUrl='http%3A%2F%2Fx%2F';"),
    (b"StreamTitle='caf\xc3\xa9';", b"StreamTitle='caf%C3%A9';StreamUrl='';"),
    (b"StreamTitle='T';b='2 2';a='1';", b"StreamTitle='T';StreamUrl='';';a='1';';b='2+2';"),
])
def test_listener_that_takes_chunks_gets_titles_as_their_extensions(start_server, words, extension):
    server = start_server(mount("/live"))
    with station(server, headers=CHUNKS, version="HTTP/1.1") as on_air:
        on_air.announce(words)
        on_air.send(80)
        on_air.listener.audio_through(media.number_text(on_air.next - 30))
        assert on_air.listener.extensions == [b" " + extension]


def test_audio_in_chunks_is_the_same_audio(start_server):
    server = start_server(mount("/live"))
    with station(server, headers=CHUNKS, version="HTTP/1.1") as on_air:
        assert on_air.listener.head["Transfer-Encoding"] == "chunked"
        stream = frames(200, on_air.next)
        on_air.announce("One")
        on_air.send(120)
        assert on_air.listener.audio_from(stream[:60], 60000) == stream[:60000]
        assert len(on_air.listener.extensions) == 1


def test_http_1_0_listener_that_asks_for_chunks_gets_the_bare_stream(start_server):
    server = start_server(mount("/live"))
    with station(server, headers=CHUNKS) as on_air:
        assert "Transfer-Encoding" not in on_air.listener.head
        stream = frames(200, on_air.next)
        on_air.announce("One")
        on_air.send(120)
        assert on_air.listener.audio_from(stream[:60], 60000) == stream[:60000]


def extended_chunk(data, extension):
    return b"%x;%s\r\n%s\r\n" % (len(data), extension, data)


@pytest.mark.parametrize("extension, told", [
    (b" StreamTitle='A+song';StreamUrl='http%3A%2F%2Fx%2F';", b"StreamTitle='A song';StreamUrl='http://x/';"),
    (b"StreamTitle='Song';", b"StreamTitle='Song';StreamUrl='';"),
    (b"StreamTitle='Song';StreamUrl='';';a='1';", b"StreamTitle='Song';StreamUrl='';"),
])
def test_chunk_extensions_of_a_source_are_titles(start_server, extension, told):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        source.push(frames(60))
        with Listener(server, "/live", metadata=True) as listener:
            listener.audio(5000)
            source.connection.send(extended_chunk(frames(100, 60), extension))
            listener.audio_until(lambda: listener.blocks)
            assert listener.blocks[0][1] == told


@pytest.mark.parametrize("extension", [b"name=value", b"name", b"", b"x;"])
def test_chunk_extensions_that_are_no_titles_are_passed_over(start_server, extension):
    server = start_server(mount("/live"))
    stream = frames(100)
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        for at in range(0, len(stream), 2000):
            source.connection.send(extended_chunk(stream[at:at + 2000], extension))
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


def test_blocks_are_not_looked_for_in_a_chunked_body(start_server):
    server = start_server(mount("/live"))
    stream = frames(100)
    with HttpSource(server, "/live", method="PUT", chunked=True, headers={"icy-metaint": 1000}) as source:
        server.wait_source()
        source.push(stream)
        with Listener(server, "/live") as listener:
            assert listener.audio(30000) == stream[:30000]


def test_what_leaves_as_a_chunk_extension_comes_in_again_as_one(start_server):
    first, second = start_server(mount("/live")), start_server(mount("/live"))
    with station(first, headers=CHUNKS, version="HTTP/1.1") as on_air, \
            HttpSource(second, "/live", method="PUT", chunked=True) as relay:
        second.wait_source()
        relay.push(frames(60))
        with Listener(second, "/live", metadata=True) as listener:
            listener.audio(5000)
            on_air.announce(b"StreamTitle='Caf\xc3\xa9 = 100%25';StreamUrl='http://x/?a=1';")
            on_air.listener.audio_until(lambda: on_air.listener.extensions)
            relay.connection.send(extended_chunk(frames(100, 60), on_air.listener.extensions[0]))
            listener.audio_until(lambda: listener.blocks)
            assert listener.blocks[0][1] == b"StreamTitle='Caf\xc3\xa9 = 100%';StreamUrl='http://x/?a=1';"


# ---- listener log ----------------------------------------------------------------------------------------------------

def test_listener_log_has_a_record_for_each_title_and_one_at_the_end(start_server):
    server = start_server(mount("/live", MetaInterval=1024))
    with station(server, metadata=True) as on_air:
        for title in ("One", "Two"):
            on_air.announce(title)
            on_air.listener.audio_until(lambda: title in on_air.listener.titles)
    assert [record["x-metatitle"] for record in server.wait_records(3)] == ["-", "One", "Two"]
