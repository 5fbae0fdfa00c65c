"""The panel's addresses: who gets which page, how it is answered, and titles that come by an address."""
import base64
import contextlib
import hashlib
import re

import pytest

from harness.accounts import account, ban, user_file
from harness.answers import http_head, masked
from harness.client import Connection, Head, basic, fetch, request_text
from harness.listener import Listener
from harness.server import ADMIN, mount
from harness.source import HttpSource, IcySource
from harness.station import frames, on_air, status_of

PASSWORD = "secret"
MOUNTS = [*mount("/one", 1, User=None, Pass=None), *mount("/two", 2, User=None, Pass=None)]
USERS = user_file(
    account("watcher", PASSWORD, "Statistics"),
    account("first", PASSWORD, "Mount Manager", [1]),
    account("encoder", PASSWORD, "Mount Source", [2]),
    account("both", PASSWORD, "Mount Manager"),
    account("hearer", PASSWORD, "Listener"),
)
HTML = "text/html; charset=UTF-8"
NOT_KEPT = [("Cache-Control", "no-store, no-cache, must-revalidate"), ("Pragma", "no-cache"),
            ("Expires", "Mon, 25 Jan 2002 10:11:57 GMT")]
TITLE_TAKEN = (b'<?xml version="1.0"?>\r\n<iceresponse><message>Metadata update successful</message>'
               b"<return>1</return></iceresponse>")


@pytest.fixture
def station(start_server):
    """Two mounts without sources, and an account of each kind."""
    return start_server(MOUNTS, users=USERS)


def login(name):
    return ADMIN if name == "admin" else (name, PASSWORD)


def ask(server, name, path, **options):
    return fetch(server.port, path, user=login(name) if name else None, **options)


def exchange(server, request):
    """Everything that the server sends until it ends the connection."""
    with Connection(server.port) as connection:
        connection.send(request)
        return connection.receive_all()


def title_of(text):
    return re.search("<title>(.*?)</title>", text).group(1).removeprefix("Quillwave Multimedia Server").removeprefix(" - ")


def selected_tab(text):
    return re.search('<li id="selected">(.*?)</li>', text).group(1)


def answers_in(data):
    """The heads and bodies of answers that follow each other."""
    while data:
        head, _, rest = data.partition(b"\r\n\r\n")
        head = Head(head + b"\r\n\r\n")
        length = int(head["Content-Length"])
        yield head, rest[:length].decode(errors="replace")
        data = rest[length:]


# ---- who gets which page ---------------------------------------------------------------------------------------------

def test_pages_for_everybody(station):
    for path in ("/robots.txt", "/crossdomain.xml", "/", "/index.html", "/view/1/", "/view/1/played", "/about", "/aboutanything",
                 "/status.xml", "/status.json", "/7", "/7.html", "/favicon.ico", "/images/logo.png", "/images/quillwave.png",
                 "/images/play.png", "/images/stop.png", "/stylesheets/main.css", "/flash/quillwave.swf"):
        for name in (None, "hearer", "admin"):
            assert ask(station, name, path).status == 200, path


def test_what_is_no_page_is_a_mount_or_nothing(station):
    for path in ("/nothing", "/status.json/", "/7/", "/view", "/sbin/tunein", "/sbin/tunein?mnt=/none", "/images/", "/Admin"):
        answer = ask(station, None, path)
        assert answer.status == 404 and "The requested resource could not be located" in answer.text, path


ADMIN_PATHS = ["/admin", "/admin/", "/admin.cgi", "/admin/index.html", "/administrator", "/admin/nothing", "/admin/listeners",
               "/admin/configure", "/admin/configure_defaults", "/admin/users", "/admin/users?m=b", "/admin/users?m=v", "/admin/log",
               "/admin/stream/1", "/admin/stream/1/", "/admin/stream/2/played", "/admin/stream/3/", "/admin/stream/x/",
               "/admin/receiver/x", "/admin/status.xml", "/admin/status.json"]


@pytest.mark.parametrize("name", [None, "watcher", "hearer"])
def test_who_manages_nothing_is_asked_for_a_login_everywhere(station, name):
    for path in [*ADMIN_PATHS, "/admin/tail/log", "/admin/metadata?mount=/one&mode=updinfo&song=x"]:
        answer = ask(station, name, path)
        assert (answer.status, title_of(answer.text)) == (401, "Not Authenticated"), path


@pytest.mark.parametrize("name", ["admin", "both"])
def test_pages_of_who_manages_several_streams(station, name):
    expected = {path: (200, "Administration Panel") for path in ("/admin", "/admin/", "/admin/index.html", "/admin/listeners")}
    for path in ("/admin/receiver/x", "/admin/stream/1/", "/admin/stream/2/played"):
        expected[path] = (200, "")
    for path in ("/admin/stream/3/", "/admin/stream/x/"):
        expected[path] = (404, "Stream ID Not Found")
    for path in ("/admin/configure", "/admin/configure_defaults"):
        expected[path] = (200, "Administration Panel") if name == "admin" else (404, "Page Not Found")
    for path in ("/admin/users", "/admin/users?m=b", "/admin/users?m=v"):
        expected[path] = (200, "") if name == "admin" else (404, "Page Not Found")
    expected["/admin/log"] = (200, "Quillwave Administration - Log") if name == "admin" else (404, "Page Not Found")
    for path in ("/admin.cgi", "/administrator", "/admin/nothing", "/admin/stream"):
        expected[path] = (404, "Page Not Found")
    for path, wanted in expected.items():
        answer = ask(station, name, path)
        assert (answer.status, title_of(answer.text)) == wanted, path
    for path in ("/admin/status.xml", "/admin/status.json"):
        assert ask(station, name, path).status == 200
    redirect = ask(station, name, "/admin/stream/1")
    assert (redirect.status, redirect.head["Location"]) == (303, "/admin/stream/1/")


@pytest.mark.parametrize("name", ["first", "encoder"])
def test_who_manages_one_stream_finds_it_at_every_address(station, name):
    for path, tab in {"/admin/": "Stats", "/admin/listeners": "Listeners", "/admin/users": "Users", "/admin/configure": "Configure",
                      "/admin/log": "Stats", "/admin/tail/log": "Stats", "/admin/stream/7/bans": "Bans", "/admin/reserve": "Reserve",
                      "/admin/publication": "Publication Lists", "/administrator/played": "Played"}.items():
        answer = ask(station, name, path)
        assert (answer.status, selected_tab(answer.text)) == (200, tab), path
    for path in ("/admin", "/admin.cgi", "/admin/stream/1/../"):
        answer = ask(station, name, path)
        assert answer.status == (200 if path.endswith("/") else 303)
    assert ask(station, name, "/admin?m=b").head["Location"] == "/admin/"


def test_tabs_of_a_stream(station):
    for word, tab in {"": "Stats", "stats": "Stats", "listeners": "Listeners", "played": "Played", "publication": "Publication Lists",
                      "configure": "Configure", "users": "Users", "bans": "Bans", "reserve": "Reserve", "else": "Stats"}.items():
        answer = ask(station, "admin", f"/admin/stream/1/{word}")
        assert (answer.status, selected_tab(answer.text)) == (200, tab)
        assert re.findall('<li><a href="([a-z]+)">', answer.text) == [
            link for link, label in (("stats", "Stats"), ("listeners", "Listeners"), ("played", "Played"),
                                     ("publication", "Publication Lists"), ("configure", "Configure"), ("users", "Users"),
                                     ("bans", "Bans"), ("reserve", "Reserve")) if label != tab]


def test_banned_address_gets_no_page(start_server):
    server = start_server(MOUNTS, users=user_file(banned=ban("127.0.0.1")))
    answer = ask(server, "admin", "/admin")
    assert (answer.status, answer.body) == (403, b"Forbidden")


def test_root_with_a_mount_is_a_page_for_browsers_and_the_stream_for_players(start_server):
    with on_air(start_server, mount("/live", IsDefault="yes")) as (server, _):
        browser = {"User-Agent": "Mozilla/5.0 (X11)"}
        assert title_of(fetch(server.port, "/", headers=browser).text) == ""
        assert title_of(fetch(server.port, "/index.html").text) == ""
        with Listener(server, "/") as listener:
            assert listener.head["Content-Type"] == "audio/mpeg"


def test_stream_page_of_a_mount_that_asks_for_a_login(start_server):
    users = user_file(account("hearer", PASSWORD, "Listener", [1]), account("foreign", PASSWORD, "Listener", [2]))
    server = start_server([*mount("/one", 1, Auth="yes"), *mount("/two", 2)], users=users)
    assert ask(server, "hearer", "/view/1/").status == 200
    for name in (None, "foreign"):
        # the mounts are asked next, and have nothing there
        refusal, second = answers_in(exchange(server, request_text("GET", "/view/1/", {
            "Authorization": basic(*login(name)) if name else None})))
        assert refusal[0].status == 401 and "WWW-Authenticate" in refusal[0]
        assert second[0].status == 404
    assert ask(server, None, "/view/2/").status == 200


def test_mount_at_an_address_of_the_panel_is_warned_of(start_server):
    server = start_server([*mount("/about.mp3", 1), *mount("/live", 2)])
    server.wait_log("Warning: Mount /about.mp3 lies at an address of the web panel and cannot be reached there.")
    assert not any("Warning: Mount /live" in line for line in server.log_lines())
    assert "About" in ask(server, None, "/about.mp3").text


# ---- answers, byte for byte ------------------------------------------------------------------------------------------

def test_head_of_a_page(station):
    for version in ("HTTP/1.0", "HTTP/1.1"):
        answer = fetch(station.port, "/about", version=version)
        assert masked(answer.head.raw) == http_head(f"{version} 200 OK", "Close", [
            ("Content-Type", HTML), ("Content-Length", len(answer.body)), *NOT_KEPT])


def test_head_of_a_feed_lets_other_sites_read_it(station):
    answer = fetch(station.port, "/status.json")
    assert masked(answer.head.raw) == http_head("HTTP/1.1 200 OK", "Close", [
        ("Content-Type", "application/json; charset=UTF-8"), ("Content-Length", len(answer.body)), *NOT_KEPT,
        ("Access-Control-Allow-Origin", "*")])


def test_head_of_a_refusal_asks_for_a_login(station):
    answer = fetch(station.port, "/admin", version="HTTP/1.0")
    assert masked(answer.head.raw) == http_head("HTTP/1.0 401 Unauthorized", "Close", [
        ("WWW-Authenticate", 'Basic realm="Quillwave Server"'), ("Content-Type", HTML),
        ("Content-Length", len(answer.body)), *NOT_KEPT])
    challenge = fetch(station.port, "/admin").head["WWW-Authenticate"]
    assert re.fullmatch('Digest realm="Quillwave Server", nonce="[A-Za-z0-9+/=]+", algorithm=MD5, qop="auth"', challenge)


def test_redirect_is_a_head_alone(station):
    data = exchange(station, request_text("GET", "/view/5?a=b", {"Connection": "close"}))
    assert masked(data) == http_head("HTTP/1.1 303 See Other", "Close", [("Content-Length", 0), ("Location", "/view/5/")])


def test_control_bytes_of_a_path_do_not_reach_the_redirect(station):
    answer = fetch(station.port, "/view/5\rX-Evil:yes")
    assert answer.head.get("Location") in (None, "/view/5X-Evil:yes/") and "X-Evil" not in answer.head


def test_head_request_gets_the_head_of_the_page(station):
    for name, path in ((None, "/about"), ("admin", "/admin/configure"), (None, "/stylesheets/main.css"), (None, "/status.xml"),
                       (None, "/admin")):
        page = ask(station, name, path)
        data = exchange(station, request_text("HEAD", path, {
            "Connection": "close", "Authorization": basic(*login(name)) if name else None}))
        assert data.endswith(b"\r\n\r\n") and data.count(b"\r\n\r\n") == 1
        head = Head(data)
        assert (head.status, int(head["Content-Length"])) == (page.status, len(page.body)), path


def test_post_is_answered_as_a_get_is(station):
    assert ask(station, None, "/about", method="POST", body=b"a=b").status == 200
    assert ask(station, "admin", "/admin/", method="POST", body=b"").status == 200


def test_wrong_address_of_the_panel_gets_a_refusal_and_an_empty_page(station):
    for name, path in (("admin", "/administrator"), ("admin", "/admin/stream"), ("both", "/admin/configure"), ("both", "/admin/tail/log")):
        data = exchange(station, request_text("GET", path, {"Authorization": basic(*login(name))}))
        (refusal, first), (head, second) = answers_in(data)
        assert (refusal.status, title_of(first)) == (404, "Page Not Found")
        assert (head.status, title_of(second)) == (200, "Administration Panel")
        assert 'overflow: auto;"></div>' in second
        assert refusal["Connection"] == head["Connection"] == "Close"


def test_refused_stream_page_is_followed_by_what_lies_there(start_server):
    server = start_server(mount("/view/abc/"))
    with IcySource(server) as source:
        server.wait_source()
        source.push(frames(100))
        with Connection(server.port) as connection:
            connection.send(request_text("GET", "/view/abc/", version="HTTP/1.0"))
            head = connection.receive_head()
            assert head.status == 404 and b"This stream id is invalid." in connection.receive_body(head)
            assert connection.receive_head()["Content-Type"] == "audio/mpeg"
            assert connection.receive(1000)


# ---- kept connections ------------------------------------------------------------------------------------------------

def test_many_pages_on_one_connection(station):
    with Connection(station.port) as connection:
        for path, status in (("/about", 200), ("/view/1", 303), ("/stylesheets/main.css", 200), ("/admin", 401), ("/nothing", 404),
                             ("/status.json", 200), ("/favicon.ico", 200), ("/view/1/", 200)):
            connection.send(request_text("GET", path))
            head = connection.receive_head()
            assert (head.status, head["Connection"]) == (status, "Keep-Alive"), path
            connection.receive_body(head)


def test_requests_that_come_together_are_answered_in_their_order(station):
    paths = ["/about", "/view/1", "/images/play.png", "/status.xml", "/nothing"]
    closing = request_text("GET", "/7", {"Connection": "close"})
    data = exchange(station, "".join(request_text("GET", path) for path in paths) + closing)
    assert [head.status for head, _ in answers_in(data)] == [200, 303, 200, 200, 404, 200]


def test_nothing_is_answered_behind_a_pair_of_answers(station):
    login_line = {"Authorization": basic(*ADMIN)}
    data = exchange(station, request_text("GET", "/admin/nothing", login_line) + request_text("GET", "/about", login_line))
    assert [head.status for head, _ in answers_in(data)] == [404, 200]


# ---- logins ----------------------------------------------------------------------------------------------------------

def md5(text):
    return hashlib.md5(text.encode()).hexdigest()


def digest(method, uri, challenge, user, password, form):
    """An Authorization header in the form of some client."""
    realm, nonce = (re.search(f'{key}="([^"]*)"', challenge).group(1) for key in ("realm", "nonce"))
    response = md5(":".join([md5(f"{user}:{realm}:{password}"), nonce, "00000001", "0a4f113b", "auth", md5(f"{method}:{uri}")]))
    return form.format(user=user, realm=realm, nonce=nonce, uri=uri, response=response, nc="00000001", cnonce="0a4f113b")


DIGEST_FORMS = {
    "Chromium": 'Digest username="{user}", realm="{realm}", nonce="{nonce}", uri="{uri}", algorithm=MD5, response="{response}", '
                'qop=auth, nc={nc}, cnonce="{cnonce}"',
    "curl": 'Digest username="{user}",realm="{realm}",nonce="{nonce}",uri="{uri}",cnonce="{cnonce}",nc={nc},algorithm=MD5,'
            'response="{response}",qop="auth"',
    "quoted": 'digest  username = "{user}" ,realm="{realm}", nonce="{nonce}", uri="{uri}", response="{response}", qop="auth", '
              'nc="{nc}", cnonce="{cnonce}", opaque="a, b=c"',
}


@pytest.mark.parametrize("form", DIGEST_FORMS.values(), ids=DIGEST_FORMS)
def test_digest_login_of_a_browser(station, form):
    challenge = fetch(station.port, "/admin").head["WWW-Authenticate"]
    for path in ("/admin", "/admin/users?m=b", "/admin/listeners?s=d"):
        for user, password, status in ((*ADMIN, 200), ("both", PASSWORD, 404 if "users" in path else 200), ("admin", "wrong", 401),
                                       ("nobody", "", 401), ("hearer", PASSWORD, 401)):
            header = digest("GET", path, challenge, user, password, form)
            assert fetch(station.port, path, headers={"Authorization": header}).status == status, (path, user)


def test_digest_answer_for_another_address_or_method_is_no_login(station):
    challenge = fetch(station.port, "/admin").head["WWW-Authenticate"]
    for method, uri in (("GET", "/admin/"), ("POST", "/admin"), ("GET", "/admin?m=b")):
        header = digest(method, uri, challenge, *ADMIN, DIGEST_FORMS["Chromium"])
        assert fetch(station.port, "/admin", headers={"Authorization": header}).status == 401


@pytest.mark.parametrize("options", [["--digest"], ["--anyauth"], ["--basic"], ["--basic", "--http1.0"], ["--anyauth", "--http1.0"]],
                         ids=" ".join)
def test_curl_logs_in(station, start_program, tmp_path, options):
    for password, path, status in (("hackme", "/admin/users?m=b", "200"), ("wrong", "/admin/users", "401")):
        curl = start_program("curl", "-sS", *options, "-u", f"admin:{password}", "-o", tmp_path / "page", "-w", "status %{http_code}.",
                             f"http://{station.host}:{station.port}{path}")
        assert curl.wait_end() == 0
        assert f"status {status}." in curl.said()
    assert b"Not Authenticated" in (tmp_path / "page").read_bytes()


def test_name_without_a_password_is_no_login(station):
    for credentials in (b"admin", b"admin:", b":hackme", b":"):
        header = {"Authorization": "Basic " + base64.b64encode(credentials).decode()}
        assert fetch(station.port, "/admin", headers=header).status == 401, credentials


def test_name_of_the_login_is_shown_encoded(station):
    answer = fetch(station.port, "/about", user=("<script>", "x"))
    assert "Welcome &lt;script&gt;! &nbsp;" in answer.text and "<script>!" not in answer.text
    assert "Welcome" not in fetch(station.port, "/about").text


# ---- titles that come by an address ----------------------------------------------------------------------------------

@contextlib.contextmanager
def titled(start_server):
    """(server, function that gives the title that a listener hears next, as bytes)."""
    users = user_file(account("dj", PASSWORD, "Mount Source", [1]), account("other", PASSWORD, "Mount Manager", [2]))
    server = start_server([*mount("/live", 1, MetaInterval=1024, User=None, Pass=None), *mount("/two", 2, User=None, Pass=None)], users=users)
    sent = 0

    def feed():
        nonlocal sent
        source.push(frames(80, sent))
        sent += 80

    with HttpSource(server, "/live", user="dj", password=PASSWORD) as source:
        server.wait_source()
        feed()
        with Listener(server, "/live", metadata=True) as listener:
            listener.audio(2000)

            def next_title():
                heard = len(listener.blocks)
                feed()
                listener.audio_until(lambda: len(listener.blocks) > heard)
                return re.match(rb"StreamTitle='(.*?)';", listener.blocks[-1][1]).group(1)

            yield server, next_title


def test_title_with_the_login_of_the_source(start_server):
    with titled(start_server) as (server, next_title):
        for path in ("/admin.cgi", "/admin"):
            answer = fetch(server.port, f"{path}?pass=dj:{PASSWORD}&mode=updinfo&song=At%20{path}")
            assert masked(answer.head.raw) == http_head("HTTP/1.1 200 OK", "Close", [("Content-Length", 0)])
            assert next_title() == b"At " + path.encode()


def test_title_update_leaves_a_kept_connection_usable(start_server):
    with titled(start_server) as (server, next_title), Connection(server.port) as connection:
        for song in ("One", "Two"):
            connection.send(request_text("GET", f"/admin.cgi?pass=dj:{PASSWORD}&mode=updinfo&song={song}"))
            head = connection.receive_head()
            assert (head.status, connection.receive_body(head)) == (200, b"")
            assert next_title() == song.encode()


def test_title_with_a_login_of_the_panel(start_server):
    with titled(start_server) as (server, next_title):
        for name in ("dj", "admin"):
            answer = ask(server, name, f"/admin/metadata?mode=updinfo&mount=/live&song=By%20{name}")
            assert masked(answer.head.raw) == http_head("HTTP/1.1 200 OK", "Close", [
                ("Content-Type", "text/xml"), ("Content-Length", len(TITLE_TAKEN))])
            assert answer.body == TITLE_TAKEN
            assert next_title() == b"By " + name.encode()


def test_title_for_a_foreign_mount_is_met_with_silence(start_server):
    with titled(start_server) as (server, next_title):
        request = request_text("GET", "/admin/metadata?mode=updinfo&mount=/two&song=x", {
            "Authorization": basic("dj", PASSWORD), "Connection": "close"})
        assert exchange(server, request) == b""
        assert exchange(server, request.replace("/two", "/none")) == b""


def test_title_with_a_wrong_login_changes_nothing(start_server):
    with titled(start_server) as (server, next_title):
        ask(server, "dj", "/admin/metadata?mode=updinfo&mount=/live&song=Right")
        assert next_title() == b"Right"
        for words in ("dj:wrong", "dj:", "dj", ":", "admin:hackme", f"other:{PASSWORD}"):
            assert fetch(server.port, f"/admin.cgi?mode=updinfo&song=Wrong&pass={words}").status == 401, words
        assert ask(server, "hearer", "/admin/metadata?mode=updinfo&mount=/live&song=Wrong").status == 401
        with Listener(server, "/live", metadata=True) as listener:
            listener.audio_until(lambda: listener.titles)
            assert listener.titles[0] == "Right"


def test_apostrophe_and_control_bytes_of_a_title(start_server):
    with titled(start_server) as (server, next_title):
        fetch(server.port, f"/admin.cgi?pass=dj:{PASSWORD}&mode=updinfo&song=It's%0Aa%00b")
        assert next_title() == b"It\x92s a b"


# ---- the event log as it is written ----------------------------------------------------------------------------------

def test_log_tail_follows_the_log(station):
    with Connection(station.port) as connection:
        connection.send(request_text("GET", "/admin/tail/log", {"Authorization": basic(*ADMIN)}))
        head = connection.receive_head()
        assert masked(head.raw) == http_head("HTTP/1.1 200 OK", "Keep-Alive", [("Transfer-Encoding", "chunked")])
        tail = b""
        for number in range(3):
            fetch(station.port, f"/marker/{number}")
            while f"(/marker/{number})".encode() not in tail:
                line, _ = connection.receive_chunk()
                assert line.endswith(b"\r\n")
                tail += line
        lines = tail.decode().split("\r\n")
        assert lines[:-1] == [line for line in station.read("quillwave.log").splitlines() if line][-len(lines) + 1:]


def test_log_tail_of_an_older_client_is_plain(station):
    with Connection(station.port) as connection:
        connection.send(request_text("GET", "/admin/tail/log", {"Authorization": basic(*ADMIN)}, "HTTP/1.0"))
        assert masked(connection.receive_head().raw) == http_head("HTTP/1.0 200 OK", "Close")
        fetch(station.port, "/marker")
        connection.receive_until(b"(/marker)")


def test_log_tail_ends_with_the_account(start_server):
    server = start_server(MOUNTS, users=user_file(account("boss", PASSWORD, "Administrator")))
    with Connection(server.port) as connection:
        connection.send(request_text("GET", "/admin/tail/log", {"Authorization": basic("boss", PASSWORD)}))
        assert connection.receive_head().status == 200
        deletion = {"Content-Type": "application/x-www-form-urlencoded"}
        assert ask(server, "admin", "/admin/users", method="POST", headers=deletion, body=b"action=Delete&boss=on").status == 200
        fetch(server.port, "/not-for-boss")
        assert b"not-for-boss" not in connection.receive_all()


def test_log_tails_hold_up_nobody(start_server):
    server = start_server([*MOUNTS, ("ThreadPool", 3)])
    with contextlib.ExitStack() as stack:
        tails = [stack.enter_context(Connection(server.port)) for _ in range(40)]
        for tail in tails:
            tail.send(request_text("GET", "/admin/tail/log", {"Authorization": basic(*ADMIN)}))
            tail.receive_head()
        assert status_of(server, "/about") == 200
        for tail in tails:
            tail.receive_until(b"WEB REQ")
    assert status_of(server, "/about") == 200


# ---- the log of requests ---------------------------------------------------------------------------------------------

def test_page_is_logged(station):
    fetch(station.port, "/about?a=b", headers={"User-Agent": "agent\tx", "Referer": "http://r/"})
    line = station.wait_log("WEB REQ")
    assert re.fullmatch(rf"<127.0.0.1> WEB REQ: 127.0.0.1:{station.port}/about {{UA: agent x}} \|R: http://r/\| \[I: [0-9a-f-]+\]", line), line


def test_pages_are_not_logged_when_the_setting_says_so(start_server):
    server = start_server({"WebLog": "no"})
    fetch(server.port, "/about")
    fetch(server.port, "/nothing")
    server.wait_log("(/nothing)")
    assert not any("WEB REQ" in line for line in server.log_lines())
