"""The listener pages of the panel: who sees whom, and what the buttons do to listeners, accounts and files."""
import contextlib
import re

import pytest

from harness import media
from harness.accounts import account, user_file
from harness.client import Connection, basic, request_text
from harness.operator import comes_true
from harness.panel import page, post, rows_of, session_of
from harness.server import ADMIN, mount
from harness.source import HttpSource
from harness.station import listening, status_of

USERS = "quillwave-users.xml"
SEVERAL = ("several", "x")  # manages the mounts 1 and 2
ONE = ("one", "x")  # manages mount 1
WATCHER = ("watcher", "x")
STRANGER = ("nobody", "x")
ACCOUNTS = user_file(account("several", "x", "Mount Manager", (1, 2)), account("one", "x", "Mount Manager", (1,)),
                     account("watcher", "x", "Statistics"))
MOUNTS = ("/live", "/other", "/foreign")
ALL = "/admin/listeners"
UUID = re.compile(r'id="select_check" name="([^"]*)"')
AWAY = "127.0.3.2"  # an address of this machine that is not the tests' own


@contextlib.contextmanager
def stations(start_server, on_air=MOUNTS, **keys):
    """A server with three mounts, of which these have a source. `keys` are settings of the first."""
    settings = [*mount("/live", 1, **keys), *mount("/other", 2), *mount("/foreign", 3)]
    server = start_server(settings, users=ACCOUNTS)
    with contextlib.ExitStack() as sources:
        for count, address in enumerate(on_air, 1):
            first = 1000000 * (MOUNTS.index(address) + 1)
            stream = media.mp3_frames(first=first)
            sources.enter_context(HttpSource(server, address, stream, user=ADMIN[0], password=ADMIN[1], pace=4))
            server.wait_source(count)
        yield server


def listen(server, target="/live", agent="Player", source=None, login=None):
    headers = {"User-Agent": agent, **({"Authorization": basic(*login)} if login else {})}
    return listening(server, target, headers=headers, source=source)


def uuid_of(server, agent="Player"):
    """The listener with this agent, as the administrator's page names it."""
    for row in page(server, ALL).text.split("<tr ")[1:]:
        if f"<td>{agent}</td>" in row:
            return UUID.search(row).group(1)
    raise AssertionError(f"{agent} is not listed")


def press(server, button, agent="Player", user=ADMIN, target=ALL, **fields):
    """Ticks a listener and presses a button of the page."""
    answer = post(server, target, {uuid_of(server, agent): "on", "action": button, **fields}, user)
    assert answer.status == 200, answer.head
    return answer


def agents(answer):
    """The agents of a page's listeners, in its order."""
    return [row[3] for row in rows_of(answer) if len(row) == 7]


# ---- who sees whom ---------------------------------------------------------------------------------------------------

def test_everybody_sees_the_listeners_of_his_own_mounts(start_server):
    with stations(start_server) as server, listen(server, "/live", "A"), listen(server, "/other", "B"), \
            listen(server, "/foreign", "C"):
        assert sorted(agents(page(server, ALL))) == ["A", "B", "C"]
        assert sorted(agents(page(server, ALL, SEVERAL))) == ["A", "B"]
        assert agents(page(server, ALL, ONE)) == ["A"]
        assert agents(page(server, "/admin/stream/2/listeners")) == ["B"]
        assert agents(page(server, "/admin/stream/2/listeners", SEVERAL)) == ["B"]
        assert agents(page(server, "/admin/stream/2/listeners", ONE)) == ["A"]  # he has one stream, whatever he asks for
        assert page(server, "/admin/stream/3/listeners", SEVERAL).status == 404
        for nobody in (STRANGER, WATCHER, None):
            answer = page(server, ALL, nobody)
            assert answer.status == 401 and "Player" not in answer.text


def test_a_row_tells_what_a_listener_hears(start_server):
    with stations(start_server) as server, listen(server, "/live", "Agent", AWAY, ("joe", "x")) as listener:
        listener.audio(8192)
        row, totals = rows_of(page(server, ALL))
        assert row[:4] == [AWAY, "/live", "joe", "Agent"]
        assert re.fullmatch(r"\d+ secs", row[4])
        assert re.fullmatch(r"\d+\.\d\d KiB", row[5])
        assert re.fullmatch(r"\d+(\.\d\d k| )bps", row[6])
        assert totals[-3] == "Totals:" and re.fullmatch(r"\d+\.\d\d KiB", totals[-2])


def test_nobody_listens(start_server):
    with stations(start_server) as server:
        assert rows_of(page(server, ALL)) == [["There are currently no listeners connected."]]


def test_a_listener_of_a_fallback_shows_what_is_played(start_server):
    with stations(start_server, ["/other"], Backup="/other") as server, listen(server):
        assert [row[1] for row in rows_of(page(server, ALL))[:1]] == ["/live (/other)"]


def test_what_listeners_send_never_becomes_markup(start_server):
    hostile = "\"'><script>alert(1)</script>"
    with stations(start_server) as server:
        with listening(server, "/live?<script>", headers={"User-Agent": hostile, "Cookie": "<b>=<i>", "X": "<script>",
                                                          "Authorization": basic(hostile, "x")}):
            answer = page(server, ALL)
            details = page(server, "/admin/receiver/" + UUID.search(answer.text).group(1))
            for text in (answer.text, details.text):
                assert "script&gt;alert(1)" in text
                assert "<script>" not in text and "<b>" not in text.replace("<b>Totals:", "").replace("<td><b>", "")


def test_the_details_of_a_listener(start_server):
    with stations(start_server) as server, listen(server, "/live?a=b", "Agent", AWAY, ("joe", "x")):
        uuid = uuid_of(server, "Agent")
        details = dict(rows_of(page(server, f"/admin/receiver/{uuid}", ONE)))
        assert details.pop("Raw Request:").startswith("GET /live?a=b HTTP/1.0\r\n")
        assert re.fullmatch(r"\d:\d\d:\d\d", details.pop("Listening Time:"))
        assert re.fullmatch(r"\d+.* (B|.iB)", details.pop("Bytes Sent:"))
        assert details.pop("Bitrate:").endswith("bps")
        assert details == {"UUID:": uuid, "Method:": "GET", "Requested Resource:": "/live (/live)", "Query:": "?a=b",
                           "Remote Address:": AWAY, "User:": "joe", "User-Agent:": "Agent", "Cookies:": ""}


def test_details_of_foreign_listeners_are_not_shown(start_server):
    with stations(start_server) as server, listen(server, "/foreign"):
        uuid = uuid_of(server)
        for manager in (SEVERAL, ONE):
            assert f"Receiver ID: {uuid} does not exist." in page(server, f"/admin/receiver/{uuid}", manager).text
        assert page(server, f"/admin/receiver/{uuid}", STRANGER).status == 401
        assert "Receiver ID: none does not exist." in page(server, "/admin/receiver/none").text


# ---- the order -------------------------------------------------------------------------------------------------------

def test_a_session_keeps_the_order_of_the_table(start_server):
    with stations(start_server) as server, listen(server, "/live", "Z"), listen(server, "/other", "A"):
        by_agent = page(server, ALL + "?s=ua")
        assert agents(by_agent) == ["A", "Z"]
        assert agents(page(server, ALL, headers=session_of(by_agent))) == ["A", "Z"]
        assert agents(page(server, ALL)) == ["Z", "A"]
        assert agents(page(server, ALL + "?s=zz", headers=session_of(by_agent))) == ["Z", "A"]
        assert agents(page(server, ALL, headers=session_of(by_agent))) == ["Z", "A"]


@pytest.mark.parametrize("key", ["h", "m", "u", "ua", "c", "d", "b"])
def test_every_order_holds_while_the_figures_change(start_server, key):
    with stations(start_server) as server, contextlib.ExitStack() as players:
        for number in range(20):
            players.enter_context(listen(server, MOUNTS[number % 3], f"P{number}"))
        for _ in range(5):
            assert len(agents(page(server, f"{ALL}?s={key}"))) == 20


# ---- kick and ban ----------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("user, target", [(ADMIN, ALL), (SEVERAL, "/admin/stream/1/listeners"), (ONE, ALL)])
def test_kick(start_server, user, target):
    with stations(start_server) as server, listen(server) as kicked, listen(server, agent="Neighbour") as neighbour:
        press(server, "Kick", user=user, target=target)
        assert kicked.ends_within(10)
        neighbour.audio(100000)
        assert status_of(server) == 200


def test_a_ban_by_an_administrator_holds_everywhere_and_is_in_the_file(start_server):
    with stations(start_server) as server, listen(server, source=AWAY) as banned:
        press(server, "Ban")
        assert f'<filter type="IP">{AWAY}</filter>' in server.read(USERS)
        assert banned.ends_within(10)
        for target in (*MOUNTS, "/admin", "/nothing"):
            assert status_of(server, target, source=AWAY) == 403
        assert status_of(server, source="127.0.3.3") == 200


def test_a_ban_on_a_stream_page_holds_for_that_stream(start_server):
    with stations(start_server) as server, listen(server, source=AWAY) as banned:
        press(server, "Ban", target="/admin/stream/1/listeners")
        assert banned.ends_within(10)
        assert [status_of(server, target, source=AWAY) for target in MOUNTS] == [451, 200, 200]


def test_a_ban_by_a_manager_holds_for_all_his_streams(start_server):
    with stations(start_server) as server, listen(server, source=AWAY) as banned:
        press(server, "Ban", user=SEVERAL, target="/admin/stream/1/listeners")
        assert banned.ends_within(10)
        assert [status_of(server, target, source=AWAY) for target in MOUNTS] == [451, 451, 200]
        assert server.read(USERS).count(f'<filter type="IP">{AWAY}</filter>') == 2


def test_ban_net_holds_for_the_neighbours_too(start_server):
    with stations(start_server) as server, listen(server, source=AWAY) as banned:
        press(server, "Ban Net", user=ONE)
        assert banned.ends_within(10)
        assert status_of(server, source="127.0.3.77") == 451
        assert status_of(server, source="127.0.4.2") == 200
        assert '<filter type="Subnet">127.0.3.0/24</filter>' in server.read(USERS)


def test_ban_user_agent_holds_for_that_agent(start_server):
    hostile = 'Grabber "><script>'
    with stations(start_server) as server, listening(server, headers={"User-Agent": hostile}) as banned:
        press(server, "Ban User Agent", "Grabber &quot;&gt;&lt;script&gt;", user=SEVERAL)
        assert banned.ends_within(10)
        assert status_of(server, headers={"User-Agent": hostile}) == 451
        assert status_of(server, "/foreign", headers={"User-Agent": hostile}) == 200
        assert status_of(server, headers={"User-Agent": "Grabber"}) == 200


# ---- VIP -------------------------------------------------------------------------------------------------------------

def test_vip_gets_a_place_on_a_full_stream(start_server):
    with stations(start_server, UserMax=1) as server:
        with listen(server, source=AWAY):
            press(server, "VIP", user=ONE)
        assert f'<filter type="IP">{AWAY}</filter>' in server.read(USERS)
        comes_true(server, lambda: status_of(server, source="127.0.3.3") == 200)
        server.wait_log("> Connection Closed", 2)  # also of the one that has just asked
        with listen(server, agent="Ordinary", source="127.0.3.3") as ordinary:
            assert status_of(server, source="127.0.3.4") == 451
            with listen(server, source=AWAY) as vip:
                assert ordinary.ends_within(10)
                vip.audio(8192)


def test_vip_makes_a_listener_account_of_a_login(start_server):
    settings = [*mount("/live"), *mount("/private", 2, Auth="yes")]
    server = start_server(settings, users=ACCOUNTS)
    joe = {"headers": {"Authorization": basic("joe", "pw")}}
    with HttpSource(server, "/live", media.mp3_frames()), \
            HttpSource(server, "/private", media.mp3_frames(), user=ADMIN[0], password=ADMIN[1]):
        server.wait_source(2)
        assert status_of(server, "/private", **joe) == 451
        with listen(server, login=("joe", "pw")):
            press(server, "VIP")
        comes_true(server, lambda: status_of(server, "/private", **joe) == 200)
        assert status_of(server, "/private") == 451
        assert "<username>joe</username>" in server.read(USERS)
        assert page(server, "/admin", ("joe", "pw")).status == 401


def test_vip_changes_no_other_account_and_no_stranger(start_server):
    with stations(start_server, ["/live"]) as server, listen(server, agent="Boss", login=ADMIN), \
            listen(server, agent="Liar", login=("several", "wrong")):
        press(server, "VIP", "Boss", user=ONE)
        press(server, "VIP", "Liar", user=ONE)
        assert server.read(USERS) == ACCOUNTS
        assert page(server, "/admin/users").status == 200
        assert page(server, ALL, None).status == 401
        with pytest.raises(PermissionError):
            HttpSource(server, "/other", headers={"Authorization": None}).start()


# ---- moving ----------------------------------------------------------------------------------------------------------

def heard_numbers(listener):
    """The numbers of the frames of what comes next."""
    return media.numbers_in(listener.audio(20000))


@pytest.mark.parametrize("user", [ADMIN, SEVERAL])
def test_a_listener_is_moved_to_another_mount(start_server, user):
    with stations(start_server) as server, listen(server, source=AWAY) as moved:
        assert max(heard_numbers(moved)) < 2000000  # the frames of /other are numbered from here
        press(server, "Move To:", user=user, destStationId=2)
        assert server.wait_log("Moving from") == f"<{AWAY}> Moving from /live to /other"
        comes_true(server, lambda: max(heard_numbers(moved)) >= 2000000)
        assert agents(page(server, "/admin/stream/2/listeners")) == ["Player"]


@pytest.mark.parametrize("place", ["", "-1", "0", "x", "3", "99999999999999999999"])
def test_a_place_that_is_not_the_managers_moves_nobody(start_server, place):
    with stations(start_server) as server, listen(server):
        press(server, "Move To:", user=SEVERAL, destStationId=place)
        assert rows_of(page(server, ALL))[0][1] == "/live"
        assert not any("Moving from" in line for line in server.log_lines())


def test_moving_is_offered_with_two_connected_mounts(start_server):
    with stations(start_server, ["/live", "/foreign"]) as server, listen(server):
        assert "destStationId" in page(server, ALL).text
        assert "destStationId" not in page(server, ALL, SEVERAL).text
        assert "destStationId" not in page(server, ALL, ONE).text


# ---- what is left alone ----------------------------------------------------------------------------------------------

@pytest.mark.parametrize("button", ["Kick", "Ban", "Ban Net", "Ban User Agent", "VIP", "Move To:"])
def test_listeners_of_foreign_streams_are_left_alone(start_server, button):
    with stations(start_server) as server, listen(server, "/foreign", source=AWAY) as foreign:
        before = server.read(USERS)
        for user in (SEVERAL, ONE):
            press(server, button, user=user, destStationId=1)
        uuid = uuid_of(server)
        for nobody in (STRANGER, WATCHER, None):
            assert post(server, ALL, {uuid: "on", "action": button, "destStationId": 1}, nobody).status == 401
        foreign.audio(100000)
        assert server.read(USERS) == before
        assert [status_of(server, target, source=AWAY) for target in MOUNTS] == [200, 200, 200]


@pytest.mark.parametrize("button", ["Kick", "Ban", "VIP", "Move To:"])
def test_the_panels_own_connections_are_left_alone(start_server, button):
    """Their identifiers stand in the log. Each post names the connection on which it comes."""
    login = {"Authorization": basic(*ADMIN)}
    with stations(start_server) as server:
        for round_ in range(1, 9):
            with Connection(server.port) as browser:
                browser.send(request_text("GET", f"/admin/receiver/{button[0]}{round_}", login))
                browser.receive_body(browser.receive_head())
                uuid = re.search(r"\[I: ([^\]]*)\]", server.wait_log(f"/admin/receiver/{button[0]}{round_}")).group(1)
                body = f"{uuid}=on&action={button.replace(' ', '+')}&destStationId=2"
                browser.send(request_text("POST", ALL, {
                    **login, "Content-Type": "application/x-www-form-urlencoded", "Content-Length": len(body)}) + body)
                assert browser.receive_head().status == 200
        assert page(server, ALL).status == 200
        assert status_of(server) == 200
