"""Players: the dialects of the answer, the burst, who is let in, fallbacks, the logs, and players that do not read."""
import contextlib
import hashlib
import re
import threading
import time

import pytest

from harness import media
from harness.accounts import account, pseudo_user, user_file
from harness.answers import http_head, icy_head, masked, not_cached
from harness.client import Connection, basic, fetch
from harness.flv import FlvReader
from harness.listener import Listener
from harness.server import PATIENCE, mount
from harness.source import HttpSource, IcySource

PROPERTIES = {"icy-name": "Name", "icy-genre": "Genre", "icy-url": "http://x/", "icy-pub": "1", "icy-br": "128",
              "ice-description": "Words", "ice-audio-info": "a=1"}
FRAME = len(media.mp3_frame(0))


def frames(count, first=0):
    return media.join(media.mp3_frames(count, first))


def numbers(data):
    return media.numbers_in(data)


def push_until_heard(source, listener, first):
    """Sends frames of these numbers and waits until the first of them is heard."""
    data = frames(60, first)
    source.push(data)
    return listener.audio_from(data[:FRAME - 1], FRAME)


@contextlib.contextmanager
def live(start_server, settings=None, **options):
    """(server, source) with a source on /live that sends what the test pushes."""
    server = start_server(mount("/live") if settings is None else settings, **options)
    with HttpSource(server, "/live", headers=PROPERTIES) as source:
        server.wait_source()
        yield server, source


def status_of(server, target="/live", **options):
    """The status that a listener is answered with; HEAD, so that nothing of the stream comes."""
    return fetch(server.port, target, method="HEAD", **options).status


# ---- dialects --------------------------------------------------------------------------------------------------------

ICY_FIELDS = [("icy-name", "Name"), ("icy-genre", "Genre"), ("icy-url", "http://x/"), ("content-type", "audio/mpeg"),
              ("icy-pub", "1"), ("icy-br", "128"), ("ice-audio-info", "a=1")]
ICE_FIELDS = [("Content-Type", "audio/mpeg"), *not_cached(), ("ice-name", "Name"), ("ice-genre", "Genre"),
              ("ice-url", "http://x/"), ("ice-public", "1"), ("ice-bitrate", "128"), ("ice-description", "Words"),
              ("ice-audio-info", "a=1")]
FLV_FIELDS = [("Content-Type", "video/x-flv"), *not_cached()]
CHUNKED = ("Transfer-Encoding", "chunked")


def stream_head(server, target, headers="", version="HTTP/1.0"):
    with Connection(server.port) as connection:
        connection.send(f"GET {target} {version}\r\n{headers}\r\n")
        return masked(connection.receive_head().raw)


@pytest.mark.parametrize("target, headers, fields", [
    ("/live", "", ICY_FIELDS),
    ("/live", "Icy-MetaData: 0\r\n", ICY_FIELDS),
    ("/live?http=1", "Icy-MetaData: 1\r\n", [*ICY_FIELDS, ("icy-metaint", 8192)]),
    ("/live", "Accept-Encoding: gzip, chunked\r\n", ICY_FIELDS),
    ("/live", "Accept-Encoding: chunked\r\n", ICE_FIELDS),
    ("/live", "Accept-Encoding: chunked\r\nIcy-MetaData: 1\r\n", ICE_FIELDS),
    ("/live?flv=1", "", FLV_FIELDS),
    ("/live", "Accept: video/x-flv\r\n", FLV_FIELDS),
    ("/live", "Accept: video/*\r\n", FLV_FIELDS),
    ("/live", "Accept: video/x-flv,audio/mpeg;q=0.5\r\n", ICY_FIELDS),
    ("/live", "Accept: video/x-flv, audio/mpeg\r\n", FLV_FIELDS),  # Kept: the blank belongs to the name of the type
    ("/live", "Accept: text/html\r\n", ICY_FIELDS),
    ("/live", "Accept: audio/mpeg;q=0,video/x-flv\r\n", FLV_FIELDS),
])
def test_head_of_a_stream_over_http(start_server, target, headers, fields):
    with live(start_server) as (server, _):
        assert stream_head(server, target, headers) == http_head("HTTP/1.0 200 OK", "Close", fields)


@pytest.mark.parametrize("target, headers, metaint", [
    ("/live", "Icy-MetaData: 1\r\n", [("icy-metaint", 8192)]),
    ("/live?icy=1", "", []),
    ("/live?icy=1", "Icy-MetaData: 1\r\n", [("icy-metaint", 8192)]),
])
def test_head_of_a_stream_over_icy(start_server, target, headers, metaint):
    with live(start_server) as (server, _):
        assert stream_head(server, target, headers) == icy_head("ICY 200 OK", [*ICY_FIELDS, *metaint])
        assert stream_head(server, target, headers + "Host: h\r\n", "HTTP/1.1") == \
            icy_head("ICY 200 OK", [*ICY_FIELDS, *metaint])


@pytest.mark.parametrize("headers, fields", [("", ICY_FIELDS), ("Accept-Encoding: chunked\r\n", ICE_FIELDS),
                                             ("Accept: video/x-flv\r\n", FLV_FIELDS)])
@pytest.mark.parametrize("kept", ["Keep-Alive", "Close"])
def test_head_of_a_stream_over_http_1_1_is_chunked(start_server, headers, fields, kept):
    with live(start_server) as (server, _):
        assert stream_head(server, "/live", f"Host: h\r\nConnection: {kept}\r\n{headers}", "HTTP/1.1") == \
            http_head("HTTP/1.1 200 OK", kept, [*fields, CHUNKED])


def test_audio_info_that_the_source_did_not_tell_is_left_out(start_server):
    server = start_server(mount("/live"))
    with IcySource(server):
        server.wait_source()
        assert "ice-audio-info" not in stream_head(server, "/live")
        assert "\r\nice-audio-info: \r\n" in stream_head(server, "/live", "Accept-Encoding: chunked\r\n")


def test_ogg_is_always_told_the_icecast_way(start_server):
    server = start_server(mount("/live", IsDefault="yes"))
    with IcySource(server, content_type="application/ogg", headers=PROPERTIES):
        server.wait_source()
        fields = [("Content-Type", "application/ogg"), *ICE_FIELDS[1:]]
        for headers in ("", "Icy-MetaData: 1\r\n"):
            assert stream_head(server, "/live", headers) == http_head("HTTP/1.0 200 OK", "Close", fields)


def test_ogg_and_other_formats_are_never_wrapped_as_flv(start_server):
    server = start_server(mount("/live"))
    with IcySource(server, content_type="audio/aac", headers=PROPERTIES):
        server.wait_source()
        assert "\r\ncontent-type: audio/aac\r\n" in stream_head(server, "/live?flv=1")


@pytest.mark.parametrize("setting, told", [(100, 1024), (0, 1024), (1024, 1024), (4000, 4000)])
def test_metadata_interval_is_a_setting(start_server, setting, told):
    with live(start_server, mount("/live", MetaInterval=setting)) as (server, _):
        assert f"\r\nicy-metaint:{told}\r\n" in stream_head(server, "/live", "Icy-MetaData: 1\r\n")


def test_name_format_changes_the_name(start_server):
    with live(start_server, mount("/live", NameFormat="%s (%s HQ)")) as (server, _):
        assert "\r\nicy-name: Name (Name HQ)\r\n" in stream_head(server, "/live")


def test_mount_that_does_not_want_to_be_relayed_in_public_says_so(start_server):
    with live(start_server, mount("/live", PublicRelays="no")) as (server, _):
        assert "\r\nicy-pub: 0\r\n" in stream_head(server, "/live")


def test_default_of_all_mounts_reaches_those_that_do_not_set_the_key(start_server):
    server = start_server([("DefaultMetaInterval", 2000), *mount("/one"), *mount("/two", 2, User="two", MetaInterval=3000)])
    with HttpSource(server, "/one"), HttpSource(server, "/two", user="two"):
        server.wait_source(2)
        for target, metaint in (("/one", 2000), ("/two", 3000)):
            assert f"\r\nicy-metaint:{metaint}\r\n" in stream_head(server, target, "Icy-MetaData: 1\r\n")


def test_head_of_a_stream_ends_the_connection_of_an_old_client(start_server):
    with live(start_server) as (server, _), Connection(server.port) as connection:
        connection.send("HEAD /live HTTP/1.0\r\n\r\n")
        assert masked(connection.receive_all()) == http_head("HTTP/1.0 200 OK", "Close", ICY_FIELDS)
        server.wait_log("> Connection Closed ")


def test_stream_that_ends_closes_its_chunks_and_nothing_more(start_server):
    with live(start_server, [("ClientTimeout", 1), *mount("/live")]) as (server, source):
        listener = Listener(server, "/live", version="HTTP/1.1")
        push_until_heard(source, listener, 0)
        source.stop()
        with listener:
            assert listener.receive_all().endswith(b"\r\n0\r\n")


def test_stream_as_flv_has_the_frames_inside(start_server):
    with live(start_server) as (server, source):
        source.push(frames(60))
        with Listener(server, "/live?flv=1") as listener:
            reader = FlvReader(listener)
            assert reader.header[:3] == b"FLV"
            assert media.mp3_frame(3) in reader.tag_until(lambda tag: media.mp3_frame(3) in tag.data).data


# ---- burst -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("content_type, maker, limit", [
    ("audio/mpeg", media.mp3_frames, 131072),
    ("audio/aac", media.adts_frames, 131072),
])
def test_burst_is_the_newest_whole_frames_below_the_limit(start_server, content_type, maker, limit):
    server = start_server(mount("/live"))
    stream = [data for data, _ in maker(800)]
    with HttpSource(server, "/live", content_type=content_type) as source:
        server.wait_source()
        with Listener(server, "/live") as first, Listener(server, "/live") as watcher:
            source.push(b"".join(stream))
            heard = len(first.audio_until(lambda: len(first._audio) > 250000)) + len(first.receive_for(1))
            assert watcher.audio(heard)[:len(stream[0])] == stream[0]
            with Listener(server, "/live") as late:
                burst = late.receive_for(2)
    size = len(stream[0])
    assert burst == b"".join(stream)[heard - len(burst):heard], "the burst is what came last, without a gap"
    assert limit - size < len(burst) <= limit


def test_burst_of_a_format_without_frames_is_five_hundred_byte_packets(start_server):
    server = start_server(mount("/live"))
    stream = media.join(media.plain_blocks(60))
    with HttpSource(server, "/live", content_type="video/x-matroska") as source:
        server.wait_source()
        with Listener(server, "/live") as first:
            source.push(stream)
            heard = len(first.audio_until(lambda: len(first._audio) > 40000)) + len(first.receive_for(1))
        with Listener(server, "/live") as late:
            assert late.receive_for(1) == stream[:heard]
    assert heard % 500 == 0


def test_stream_goes_on_behind_the_burst_without_a_gap(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames(), pace=8) as source:
        source.wait_bytes(150000)
        with Listener(server, "/live") as listener:
            heard = numbers(listener.audio(400000))
    assert heard == list(range(heard[0], heard[0] + len(heard)))


# ---- capacity --------------------------------------------------------------------------------------------------------

def listening(server, target="/live", **options):
    """A listener that has been let in."""
    listener = Listener(server, target, **options)
    assert listener.head.status == 200, listener.head
    return listener


def refusal(server, words):
    return server.wait_log(f"<127.0.0.1> {words} [U: Anonymous] (A: 127.0.0.1:{server.port}/live) {{UA: me}}")


ME = {"headers": {"User-Agent": "me"}}


def test_mount_takes_so_many_listeners_and_another_once_one_has_left(start_server):
    with live(start_server, mount("/live", UserMax=2)) as (server, _), contextlib.ExitStack() as stack:
        listeners = [stack.enter_context(listening(server)) for _ in range(2)]
        assert status_of(server, **ME) == 451
        refusal(server, "/live Full")
        listeners[0].close()
        server.wait_log("> Connection Closed ")
        listening(server).close()


def test_capacity_of_the_defaults_counts_for_each_mount(start_server):
    settings = [("DefaultUserMax", 1), *mount("/live"), *mount("/more", 2, User="more", UserMax=-1)]
    with live(start_server, settings) as (server, _), HttpSource(server, "/more", user="more"), \
            contextlib.ExitStack() as stack:
        server.wait_source(2)
        for target in ("/live", "/more", "/more"):
            stack.enter_context(listening(server, target))
        assert status_of(server) == 451


def test_address_takes_so_many_places(start_server):
    with live(start_server, mount("/live", IPUserMax=1)) as (server, _), listening(server):
        assert status_of(server, **ME) == 451
        refusal(server, "/live IP Full")
        assert status_of(server, source="127.0.0.2") == 200


@pytest.mark.parametrize("setting", [0, -1])
def test_address_limit_of_zero_or_below_is_none(start_server, setting):
    with live(start_server, mount("/live", IPUserMax=setting)) as (server, _), listening(server):
        assert status_of(server) == 200


def reserved(*filters):
    return user_file(banned=pseudo_user("reserve", *filters))


def test_reserved_listener_takes_the_place_of_the_one_who_is_there_longest(start_server):
    with live(start_server, mount("/live", UserMax=2), users=reserved((-1, "IP", "127.0.0.2"))) as (server, _):
        with listening(server, source="127.0.0.3") as oldest:
            time.sleep(1.1)  # connections are told apart by whole seconds
            with listening(server, source="127.0.0.4") as second, listening(server, source="127.0.0.2"):
                assert oldest.ends_within(PATIENCE)
                server.wait_log("<127.0.0.2> /live Kicking 127.0.0.3 to make room for new Reserve")
                assert not second.ends_within(1)


def test_reserved_listener_finds_no_place_among_reserved_ones(start_server):
    with live(start_server, mount("/live", UserMax=1), users=reserved((-1, "IP", "127.0.0.1"))) as (server, _):
        with listening(server) as first:
            assert status_of(server, **ME) == 451
            refusal(server, "/live Reserve Full")
            assert not first.ends_within(0.5)


def test_reserve_may_be_for_one_mount(start_server):
    settings = [*mount("/live", UserMax=0), *mount("/more", 2, User="more", UserMax=0)]
    with live(start_server, settings, users=reserved((1, "User Agent", "me"))) as (server, _), \
            HttpSource(server, "/more", user="more"):
        server.wait_source(2)
        assert status_of(server, **ME) == 451
        refusal(server, "/live Reserve Full")
        assert status_of(server, "/more", **ME) == 451
        server.wait_log("<127.0.0.1> /more Full [U: Anonymous]")


def test_reserved_listener_is_refused_by_the_limit_of_its_address(start_server):
    settings = mount("/live", UserMax=1, IPUserMax=1)
    with live(start_server, settings, users=reserved((-1, "IP", "127.0.0.1"))) as (server, _), listening(server):
        assert status_of(server, **ME) == 451
        refusal(server, "/live IP Full")


# ---- bans and accounts -----------------------------------------------------------------------------------------------

@pytest.mark.parametrize("kind, text, address, agent, status", [
    ("IP", "127.0.0.1", "127.0.0.1", "me", 451),
    ("IP", "127.0.0.1", "127.0.0.2", "me", 200),
    ("Subnet", "127.0.1.0/24", "127.0.1.9", "me", 451),
    ("Subnet", "127.0.1.0/24", "127.0.2.9", "me", 200),
    ("Subnet", "127.0.1.0/32", "127.9.9.9", "me", 451),  # Kept: a range of 32 bits compares nothing
    ("User Agent", "me", "127.0.0.1", "me", 451),
    ("User Agent", "me", "127.0.0.1", "me too", 200),
    ("All", "*", "127.0.0.1", "me", 451),
    ("None", "127.0.0.1", "127.0.0.1", "me", 200),
])
def test_ban_on_a_mount(start_server, kind, text, address, agent, status):
    settings = [*mount("/live"), *mount("/more", 2, User="more")]
    with live(start_server, settings, users=user_file(banned=pseudo_user("banned", (1, kind, text)))) as (server, _), \
            HttpSource(server, "/more", user="more"):
        server.wait_source(2)
        assert status_of(server, source=address, headers={"User-Agent": agent}) == status
        assert status_of(server, "/more", source=address, headers={"User-Agent": agent}) == 200
        if status == 451:
            server.wait_log(f"<{address}> Banned [U: Anonymous] (A: 127.0.0.1:{server.port}/live) {{UA: {agent}}}")


AUTH = mount("/live", Auth="yes")
ACCOUNTS = user_file(
    account("hearer", "secret", "Listener", mounts=[1]), account("stranger", "secret", "Listener", mounts=[2]),
    account("everywhere", "secret", "Listener"), account("homeless", "secret", "Administrator", mounts=[]),
    account("barred", "secret", "Banned"))


@pytest.mark.parametrize("user, status", [
    (None, 451), (("hearer", "secret"), 200), (("hearer", "wrong"), 451), (("hearer", ""), 451), (("stranger", "secret"), 451),
    (("everywhere", "secret"), 200), (("homeless", "secret"), 451), (("barred", "secret"), 451), (("nobody", "secret"), 451),
    (("source", "hackme"), 200),
])
def test_mount_that_asks_for_an_account_lets_in_those_with_a_property_on_it(start_server, user, status):
    with live(start_server, [*AUTH, *mount("/more", 2, User="more")], users=ACCOUNTS) as (server, _):
        assert status_of(server, user=user) == status


def test_mount_that_asks_for_an_account_logs_whom_it_turns_away(start_server):
    with live(start_server, AUTH, users=ACCOUNTS) as (server, _):
        status_of(server, user=("stranger", "secret"), **ME)
        server.wait_log(f"<127.0.0.1> Not Authorized [U: stranger] (A: 127.0.0.1:{server.port}/live) {{UA: me}}")
        status_of(server, **ME)
        refusal(server, "Not Authorized")


def digest(user, password, target, method="HEAD", quote='"', separator=", "):
    def md5(text):
        return hashlib.md5(text.encode()).hexdigest()
    nonce, cnonce, count = "bm9uY2U=", "Y25vbmNl==", "00000001"
    first = md5(f"{user}:Quillwave Server:{password}")
    response = md5(f"{first}:{nonce}:{count}:{cnonce}:auth:{md5(f'{method}:{target}')}")
    fields = {"username": user, "realm": "Quillwave Server", "nonce": nonce, "uri": target, "cnonce": cnonce,
              "response": response}
    words = [f"{name}={quote}{value}{quote}" for name, value in fields.items()] + [f"nc={count}", "qop=auth"]
    return {"Authorization": "Digest " + separator.join(words)}


@pytest.mark.parametrize("target", ["/live", "/live?a=b,c&d=e"])
@pytest.mark.parametrize("separator", [", ", ","])
def test_account_may_prove_its_password_by_digest(start_server, target, separator):
    with live(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, target, headers=digest("hearer", "secret", target, separator=separator)) == 200


@pytest.mark.parametrize("headers", [
    digest("hearer", "wrong", "/live"), digest("hearer", "secret", "/other"), digest("hearer", "secret", "/live", "GET"),
    digest("nobody", "", "/live"), digest("", "", "/live"),
])
def test_wrong_digest_is_no_login(start_server, headers):
    with live(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, headers=headers) == 451


@pytest.mark.parametrize("value", ["Basic", "Basic ====", "Basic aGVhcmVy", "Digest", "Digest =,=", 'Digest username=",uri="',
                                   "Bearer x", basic("hearer:secret", "secret"), " "])
def test_credentials_that_make_no_sense_are_no_login(start_server, value):
    with live(start_server, AUTH, users=ACCOUNTS) as (server, _):
        assert status_of(server, headers={"Authorization": value}) == 451
        assert status_of(server, headers=digest("hearer", "secret", "/live")) == 200


# ---- addresses -------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("target", ["/;", "/;stream.nsv", "/;?a=b", "/anything/;x", "/stream/1", "/live"])
def test_default_mount_has_further_addresses(start_server, target):
    with live(start_server, mount("/live", IsDefault="yes")) as (server, source):
        source.push(frames(60))
        with Listener(server, target) as listener:
            assert listener.head.status == 200
            assert listener.audio(FRAME) == media.mp3_frame(0)


def test_default_mount_answers_the_root(start_server):
    with live(start_server, mount("/live", IsDefault="yes")) as (server, _):
        assert stream_head(server, "/", "Accept-Encoding: chunked\r\n") == http_head("HTTP/1.0 200 OK", "Close", ICY_FIELDS)


def test_root_without_a_default_mount_is_no_stream(start_server):
    with live(start_server) as (server, _):
        assert stream_head(server, "/;") == icy_head("ICY 404 Not Found")
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
        server.wait_log("> Source Disconnected")
        push_until_heard(spare, listener, 1000)
        live_source = stack.enter_context(HttpSource(server, "/live"))
        server.wait_source(3)
        push_until_heard(live_source, listener, 2000)
        spare.stop()
        server.wait_log("> Source Disconnected", 2)
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
            heard = numbers(listener.audio_from(media.mp3_frame(1000), 120 * FRAME))
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
    with live(start_server, mount("/live", Backup="/live")) as (server, source):
        with Listener(server, "/live") as listener:
            push_until_heard(source, listener, 0)
            source.stop()
            server.wait_log("> Source Disconnected")
            with HttpSource(server, "/live") as again:
                server.wait_source(2)
                push_until_heard(again, listener, 1000)


# ---- the logs --------------------------------------------------------------------------------------------------------

UUID = r"[0-9a-f]+(?:-[0-9a-f]+){4}"


def test_listener_is_logged_when_it_comes_and_when_it_goes(start_server):
    with live(start_server) as (server, _):
        listening(server, "/live?a=b", headers={"User-Agent": "me", "Authorization": basic("source", "hackme")}).close()
        opened = server.wait_log("> Connection Opened ")
        closed = server.wait_log("> Connection Closed ")
    found = re.fullmatch(rf"<127\.0\.0\.1> Connection Opened \[U: source\] \(A: 127\.0\.0\.1:{server.port}/live\) \[L: 1\] "
                         rf"{{UA: me}} \[I: ({UUID})\]", opened)
    assert found, opened
    assert re.fullmatch(rf"<127\.0\.0\.1> Connection Closed \[U: source\] \[L: 0\] {{\d+ bytes}} \(\d+ secs\) "
                        rf"\[I: {found.group(1)}\]", closed), closed


def test_listener_that_resets_is_logged_with_the_error(start_server):
    with live(start_server) as (server, _):
        listening(server).reset()
        server.wait_log("<127.0.0.1> Connection Closed (Connection reset by peer) [U: Anonymous] [L: 0] {")
        server.wait_log("<127.0.0.1> Receiver disconnected during recv check with empty buffer")


def test_listeners_are_counted_in_the_log(start_server):
    with live(start_server) as (server, _), contextlib.ExitStack() as stack:
        for _ in range(3):
            stack.enter_context(listening(server))
        server.wait_log("[L: 3] {UA: ")
    for left in (2, 1, 0):
        server.wait_log(f"> Connection Closed [U: Anonymous] [L: {left}] {{")


def ended_session(start_server, target="/live", **options):
    """(record, bytes that came, server) of one listener, which the server has ended."""
    with live(start_server, [("ClientTimeout", 1), ("Hostname", "radio.example"), *mount("/live")]) as (server, source):
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
    with live(start_server, [("W3CLogFile", "log0.log"), *mount("/live")]) as (server, _):
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


# ---- players that do not read ----------------------------------------------------------------------------------------

def resident_bytes(server):
    text = server.path(f"/proc/{server.pid}/status").read_text()
    return int(re.search(r"VmRSS:\s*(\d+) kB", text).group(1)) * 1024


class Reader(threading.Thread):
    """Reads the stream on a thread of its own and keeps the numbers of the frames."""

    def __init__(self, server):
        super().__init__(daemon=True)
        self.listener = Listener(server, "/live")
        self.numbers, self._rest = [], b""
        self.longest_wait = 0.0

    def run(self):
        last = time.monotonic()
        with contextlib.suppress(OSError, EOFError, ValueError):
            while data := self.listener.receive_some():
                self.longest_wait = max(self.longest_wait, time.monotonic() - last)
                last = time.monotonic()
                self._rest += data
                whole = len(self._rest) // FRAME * FRAME
                self.numbers += numbers(self._rest[:whole])
                self._rest = self._rest[whole:]


def test_deaf_listeners_are_ended_and_their_neighbour_notices_nothing(start_server):
    with live(start_server) as (server, source), contextlib.ExitStack() as stack:
        reader = Reader(server)
        stack.enter_context(reader.listener)
        reader.start()
        deaf = [stack.enter_context(listening(server, receive_buffer=4096)) for _ in range(20)]
        before = resident_bytes(server)
        most, number = 0, 0
        deadline = time.monotonic() + 3 * PATIENCE
        while server_ended(server) < len(deaf):
            assert time.monotonic() < deadline, "the deaf are not ended"
            source.push(frames(100, number))
            number += 100
            most = max(most, resident_bytes(server) - before)
            server.wait_until(lambda: len(reader.numbers) > number - 200, complaint="the reader hears nothing more")
        server.wait_until(lambda: len(reader.numbers) > number - 60, complaint="the reader misses the end")
        assert reader.numbers == list(range(len(reader.numbers)))
        # What waits for them is the same for all of them; nobody has more than two megabytes.
        assert most < 20 * 2 * 1024 * 1024 + 64 * 1024 * 1024
        for _ in deaf:
            server.wait_log("> Connection Closed (No buffer space available) [U: Anonymous]")


def server_ended(server):
    return sum("> Connection Closed (" in line for line in server.log_lines())


def test_listener_with_a_full_socket_is_kicked_at_once(start_server):
    with live(start_server, mount("/live", UserMax=1), users=reserved((-1, "IP", "127.0.0.2"))) as (server, source):
        with listening(server, receive_buffer=4096):
            for first in range(0, 10000, 500):  # about four megabytes: less than ends it, more than the system takes
                source.push(frames(500, first))
            with listening(server, source="127.0.0.2"):
                server.wait_log("<127.0.0.2> /live Kicking 127.0.0.1 to make room for new Reserve")
                server.wait_log("<127.0.0.1> Connection Closed")


def test_listeners_that_come_and_go_leave_nothing_behind(start_server):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", media.mp3_frames()) as source:
        source.wait_bytes(20000)
        descriptors = server.path(f"/proc/{server.pid}/fd")
        def open_ones():
            return len(list(descriptors.iterdir()))
        before = open_ones()
        for _ in range(5):
            crowd = [Listener(server, "/live") for _ in range(20)]
            for number, listener in enumerate(crowd):
                listener.reset() if number % 2 else listener.close()
        server.wait_log("> Connection Closed", 100)
        server.wait_until(lambda: open_ones() <= before, complaint="descriptors stay open")
