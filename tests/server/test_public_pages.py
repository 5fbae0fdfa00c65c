"""What a visitor without a login finds: pages, playlists, files for crawlers and movies, images."""
import datetime
import html.parser
import re
import struct
import xml.etree.ElementTree as ElementTree
import zlib

import pytest

from harness.answers import http_head, masked
from harness.client import Connection, fetch
from harness.server import mount
from harness.source import HttpSource
from harness.station import frames

NOT_KEPT = [("Cache-Control", "no-store, no-cache, must-revalidate"), ("Pragma", "no-cache"),
            ("Expires", "Mon, 25 Jan 2002 10:11:57 GMT")]
AUDIO = frames(100)
BROWSER = "Mozilla/5.0 (X11; Linux x86_64)"
ROBOTS = "User-agent: *\r\nDisallow: /stream*\r\n"

# path: content type, bytes
FILES = {
    "/favicon.ico": ("image/vnd.microsoft.icon", 5430),
    "/images/logo.png": ("image/png", 11936),
    "/images/quillwave.png": ("image/png", 2039),
    "/images/play.png": ("image/png", 2224),
    "/images/stop.png": ("image/png", 2058),
    "/flash/quillwave.swf": ("application/x-shockwave-flash", 71810),
}


class Outline(html.parser.HTMLParser):
    """The elements of a page that are open at its end, and the texts by element."""

    def __init__(self, page):
        super().__init__()
        self.open, self.texts, self.faults = [], {}, []
        self.feed(page)

    def handle_starttag(self, tag, attributes):
        self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        pass

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.faults.append(tag)

    def handle_data(self, data):
        if self.open:
            self.texts.setdefault(self.open[-1], []).append(data)


def outline(page):
    """Of a page that is whole."""
    found = Outline(page)
    assert found.open == [] and found.faults == []
    return found


# ---- pages -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("path", ["/", "/index.html", "/index.html?lp=y", "/?x=/about"])
def test_home_page(start_server, path):
    answer = fetch(start_server().port, path)
    assert answer.status == 200 and answer.head["Content-Type"] == "text/html; charset=UTF-8"
    page = outline(answer.text)
    assert page.texts["title"] == ["Quillwave Multimedia Server"]
    assert page.texts["h2"] == ["Quillwave Streams"]


def test_home_page_is_the_browsers_and_the_stream_the_players(start_server):
    server = start_server(mount("/live", IsDefault="yes"))
    with HttpSource(server, "/live") as source:
        server.wait_source()
        source.push(AUDIO)
        for path in ("/", "/index.html"):
            assert outline(fetch(server.port, path, headers={"User-Agent": BROWSER}).text).texts["h2"] == ["Quillwave Streams"]
        assert outline(fetch(server.port, "/index.html").text).texts["h2"] == ["Quillwave Streams"]
        with Connection(server.port) as player:
            player.send("GET / HTTP/1.0\r\nUser-Agent: Player/1.0\r\n\r\n")
            assert player.receive_head()["Content-Type"] == "audio/mpeg"


@pytest.mark.parametrize("path", ["/about", "/about/", "/aboutanything"])
def test_about_page(start_server, path):
    answer = fetch(start_server().port, path)
    assert answer.status == 200
    page = outline(answer.text)
    assert page.texts["title"] == ["Quillwave Multimedia Server"]
    assert page.texts["h2"] == ["About Quillwave"]
    lines = re.search(r'<div class="valueDisplay">(.*?)</div>', answer.text).group(1).split("<br />")
    assert len(lines) == 3
    assert lines[1] == "Quillwave Multimedia Server version 1.0.2 evergreen (Linux 64-bit)"
    compiled, day = lines[2][:12], lines[2][12:]
    assert compiled == "Compiled on "
    assert datetime.datetime.strptime(day, "%B %d, %Y").strftime("%B %d, %Y") == day


@pytest.mark.parametrize("path", ["/", "/about", "/robots.txt", "/crossdomain.xml", *FILES, "/stylesheets/main.css"])
def test_head_tells_the_length_and_sends_no_body(start_server, path):
    server = start_server()
    whole = fetch(server.port, path)
    assert int(whole.head["Content-Length"]) == len(whole.body)
    with Connection(server.port) as connection:
        connection.send(f"HEAD {path} HTTP/1.1\r\nHost: h\r\nConnection: close\r\n\r\n")
        assert connection.receive_head()["Content-Length"] == whole.head["Content-Length"]
        assert connection.receive_all() == b""


# ---- crawlers and movies ---------------------------------------------------------------------------------------------

def test_robots_stay_away_from_streams_that_anyone_may_hear(start_server):
    server = start_server([*mount("/open"), *mount("/closed", 2, User="source2", Auth="yes"),
                           *mount("/idle", 3, User="source3")])
    assert fetch(server.port, "/robots.txt").text == ROBOTS
    with HttpSource(server, "/open"), HttpSource(server, "/closed", user="source2"):
        server.wait_source(2)
        answer = fetch(server.port, "/robots.txt")
        assert answer.head["Content-Type"] == "text/plain"
        assert answer.text == ROBOTS + "Disallow: /open\r\n"


def test_crossdomain(start_server):
    answer = fetch(start_server().port, "/crossdomain.xml")
    assert answer.head["Content-Type"] == "text/xml"
    lines = answer.text.split("\r\n")
    assert lines[0] == '<?xml version="1.0"?>' and lines[1].startswith("<!DOCTYPE cross-domain-policy SYSTEM \"http://")
    assert lines[3].startswith("\t<allow-access-from ") and lines[-1] == ""
    policy = ElementTree.fromstring(answer.body)
    assert policy.tag == "cross-domain-policy"
    assert [(child.tag, child.attrib) for child in policy] == [("allow-access-from", {"domain": "*"})]


# ---- playlists -------------------------------------------------------------------------------------------------------

def m3u(url, name="Unnamed Stream"):
    return f"#EXTM3U\r\n#EXTINF:-1,{name}\r\n{url}\r\n"


@pytest.mark.parametrize("ending", ["", ".pls", ".m3u", ".", "pls", ".anything"])
def test_tunein_is_m3u(start_server, ending):
    server = start_server(mount("/live"))
    answer = fetch(server.port, f"/sbin/tunein{ending}?mnt=/live", headers={"Host": "radio.example:1234"})
    assert answer.status == 200 and answer.head["Content-Type"] == "audio/mpegurl"
    assert answer.text == m3u("http://radio.example:1234/live")


def test_tunein_leads_to_the_stream(start_server):
    server = start_server(mount("/my live/a&b"))
    with HttpSource(server, "/my%20live/a%26b", headers={"icy-name": "Night & Day"}) as source:
        server.wait_source()
        source.push(AUDIO)
        answer = fetch(server.port, "/sbin/tunein.pls?mnt=%2Fmy%20live%2Fa%26b", headers={"Host": f"127.0.0.1:{server.port}"})
        address = answer.text.split("\r\n")[2]
        assert answer.text == m3u(address, "Night & Day")
        assert address == f"http://127.0.0.1:{server.port}/my+live/a%26b"
        with Connection(server.port) as player:
            player.send(f"GET {address.removeprefix(f'http://127.0.0.1:{server.port}')} HTTP/1.0\r\n\r\n")
            assert player.receive_head().status == 200


def test_tunein_finds_what_listeners_find(start_server):
    server = start_server(mount("/live", IsDefault="yes"))
    for asked in ("/", "/;", "/live"):
        assert fetch(server.port, f"/sbin/tunein?mnt={asked}", headers={"Host": "h"}).text == m3u("http://h/live")


@pytest.mark.parametrize("path", ["/sbin/tunein", "/sbin/tunein?mnt=", "/sbin/tunein.pls?mnt=/nowhere"])
def test_tunein_without_a_stream_is_for_the_mounts(start_server, path):
    server = start_server(mount("/live"))
    answer = fetch(server.port, path)
    assert answer.status == 404


def test_a_mount_may_lie_below_tunein(start_server):
    server = start_server(mount("/sbin/tunein.mp3"))
    with HttpSource(server, "/sbin/tunein.mp3") as source:
        server.wait_source()
        source.push(AUDIO)
        with Connection(server.port) as player:
            player.send("GET /sbin/tunein.mp3 HTTP/1.0\r\n\r\n")
            assert player.receive_head()["Content-Type"] == "audio/mpeg"


def host_in_playlist(server, head):
    with Connection(server.port) as connection:
        connection.send(f"GET /sbin/tunein?mnt=/live HTTP/1.0\r\n{head}\r\n")
        body = connection.receive_body(connection.receive_head()).decode()
    assert body.startswith("#EXTM3U\r\n#EXTINF:-1,Unnamed Stream\r\nhttp://") and body.endswith("/live\r\n")
    assert body.count("\r\n") == 3
    return body.split("\r\n")[2].removeprefix("http://").removesuffix("/live")


@pytest.mark.parametrize("settings, expected", [
    ([], "localhost:{}"), ([("Hostname", "radio.example")], "radio.example:{}"),
])
def test_host_of_a_playlist_without_a_host_header(start_server, settings, expected):
    server = start_server([*mount("/live"), *settings])
    assert host_in_playlist(server, "") == expected.format(server.port)
    assert host_in_playlist(server, "Host:\r\n") == expected.format(server.port)


@pytest.mark.parametrize("host", ["h", "h:80", "h:8000", "[::1]:8000"])
def test_host_of_a_playlist_is_the_one_asked_for(start_server, host):
    server = start_server([*mount("/live"), ("Hostname", "radio.example")])
    assert host_in_playlist(server, f"Host: {host}\r\n") == host


def test_host_header_adds_no_line_to_a_playlist(start_server):
    server = start_server(mount("/live"))
    with Connection(server.port) as connection:
        connection.send("GET /sbin/tunein?mnt=/live HTTP/1.0\r\nHost: h\rhttp://elsewhere.example/\r\n\r\n")
        body = connection.receive_body(connection.receive_head())
    assert b"\r" not in body.replace(b"\r\n", b"") and body.count(b"\r\n") == 3


# ---- files -----------------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("path", FILES)
def test_file(start_server, path):
    server = start_server()
    kind, length = FILES[path]
    with Connection(server.port) as connection:
        connection.send(f"GET {path} HTTP/1.0\r\n\r\n")
        head = connection.receive_head()
        assert masked(head.raw) == http_head("HTTP/1.0 200 OK", "Close", [
            ("Content-Type", kind), ("Content-Length", str(length)), *NOT_KEPT])
        assert len(connection.receive_all()) == length


def chunks(png):
    """(name, content) of each chunk of a PNG whose checksums are right."""
    assert png[:8] == b"\x89PNG\r\n\x1a\n"
    at = 8
    while at < len(png):
        length, name = struct.unpack_from(">I4s", png, at)
        content = png[at + 8:at + 8 + length]
        assert struct.unpack_from(">I", png, at + 8 + length)[0] == zlib.crc32(name + content)
        yield name, content
        at += 12 + length


@pytest.mark.parametrize("path, width, height", [
    ("/images/logo.png", 96, 87), ("/images/quillwave.png", 126, 30), ("/images/play.png", 20, 20),
    ("/images/stop.png", 20, 20)])
def test_image(start_server, path, width, height):
    pieces = list(chunks(fetch(start_server().port, path).body))
    assert pieces[0] == (b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0))
    assert pieces[-1] == (b"IEND", b"")
    pixels = zlib.decompress(b"".join(content for name, content in pieces if name == b"IDAT"))
    assert len(pixels) == height * (1 + 4 * width)
    assert any(pixels)


def test_icon(start_server):
    icon = fetch(start_server().port, "/favicon.ico").body
    assert struct.unpack_from("<HHH", icon) == (0, 1, 2)
    end = 6 + 2 * 16
    for place, side in enumerate((16, 32)):
        width, height, _, _, planes, bits, length, at = struct.unpack_from("<BBBBHHII", icon, 6 + 16 * place)
        assert (width, height, planes, bits, at) == (side, side, 1, 32, end)
        assert struct.unpack_from("<IiiHH", icon, at) == (40, side, 2 * side, 1, 32)
        end = at + length
    assert end == len(icon)


def test_movie(start_server):
    movie = fetch(start_server().port, "/flash/quillwave.swf").body
    assert movie[:4] == b"CWS\x0c"
    assert struct.unpack_from("<I", movie, 4)[0] == 153050 == 8 + len(zlib.decompress(movie[8:]))


def test_style_sheet(start_server):
    answer = fetch(start_server().port, "/stylesheets/main.css")
    assert answer.head["Content-Type"] == "text/css"
    sheet = answer.text
    assert sheet.count("{") == sheet.count("}")
    assert "/*--- DROPDOWN ---*/" in sheet.splitlines()
    for selector in ("body,td,th, html", "a img", ".pageBackground", ".push", ".footerBar", ".pageBody", ".pageContent",
                     ".pageContentTitle", ".headerBar", "#quillPlayer", ".ferncrossing", ".siteMenu", ".siteMenuItem",
                     "#siteMenuItemSelected", ".pageBar", ".barButton", ".pageAlert", ".innerAlert", ".tooltip",
                     ".tabView", ".tabView ul", ".tabView ul li a", ".tabView li", ".tabView div", ".tableView",
                     ".tableView th", ".tableView td", ".tableViewHead td", ".tableViewHead a", ".tableViewCol td",
                     ".tableViewColDisabled td", ".tableViewIndex", ".messageBox", ".messageBox h2", ".messageBox hr",
                     ".messageBox .valueDisplay", ".messageBox table", ".footerSiteMap", ".footerSiteMap a",
                     ".footerSiteMap li", ".footerSiteMap span", ".footerSiteMap li ul", ".footerSiteMap li ul li",
                     ".footerSiteMap li ul li span", ".footerSiteMap li ul li a", ".footerTermsCW", "div#preloaderPlay",
                     "div#preloaderStop"):
        assert re.search(rf"(^|, ?|\}}\n){re.escape(selector)}(,[^{{]*)? \{{", sheet, re.MULTILINE), selector


def test_a_kept_connection_takes_one_file_after_the_other(start_server):
    server = start_server()
    with Connection(server.port) as connection:
        for path, (kind, length) in FILES.items():
            connection.send(f"GET {path} HTTP/1.1\r\nHost: h\r\n\r\n")
            head = connection.receive_head()
            assert (head["Content-Type"], head["Connection"]) == (kind, "Keep-Alive")
            assert len(connection.receive_body(head)) == length
