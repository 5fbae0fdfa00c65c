"""The status feeds, read by parsers that know nothing of the server, and the long poll."""
import base64
import contextlib
import json
import os
import re
import subprocess
import time
import urllib.parse
import xml.etree.ElementTree as ElementTree

import pytest

from harness import media
from harness.accounts import account, user_file
from harness.client import Connection, fetch, request_text
from harness.listener import Listener
from harness.server import ADMIN, mount
from harness.source import HttpSource
from harness.station import PROPERTIES, listening, on_air

NODE = "process.stdout.write(JSON.stringify(JSON.parse(new TextDecoder('utf-8', {fatal: true}).decode(require('fs').readFileSync(0)))))"
CHARACTERS = "text and caf\u00e9 \u20ac \U0001f3b5"
MARKUP = "</name><script>alert(1)</script><!-- ]]> &amp; &#65; &nbsp;"
QUIET = 1.0  # seconds without an answer that show that none comes

# What a text may hold, as bytes, and what readers are to find in its place: in JSON, and in XML where that differs.
HOSTILE = {
    "utf-8": (CHARACTERS.encode(), CHARACTERS),
    "latin-1": (b"caf\xe9 \xa9", "caf\xe9 \xa9"),
    "windows": (b"it\x92s", "it\x92s"),
    "cut": (b"caf\xc3", "caf\xc3"),
    "overlong": (b"\xc0\xaf", "\xc0\xaf"),
    "surrogate": (b"\xed\xa0\x80", "\xed\xa0\x80"),
    "mixture": ("caf\u00e9".encode() + b" \xe9", "caf\u00c3\u00a9 \u00e9"),
    "beyond": (b"\xf5\x80\x80\x80", "\xf5\x80\x80\x80"),
    "no characters": (b"a\xef\xbf\xbe\xef\xbf\xbf", "a\ufffe\uffff", "a\ufffd\ufffd"),
    "quotes": (b"\"'\\ \\u0041 \\\"", "\"'\\ \\u0041 \\\""),
    "markup": (MARKUP.encode(), MARKUP),
    "separators": ("\u2028\u2029\x85".encode(), "\u2028\u2029\x85"),
    "delete": (b"a\x7fb", "a\x7fb"),
}
# Control bytes cannot come in a header. They keep a text from being UTF-8, so the accents are doubled.
CONTROL = {
    "controls": (bytes(range(1, 9)) + b"\x0b\x0c" + bytes(range(14, 32)) + b"\xe9",
                 "".join(map(chr, range(1, 9))) + "\x0b\x0c" + "".join(map(chr, range(14, 32))) + "\xe9",
                 " " * 28 + "\xe9"),
    "nul": (b"a\0\xc3\xa9", "a\0\xc3\xa9", "a \xc3\xa9"),
    "white": (b"a\tb\nc\xc3\xa9", "a\tb\nc\xe9"),
}


def in_json(case):
    return case[1]


def in_xml(case):
    return case[-1]


# ---- reading -----------------------------------------------------------------------------------------------------------

def read_json(body):
    """The document, which Python and Node.js must read alike."""
    ours = json.loads(body.decode("utf-8", "strict"))
    node = subprocess.run(["node", "-e", NODE], input=body, capture_output=True, check=True, timeout=60).stdout
    assert json.loads(node) == ours
    return ours


def json_of(server, target="/status.json", **options):
    answer = fetch(server.port, target, **options)
    assert answer.status == 200 and answer.head["Content-Type"] == "application/json; charset=UTF-8", answer.head
    return read_json(answer.body)


def xml_of(server, target="/status.xml", **options):
    answer = fetch(server.port, target, **options)
    assert answer.status == 200 and answer.head["Content-Type"] == "text/xml; charset=UTF-8", answer.head
    root = ElementTree.fromstring(answer.body)
    assert root.tag == "quillwave"
    return root


def source_in(document, address="/live"):
    return next(source for source in document["sources"] if source["mount"] == address)


def element_in(root, address="/live"):
    return next(source for source in root.find("sources") if source.findtext("mount") == address)


def as_json(element):
    """An XML document in the shape of the JSON one, with all values as texts."""
    if element.tag in ("sources", "played", "peers"):
        return [as_json(child) for child in element]
    if len(element) == 0 and not element.attrib:
        return element.text or ""
    return {**element.attrib, **{child.tag: as_json(child) for child in element}}


def texts(value):
    """A JSON document with all values as texts."""
    if isinstance(value, dict):
        return {key: texts(inner) for key, inner in value.items()}
    if isinstance(value, list):
        return [texts(inner) for inner in value]
    return str(value)


def set_title(server, title, address="/live", url=""):
    """`title` in bytes; an apostrophe would not come back as it was."""
    query = f"mount={address}&mode=updinfo&song={urllib.parse.quote(title)}&url={urllib.parse.quote(url)}"
    assert fetch(server.port, f"/admin/metadata?{query}", user=ADMIN).status == 200


def words_of(title):
    """Words of a metadata block that hold the title in the form of a URL."""
    return b"StreamTitle='" + urllib.parse.quote(title).encode() + b"';"


def put_title(source, title):
    """A title of any bytes, as a relay sends it: in the extension of a chunk."""
    data = media.join(media.mp3_frames(60))
    source.connection.send(b"%x; %s\r\n%s\r\n" % (len(data), words_of(title), data))


# ---- documents ---------------------------------------------------------------------------------------------------------

def test_server_without_mounts(start_server):
    server = start_server()
    document = json_of(server)
    assert list(document) == ["version", "total_nodes", "total_unique_nodes", "total_peak_nodes", "startup_time",
                              "system_time", "active_sources"]
    assert document["version"] == "1.0.2 evergreen" and document["active_sources"] == 0
    assert abs(document["system_time"] - time.time()) < 300 and document["startup_time"] <= document["system_time"]
    root = xml_of(server)
    assert [child.tag for child in root] == [*document, "sources"] and len(root.find("sources")) == 0


def test_mount_without_source_is_not_public(start_server):
    server = start_server(mount("/live"))
    assert json_of(server)["active_sources"] == 0
    assert source_in(json_of(server, "/admin/status.json", user=ADMIN))["status"] == -1
    assert element_in(xml_of(server, "/admin/status.xml", user=ADMIN)).findtext("status") == "-1"


def test_public_fields_of_a_mount(start_server):
    with on_air(start_server, mount("/live", UserMax=50)) as (server, _), Listener(server, "/live"):
        set_title(server, b"Song", url="http://song/")
        source = source_in(json_of(server))
        assert list(source.items()) == [
            ("id", 1), ("mount", "/live"), ("status", 1), ("name", "Name"), ("description", "Words"), ("genre", "Genre"),
            ("url", "http://x/"), ("bitrate", "128"), ("meta_song", "Song"), ("meta_url", "http://song/"), ("nodes", 1),
            ("peak_nodes", 1), ("unique_nodes", 1), ("max_nodes", 50), ("average_connect_time", 0), ("tuneins", 1),
            ("extended_tuneins", 0), ("content_type", "audio/mpeg"), ("audio_info", "a=1"), ("sub_type", "")]


@pytest.mark.parametrize("target, options", [("/status", {}), ("/admin/status", {"user": ADMIN})])
def test_both_documents_tell_the_same(start_server, target, options):
    with on_air(start_server, mount("/live", UserMax=50)) as (server, _), Listener(server, "/live"):
        for title in (b"One", b"Two", b"Three"):
            set_title(server, title)
        ours, other = json_of(server, f"{target}.json", **options), as_json(xml_of(server, f"{target}.xml", **options))
        for document in (ours, other):
            del document["system_time"]
            for source in document["sources"]:
                for peer in source.get("peers", []):
                    del peer["lservice_time"], peer["pbytes_sent"]
        assert texts(ours) == other


def test_document_for_managers_has_songs_and_listeners(start_server):
    with on_air(start_server) as (server, source), Listener(server, "/live", headers={"User-Agent": "a player"}):
        source.push(media.join(media.mp3_frames(60)))
        for title in (b"One", b"Two"):
            set_title(server, title)
        shown = source_in(json_of(server, "/admin/status.json", user=ADMIN))
        assert [song["song_title"] for song in shown["played"]] == ["One"]
        assert [(peer["ip"], peer["user"], peer["user_agent"]) for peer in shown["peers"]] == [("127.0.0.1", "", "a player")]
        assert abs(shown["connect_time"] - time.time()) < 300 and shown["average_quarter_hour"] == 0
        assert shown["bytes_recv"] > 0
        root = xml_of(server, "/admin/status.xml", user=ADMIN)
        assert element_in(root).find("peers/peer").attrib["id"] == shown["peers"][0]["id"]


def test_public_document_stays_public_for_administrators(start_server):
    with on_air(start_server) as (server, _):
        shown = source_in(json_of(server, user=ADMIN))
        assert "played" not in shown and "peers" not in shown and "bytes_recv" not in shown
        assert element_in(xml_of(server, user=ADMIN)).find("played") is None


def test_mount_that_asks_for_a_login_is_for_its_managers(start_server):
    settings = mount("/live", Auth="yes") + mount("/open", 2)
    users = user_file(account("dj", "secret", "Mount Manager", [1]))
    with on_air(start_server, settings, users=users) as (server, _), HttpSource(server, "/open"):
        server.wait_source(2)
        assert [source["mount"] for source in json_of(server)["sources"]] == ["/open"]
        managed = json_of(server, "/admin/status.json", user=("dj", "secret"))
        assert [source["mount"] for source in managed["sources"]] == ["/live"]
        everything = json_of(server, "/admin/status.json", user=ADMIN)
        assert [source["mount"] for source in everything["sources"]] == ["/live", "/open"]
        assert fetch(server.port, "/admin/status.json").status == 401


def test_src_chooses_a_mount(start_server):
    with on_air(start_server, mount("/live") + mount("/other", 2)) as (server, _), HttpSource(server, "/other"):
        server.wait_source(2)
        for src, addresses in (("1", ["/live"]), ("/other", ["/other"]), ("7", []), ("/", [])):
            document = json_of(server, f"/status.json?src={src}")
            assert [source["mount"] for source in document["sources"]] == addresses
            assert document["active_sources"] == 2
            assert [source.findtext("mount") for source in xml_of(server, f"/status.xml?src={src}").find("sources")] == addresses


@pytest.mark.parametrize("callback, wraps", [("a$b", True), ("?x", True), ("_1", True), ("1a", False), ("a-b", False), ("", False)])
def test_callback(start_server, callback, wraps):
    server = start_server()
    answer = fetch(server.port, f"/status.json?callback={callback}")
    if wraps:
        assert answer.head["Content-Type"] == "application/javascript; charset=UTF-8"
        assert answer.text.startswith(f"{callback}(") and answer.text.endswith(");")
        read_json(answer.body[len(callback) + 1:-2])
    else:
        assert answer.head["Content-Type"] == "application/json; charset=UTF-8"
        read_json(answer.body)


@pytest.mark.parametrize("target, shared", [("/status.json", True), ("/status.json?callback=f", True), ("/status.xml", True),
                                            ("/7", False)])
def test_who_may_read_from_other_sites(start_server, target, shared):
    server = start_server()
    assert fetch(server.port, target).head.get("Access-Control-Allow-Origin") == ("*" if shared else None)


def test_three_hundred_mounts(start_server):
    count = 300
    settings = [pair for number in range(1, count + 1) for pair in mount(f"/m{number:03}", number)]
    names = list(HOSTILE.values())
    server = start_server(settings)
    with contextlib.ExitStack() as stack:
        for number in range(1, count + 1):
            name = names[number % len(names)][0].decode("latin-1")
            stack.enter_context(HttpSource(server, f"/m{number:03}", headers={"icy-name": name}))
        server.wait_until(lambda: json_of(server)["active_sources"] == count)
        document, root = json_of(server), xml_of(server)
        assert [source["mount"] for source in document["sources"]] == [f"/m{number:03}" for number in range(1, count + 1)]
        for number, source, element in zip(range(1, count + 1), document["sources"], root.find("sources")):
            assert source["name"] == in_json(names[number % len(names)])
            assert element.findtext("name") == in_xml(names[number % len(names)])


# ---- texts of strangers ------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("case", HOSTILE.values(), ids=HOSTILE)
def test_texts_of_a_source(start_server, case):
    text = case[0].decode("latin-1")
    headers = {name: text for name in ("icy-name", "icy-genre", "icy-url", "ice-description")}
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", headers=headers):
        server.wait_source()
        source, element = source_in(json_of(server)), element_in(xml_of(server))
        for key in ("name", "genre", "url", "description"):
            assert source[key] == in_json(case)
            assert element.findtext(key) == in_xml(case)


@pytest.mark.parametrize("case", [*HOSTILE.values(), *CONTROL.values()], ids=[*HOSTILE, *CONTROL])
def test_titles_of_a_stream(start_server, case):
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        put_title(source, case[0])
        server.wait_until(lambda: source_in(json_of(server))["meta_song"] == in_json(case), complaint="no title")
        assert element_in(xml_of(server)).findtext("meta_song") == in_xml(case)
        put_title(source, b"Next")
        server.wait_until(lambda: source_in(json_of(server))["meta_song"] == "Next", complaint="no title")
        played = source_in(json_of(server, "/admin/status.json", user=ADMIN))["played"]
        assert [song["song_title"] for song in played] == [in_json(case)]
        songs = element_in(xml_of(server, "/admin/status.xml", user=ADMIN)).findall("played/song_event/song_title")
        assert [song.text for song in songs] == [in_xml(case)]


@pytest.mark.parametrize("case", HOSTILE.values(), ids=HOSTILE)
def test_agents_of_listeners(start_server, case):
    with on_air(start_server) as (server, _):
        with listening(server, headers={"User-Agent": case[0].decode("latin-1")}):
            shown = source_in(json_of(server, "/admin/status.json", user=ADMIN))
            assert [peer["user_agent"] for peer in shown["peers"]] == [in_json(case)]
            peer = element_in(xml_of(server, "/admin/status.xml", user=ADMIN)).find("peers/peer")
            assert peer.findtext("user_agent") == in_xml(case)


@pytest.mark.parametrize("name", ["caf\xe9", "<b>", "a\x01b", "nu\0l"])
def test_names_of_listeners(start_server, name):
    with on_air(start_server) as (server, _):
        login = base64.b64encode(f"{name}:pass".encode("latin-1")).decode()
        with listening(server, headers={"Authorization": f"Basic {login}"}):
            shown = source_in(json_of(server, "/admin/status.json", user=ADMIN))
            assert [peer["user"] for peer in shown["peers"]] == [name]
            peer = element_in(xml_of(server, "/admin/status.xml", user=ADMIN)).find("peers/peer")
            assert peer.findtext("user") == re.sub("[\0\1]", " ", name)


def test_tags_of_a_relayed_stream(start_server):
    """What this server itself sends as the tags of a stream, and keys that are no names."""
    server = start_server(mount("/live"))
    words = (b"StreamTitle='Song';StreamUrl='';';Year='1999';';y2='19a';a%20b='1';%3Cx%3E='2';x%3Ay='3';"
             b"gr%F6%DFe='gro%DF';99='4';%00='5';")
    with HttpSource(server, "/live", method="PUT", chunked=True) as source:
        server.wait_source()
        data = media.join(media.mp3_frames(60))
        source.connection.send(b"%x; %s\r\n%s\r\n" % (len(data), words, data))
        server.wait_until(lambda: source_in(json_of(server))["meta_song"] == "Song", complaint="no title")
        tags = source_in(json_of(server))["meta_custom_tags"]
        assert tags["year"] == 1999 and tags["y2"] == "19a" and tags["gr\xf6\xdfe"] == "gro\xdf"
        assert tags["a b"] == 1 and tags["x>"] == 2 and tags["x:y"] == 3
        elements = element_in(xml_of(server)).find("meta_custom_tags")
        assert {tag.tag: tag.text for tag in elements} == {"year": "1999", "y2": "19a", "gr\xf6\xdfe": "gro\xdf"}


def test_what_describes_the_audio_is_not_converted(start_server):
    """A source that writes these in Latin-1 makes a document that is no UTF-8; its structure holds."""
    text = "caf\xe9\"<"
    server = start_server(mount("/live"))
    with HttpSource(server, "/live", headers={"icy-br": text, "ice-audio-info": text}):
        server.wait_source()
        body = fetch(server.port, "/status.json").body
        assert b'"bitrate":"caf\xe9\\"<"' in body and b'"audio_info":"caf\xe9\\"<"' in body
        assert source_in(json.loads(body.decode("latin-1")))["audio_info"] == text
        body = fetch(server.port, "/status.xml").body
        assert b"<bitrate>caf\xe9\"&lt;</bitrate>" in body
        assert element_in(ElementTree.fromstring(body.decode("latin-1"))).findtext("audio_info") == text


# ---- the feed of one line ----------------------------------------------------------------------------------------------

META = '<meta http-equiv="Pragma" content="no-cache"></head><body>'
PAGE = "<!DOCTYPE html><html><head>" + META


@pytest.mark.parametrize("target, kind, before, after", [
    ("/7", "html", PAGE, "<br /></body></html>"), ("/7.html", "html", PAGE, "<br /></body></html>"),
    ("/7?m=myscriptsucks", "html", "<HTML>" + META, "<br /></body></html>"), ("/7.html?m=plain", "plain", "", "\r\n")])
def test_line_of_the_default_mount(start_server, target, kind, before, after):
    with on_air(start_server, mount("/live", IsDefault="yes", UserMax=32)) as (server, _), Listener(server, "/live"):
        set_title(server, b"A, <B> & \xe9")
        answer = fetch(server.port, target)
        assert answer.head["Content-Type"] == f"text/{kind}; charset=UTF-8"
        assert answer.body == f"{before}1,1,1,32,1,128,A, &lt;B&gt; &amp; \xe9{after}".encode("latin-1")


@pytest.mark.parametrize("target, body", [("/7", PAGE + "</body></html>"), ("/7.html?m=plain", ""),
                                          ("/7?m=plain&src=2", ""), ("/7?m=plain&src=1", "0,0,0,-1,0,0,\r\n"),
                                          ("/7?m=plain&src=/live", "0,0,0,-1,0,0,\r\n")])
def test_line_without_a_default_mount(start_server, target, body):
    server = start_server(mount("/live"))
    assert fetch(server.port, target).text == body


# ---- the long poll -----------------------------------------------------------------------------------------------------

def start_polls(server, connections, target="/status.json?wfc=y"):
    """Long polls, which have been seen to wait."""
    for connection in connections:
        connection.send(request_text("GET", target))
    server.wait_read(connections)
    assert connections[-1].receive_for(QUIET) == b""


@contextlib.contextmanager
def poll(server, target="/status.json?wfc=y"):
    with Connection(server.port) as connection:
        start_polls(server, [connection], target)
        yield connection


def answered(connection):
    head = connection.receive_head()
    return connection.receive_body(head)


def test_poll_is_answered_when_a_title_changes(start_server):
    with on_air(start_server) as (server, _):
        for number in (1, 2):  # each waits for the next change
            with poll(server) as waiting, poll(server, "/status.xml?wfc=1") as other:
                set_title(server, b"Song %d" % number)
                assert source_in(read_json(answered(waiting)))["meta_song"] == f"Song {number}"
                assert element_in(ElementTree.fromstring(answered(other))).findtext("meta_song") == f"Song {number}"


def test_poll_is_answered_when_a_listener_comes_and_when_it_goes(start_server):
    with on_air(start_server) as (server, _):
        with poll(server) as waiting:
            listener = listening(server)
            assert source_in(read_json(answered(waiting)))["nodes"] == 1
        with poll(server) as waiting:
            listener.close()
            assert source_in(read_json(answered(waiting)))["nodes"] == 0


def test_poll_is_answered_when_a_source_comes_and_when_it_goes(start_server):
    server = start_server(mount("/live"))
    with poll(server) as waiting:
        with HttpSource(server, "/live"):
            assert source_in(read_json(answered(waiting)))["status"] == 1
    server.wait_until(lambda: json_of(server)["active_sources"] == 0, complaint="the source never goes")
    with poll(server) as waiting, HttpSource(server, "/live"):
        assert source_in(read_json(answered(waiting)))["status"] == 1


def test_poll_of_one_mount_does_not_see_the_others(start_server):
    with on_air(start_server, mount("/live") + mount("/other", 2)) as (server, _), HttpSource(server, "/other"):
        server.wait_source(2)
        with poll(server, "/status.json?wfc=y&src=1") as waiting:
            set_title(server, b"Elsewhere", "/other")
            assert waiting.receive_for(QUIET) == b""
            set_title(server, b"Here")
            document = read_json(answered(waiting))
            assert [source["mount"] for source in document["sources"]] == ["/live"]
            assert document["sources"][0]["meta_song"] == "Here"


def test_poll_keeps_its_connection(start_server):
    with on_air(start_server) as (server, _), Connection(server.port) as connection:
        for title in (b"One", b"Two"):
            start_polls(server, [connection])
            set_title(server, title)
            assert source_in(read_json(answered(connection)))["meta_song"] == title.decode()


def test_poll_that_is_given_up_is_let_go(start_server):
    with on_air(start_server) as (server, _):
        before = open_sockets(server)
        polls = [Connection(server.port) for _ in range(50)]
        start_polls(server, polls)
        assert open_sockets(server) == before + 50
        for connection in polls:
            connection.close()
        server.wait_until(lambda: open_sockets(server) == before, complaint="connections stay open")


def open_sockets(server):
    count = 0
    for name in os.listdir(f"/proc/{server.pid}/fd"):
        with contextlib.suppress(OSError):
            count += os.readlink(f"/proc/{server.pid}/fd/{name}").startswith("socket:")
    return count


def test_many_polls_leave_a_stream_untouched(start_server):
    count = 300
    with on_air(start_server) as (server, source), contextlib.ExitStack() as stack:
        listener = stack.enter_context(listening(server))
        polls = [stack.enter_context(Connection(server.port)) for _ in range(count)]
        start_polls(server, polls)
        stream = media.join(media.mp3_frames(400))
        source.push(stream[:len(stream) // 2])
        set_title(server, b"For all")
        for connection in polls:
            assert source_in(json.loads(answered(connection)))["meta_song"] == "For all"
        source.push(stream[len(stream) // 2:])
        whole = len(stream) - 2000  # the newest may wait in the reader
        assert listener.audio(whole) == stream[:whole]
