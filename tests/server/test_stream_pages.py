"""The pages of streams: who sees what in them, and what their forms do to the running server and its settings."""
import contextlib

import pytest

from harness import panel
from harness.accounts import account, user_file
from harness.client import Connection, basic, request_text
from harness.listener import Listener
from harness.operator import CONF, comes_true, save
from harness.markup import Page
from harness.server import ADMIN, PATIENCE, mount
from harness.source import HttpSource
from harness.station import PROPERTIES, frames, listening, push_until_heard, status_of

TWO, ONE, LISTENER = ("two", "secret"), ("one", "secret"), ("listener", "secret")
USERS = user_file(account(*TWO, "Mount Manager", (1, 2)), account(*ONE, "Mount Manager", (1,)),
                  account(*LISTENER, "Listener"))
MOUNTS = [*mount("/live"), *mount("/more", 2), *mount("/other", 3)]
STRANGERS = [None, LISTENER, ("nobody", "wrong")]


def start(start_server, settings=MOUNTS, **options):
    return start_server(settings, users=USERS, console=True, **options)


def page(server, target, user=None, **options):
    answer = panel.page(server, target, user, **options)
    assert answer.status == 200, answer.head
    return Page(answer.text)


def act(server, action, *ticked, user=ADMIN, target="/admin", status=200, **fields):
    """Posts the form below the list of streams; gives the page that answers."""
    answer = panel.post(server, target, {"action": action, **{address: "on" for address in ticked}, **fields}, user)
    assert answer.status == status, answer.head
    return Page(answer.text)


def addresses(server, user=ADMIN):
    """The mounts of the list, in its order."""
    return [check.get("name") for check in page(server, "/admin", user).all("input", id="select_check")]


def saved(server):
    """The lines of the settings file, as they would be after the next save."""
    save(server)
    return server.read(CONF).splitlines()


def accepts_source(server, address):
    try:
        with HttpSource(server, address):
            return True
    except PermissionError:
        return False


def is_running(server, address):
    stats = page(server, f"/admin/stream/{['/live', '/more', '/other'].index(address) + 1}/", ADMIN)
    return "Disable" in stats.buttons


@contextlib.contextmanager
def on_air(server, *targets):
    with contextlib.ExitStack() as stack:
        sources = []
        for target in targets:
            sources.append(stack.enter_context(HttpSource(server, target, headers=PROPERTIES)))
            server.wait_source(len(sources))
        yield sources


# ---- what is to be seen ----------------------------------------------------------------------------------------------

def test_home_page_lists_the_streams_on_the_air(start_server):
    server = start(start_server)
    assert page(server, "/").first(id="tableViewNone").get("style") is None
    with on_air(server, "/live"):
        home = page(server, "/")
        assert home.rows == [["Name", "Playing", "Genre", "Listeners"], ["No streams are available."],
                             ["Name", "", "Genre", "0 (0 unique)"]]
        assert home.first(id="internalStation1").first("a").get("href") == "/sbin/tunein.pls?mnt=%2Flive"
        assert home.first(class_="streamName").get("href") == "/view/1/"
        assert not home.all("form") and not home.all("input")
        assert home.first(id="tableViewNone").get("style") == "display: none;"


def test_home_page_counts_listeners(start_server):
    server = start(start_server, [*mount("/live", UserMax=5)])
    with on_air(server, "/live") as (source,):
        source.push(frames(60))
        with listening(server), listening(server):
            comes_true(server, lambda: page(server, "/").rows[2][3] == "2/5 (1 unique)")


def test_administrator_sees_every_mount(start_server):
    server = start(start_server, [*MOUNTS, ("SourceDisabled3", "yes")])
    with on_air(server, "/live"):
        admin = page(server, "/admin", ADMIN)
        assert [cells[0] for cells in admin.rows] == [
            "Select all streamsName", "No streams are available.", "Select /live/live",
            "Inactive Mounts", "Select /more/more", "Disabled Mounts", "Select /other/other", ""]
        assert admin.rows[2][1] == "127.0.0.1"
        assert admin.buttons == ["Kick", "Disable", "Enable", "Delete"]
        assert admin.first("input", value="Add")


def test_manager_of_two_sees_these_and_can_neither_add_nor_delete(start_server):
    server = start(start_server)
    assert addresses(server, TWO) == ["/live", "/more"]
    managed = page(server, "/admin", TWO)
    assert managed.buttons == ["Kick", "Disable", "Enable"]
    assert managed.first("input", value="Add") is None


def test_manager_of_one_sees_the_page_of_that_stream(start_server):
    server = start(start_server)
    stats = page(server, "/admin/", ONE)
    assert stats.figures["Stream Status:"] == "live is offline"
    assert stats.buttons == ["Disable", "Reset Stats"]


@pytest.mark.parametrize("user", STRANGERS)
def test_strangers_see_the_public_pages_only(start_server, user):
    server = start(start_server)
    with on_air(server, "/live"):
        assert panel.page(server, "/admin", user).status == 401
        assert panel.page(server, "/admin/stream/1/", user).status == 401
        assert page(server, "/", user).first(id="internalStation1")
        stats = page(server, "/view/1/", user)
        assert stats.figures["Stream Status:"] == "live is online and currently public"
        assert "Tune-Ins:" not in stats.figures and not stats.buttons


def test_page_of_a_stream(start_server):
    server = start(start_server, [*mount("/live", UserMax=5)])
    with on_air(server, "/live") as (source,):
        source.push(frames(60))
        with listening(server):
            figures = page(server, "/admin/stream/1/", ADMIN).figures
    del figures["Bitrate:"]
    assert figures == {
        "Stream Status:": "live is online and currently public", "Name:": "Name", "Website:": "http://x/",
        "Genre:": "Genre", "Content Type:": "audio/mpeg", "Listeners:": "1 of 5 (1 Unique)",
        "Tune-Ins:": "1 (5 mins: 0)", "Average Listening Time (TSL):": "0:00:00",
        "Average Quarter Hour (AQH):": "0", "Now Playing:": ""}


def test_played_songs(start_server):
    server = start(start_server)
    assert page(server, "/view/1/played").rows == [["There is currently no song history."]]
    with on_air(server, "/live"):
        for song in ("one", "two", "three"):
            assert panel.page(server, f"/admin/metadata?mount=/live&mode=updinfo&song={song}", ADMIN).status == 200
        rows = page(server, "/view/1/played").rows
        assert rows[0] == ["Last 2 tracks played on live"]
        assert [cells[1] for cells in rows[1:]] == ["two", "one"]
        assert all(cells[0].endswith(" secs ago") for cells in rows[1:])


def test_stream_without_directories(start_server):
    server = start(start_server)
    assert page(server, "/admin/stream/1/publication", ADMIN).rows == [["No directories are available."]]


@pytest.mark.parametrize("target", ["/view/9/", "/view/9/played"])
def test_stream_that_does_not_exist(start_server, target):
    server = start(start_server)
    assert "Stream ID: 9 does not exist." in page(server, target).text


def test_what_a_source_says_is_never_markup(start_server):
    bad = "</td></table><script>alert(1)</script>\"'&"
    server = start(start_server, [*mount("/live")])
    properties = {"icy-name": bad, "icy-genre": bad, "icy-url": "javascript://%0aalert(1)", "icy-br": bad}
    with HttpSource(server, "/live", headers=properties, content_type='audio/mpeg"><script>'):
        server.wait_source()
        for song in ("%3Cscript%3Ealert(2)%3C/script%3E", "two"):
            panel.page(server, f"/admin/metadata?mount=/live&mode=updinfo&song={song}", ADMIN)
        for target in ("/", "/view/1/", "/view/1/played", "/admin", "/admin/stream/1/"):
            shown = page(server, target, ADMIN)
            body = shown.first(id="displayArea")
            assert not [script for script in body.all("script") if "alert" in "".join(script.children)], target
            assert not [link for link in body.all("a") if "alert" in (link.get("href") or "")], target
        assert page(server, "/view/1/").figures["Name:"] == bad
        assert page(server, "/view/1/").figures["Website:"] == "javascript://%0aalert(1)"


# ---- making mounts ---------------------------------------------------------------------------------------------------

@pytest.mark.parametrize("addr, address", [("new", "/new"), ("/new", "/new"), ("a/b", "/a/b")])
def test_created_mount_serves_and_is_saved(start_server, addr, address):
    server = start(start_server)
    assert status_of(server, address) == 404
    listed = act(server, "Create", addr=addr)
    assert listed.first("input", name=address)
    assert status_of(server, address) == 503
    assert f"SourceMount4={address}" in saved(server)
    with HttpSource(server, address, user=ADMIN[0], password=ADMIN[1]) as source:
        server.wait_source()
        source.push(frames(60))
        with listening(server, address) as listener:
            assert listener.audio(400)


def test_created_mount_is_there_after_a_restart(start_server):
    server = start(start_server, [])
    act(server, "Create", addr="new")
    assert addresses(server) == ["/new"]
    save(server)
    assert server.stop() == 0
    server.start()
    assert addresses(server) == ["/new"]
    assert status_of(server, "/new") == 503


@pytest.mark.parametrize("addr", ["", " ", "/", "/;", ";stream.mp3", "/live", "/live "])
def test_addresses_that_make_no_mount(start_server, addr):
    server = start(start_server)
    before = saved(server)
    act(server, "Create", addr=addr)
    assert addresses(server) == ["/live", "/more", "/other"]
    assert saved(server) == before


@pytest.mark.parametrize("end", ["\r\n", "\n", "\r", "\0"])
def test_address_with_a_line_end_writes_no_setting(start_server, end):
    server = start(start_server)
    act(server, "Create", addr=f"/new{end}AdminPass=mine")
    lines = saved(server)
    assert "SourceMount4=/new" in lines
    assert not [line for line in lines if "mine" in line]


# ---- the ticked mounts -----------------------------------------------------------------------------------------------

def test_kick_drops_the_source_and_keeps_the_mount(start_server):
    server = start(start_server)
    with on_air(server, "/live", "/more") as (live, more):
        act(server, "Kick", "/live")
        assert live.connection.ends_within(10)
        server.wait_source_gone()
        assert page(server, "/view/2/").figures["Stream Status:"].startswith("more is online")
    assert accepts_source(server, "/live")


def test_kick_with_nothing_ticked_changes_nothing(start_server):
    server = start(start_server)
    with on_air(server, "/live") as (live,):
        for fields in ({}, {"/live": ""}, {"/gone": "on"}):
            act(server, "Kick", **fields)
        live.push(frames(60))
        assert page(server, "/view/1/").figures["Stream Status:"].startswith("live is online")
    assert not [line for line in server.log_lines() if "Kick" in line]


def test_disabled_mount_takes_no_source_until_it_is_enabled(start_server):
    server = start(start_server)
    with on_air(server, "/live") as (live,):
        act(server, "Disable", "/live", "/more")
        assert live.connection.ends_within(10)
    server.wait_log("Closing Mount /live down")
    comes_true(server, lambda: not is_running(server, "/live") and not is_running(server, "/more"))
    assert not accepts_source(server, "/live")
    assert {"SourceDisabled1=True", "SourceDisabled2=True"} < set(saved(server))
    act(server, "Enable", "/live")
    assert accepts_source(server, "/live")
    lines = saved(server)
    assert "SourceDisabled2=True" in lines and not [line for line in lines if line.startswith("SourceDisabled1")]


def test_mount_that_is_enabled_at_once_runs(start_server):
    server = start(start_server)
    for _ in range(20):
        act(server, "Disable", "/live")
        act(server, "Enable", "/live")
    comes_true(server, lambda: accepts_source(server, "/live"))
    assert is_running(server, "/live")


def test_deleted_mount_is_gone_and_so_are_its_settings(start_server):
    server = start(start_server)
    with on_air(server, "/live") as (live,):
        live.push(frames(60))
        with listening(server) as listener:
            listed = act(server, "Delete", "/live")
            assert listed.first("input", name="/live") is None and listed.first("input", name="/more")
            assert live.connection.ends_within(10) and listener.ends_within(10)
    assert status_of(server) == 404
    assert addresses(server) == ["/more", "/other"]
    assert not [line for line in saved(server) if line.startswith("Source") and line.split("=")[0].endswith("1")]


def test_deleted_and_created_again(start_server):
    server = start(start_server)
    act(server, "Delete", "/live")
    act(server, "Create", addr="/fresh")
    lines = saved(server)
    assert "SourceMount1=/fresh" in lines
    assert "SourceUser1=source" not in lines


def test_all_mounts_deleted(start_server):
    server = start(start_server)
    empty = act(server, "Delete", "/live", "/more", "/other")
    assert empty.first("input", name="addr") and empty.buttons == ["Create"]
    assert addresses(server) == []


# ---- the page of one mount -------------------------------------------------------------------------------------------

def test_kick_disable_and_enable_of_one_mount(start_server):
    server = start(start_server)
    with on_air(server, "/live") as (live,):
        assert page(server, "/admin/stream/1/", ADMIN).buttons == ["Kick", "Disable", "Reset Stats"]
        act(server, "Kick", target="/admin/stream/1/")
        assert live.connection.ends_within(10)
    act(server, "Disable", target="/admin/stream/1/")
    comes_true(server, lambda: page(server, "/admin/stream/1/", ADMIN).buttons == ["Enable", "Reset Stats"])
    assert "SourceDisabled1=True" in saved(server)
    act(server, "Enable", target="/admin/stream/1/")
    assert accepts_source(server, "/live")
    assert not [line for line in saved(server) if line.startswith("SourceDisabled1")]


def test_listener_who_hears_the_fallback_of_a_disabled_mount_goes_with_it(start_server):
    server = start(start_server, [*mount("/live", Disabled="yes", Backup="/spare"), *mount("/spare", 2, User="spare")])
    with HttpSource(server, "/spare", user="spare") as spare:
        server.wait_source()
        with Listener(server, "/live") as listener:
            push_until_heard(spare, listener, 0)
            act(server, "Delete", "/live")
            assert listener.ends_within(PATIENCE)
        assert status_of(server, "/live") == 404


def test_reset_stats_of_one_mount(start_server):
    server = start(start_server)
    with on_air(server, "/live") as (live,):
        live.push(frames(60))
        listening(server).close()
        assert page(server, "/admin/stream/1/", ADMIN).figures["Tune-Ins:"] == "1 (5 mins: 0)"
        stats = act(server, "Reset Stats", target="/admin/stream/1/")
        assert stats.figures["Tune-Ins:"] == "0 (5 mins: 0)"


@pytest.mark.parametrize("action", ["Delete", "Create", "anything", ""])
def test_other_words_do_nothing_to_one_mount(start_server, action):
    server = start(start_server)
    act(server, action, "/live", target="/admin/stream/1/", addr="/new")
    assert addresses(server) == ["/live", "/more", "/other"]
    assert is_running(server, "/live")


# ---- rights ----------------------------------------------------------------------------------------------------------

def test_manager_of_two_kicks_disables_and_enables_these(start_server):
    server = start(start_server)
    with on_air(server, "/live", "/more") as (live, more):
        act(server, "Kick", "/live", user=TWO)
        assert live.connection.ends_within(10)
        act(server, "Disable", "/more", user=TWO)
        assert more.connection.ends_within(10)
    assert "SourceDisabled2=True" in saved(server)
    act(server, "Enable", "/more", user=TWO)
    assert accepts_source(server, "/more")


def test_manager_of_two_neither_creates_nor_deletes(start_server):
    server = start(start_server)
    act(server, "Create", user=TWO, addr="/new")
    assert act(server, "Delete", "/live", user=TWO).first("input", name="/live")
    assert addresses(server) == ["/live", "/more", "/other"]


def test_manager_of_two_leaves_other_mounts_alone(start_server):
    server = start(start_server)
    with on_air(server, "/other"):
        for action in ("Kick", "Disable", "Delete"):
            act(server, action, "/other", user=TWO)
            act(server, action, user=TWO, target="/admin/stream/3/", status=404)
        assert page(server, "/view/3/").figures["Stream Status:"].startswith("other is online")
    assert not [line for line in saved(server) if "Disabled" in line]


def test_manager_of_one_acts_on_that_mount_wherever_the_form_goes(start_server):
    server = start(start_server)
    with on_air(server, "/live", "/other") as (live, other):
        act(server, "Kick", "/other", user=ONE, target="/admin/stream/3/")  # shows and means its own
        assert live.connection.ends_within(10)
        assert page(server, "/view/3/").figures["Stream Status:"].startswith("other is online")
    act(server, "Disable", user=ONE, target="/admin/")
    comes_true(server, lambda: not is_running(server, "/live"))
    act(server, "Enable", user=ONE, target="/admin/")
    assert accepts_source(server, "/live")


def test_manager_of_one_neither_creates_nor_deletes(start_server):
    server = start(start_server)
    for action in ("Create", "Delete"):
        act(server, action, "/live", user=ONE, target="/admin/", addr="/new")
    assert addresses(server) == ["/live", "/more", "/other"]


@pytest.mark.parametrize("user", STRANGERS)
def test_strangers_change_nothing(start_server, user):
    server = start(start_server)
    before = saved(server)
    with on_air(server, "/live"):
        for action in ("Create", "Kick", "Disable", "Enable", "Delete", "Reset Stats"):
            for target in ("/admin", "/admin/stream/1/"):
                act(server, action, "/live", user=user, target=target, status=401, addr="/new")
            for target in ("/", "/view/1/"):
                act(server, action, "/live", user=user, target=target, addr="/new")
        assert page(server, "/view/1/").figures["Stream Status:"].startswith("live is online")
    assert addresses(server) == ["/live", "/more", "/other"]
    assert saved(server) == before


def test_words_in_the_address_are_no_form(start_server):
    server = start(start_server)
    with on_air(server, "/live"):
        panel.page(server, "/admin?action=Delete&/live=on", ADMIN)
        panel.page(server, "/admin/stream/1/?action=Disable", ADMIN)
        assert page(server, "/view/1/").figures["Stream Status:"].startswith("live is online")
    assert addresses(server) == ["/live", "/more", "/other"]


@pytest.mark.waits(8)
def test_change_is_saved_without_being_told(start_server):
    server = start(start_server)
    act(server, "Disable", "/live")
    server.wait_until(lambda: "SourceDisabled1=True" in server.read(CONF).splitlines())


# ---- large pages -----------------------------------------------------------------------------------------------------

PACKETS = 2000  # of 500 bytes, which make a page of some 3 MB
LONG = 120  # seconds for it, with a sanitizer on a busy machine


def dump_page(server):
    return page(server, "/admin/stream/1/?rpb=y", ADMIN, within=LONG)


@contextlib.contextmanager
def full_buffer(start_server):
    server = start(start_server, [*mount("/live")])
    with HttpSource(server, "/live", content_type="application/test", headers=PROPERTIES) as source:
        server.wait_source()
        source.push(b"a" * 500 * PACKETS)
        packets = lambda: int(dump_page(server).figures.get("Packet Buffer Size:", "0").split()[0])
        server.wait_until(lambda: packets() > PACKETS - 20, within=LONG, complaint="the buffer is not full")
        yield server


def test_dump_of_all_packets_arrives_whole(start_server):
    with full_buffer(start_server) as server:
        dump = dump_page(server)
        packets = [cells for cells in dump.rows if cells[0] == "0 Raw PacketBuffer Sz 500:"]
        assert len(packets) > PACKETS - 20
        assert all(cells[1] == "61 " * 500 for cells in packets)


def test_dump_arrives_whole_at_a_slow_reader(start_server):
    with full_buffer(start_server) as server, Connection(server.port, receive_buffer=4096) as slow:
        headers = {"Authorization": basic(*ADMIN), "Connection": "close"}
        slow.send(request_text("GET", "/admin/stream/1/?rpb=y", headers))
        head = slow.receive_head()
        body = slow.receive_body(head)
        assert len(body) == int(head["Content-Length"]) > 2_000_000
        assert body.endswith(b"</html>")


def test_connection_is_kept_behind_a_dump(start_server):
    with full_buffer(start_server) as server, Connection(server.port) as connection:
        for target in ("/admin/stream/1/?rpb=y", "/admin/stream/1/"):
            connection.send(request_text("GET", target, {"Authorization": basic(*ADMIN)}))
            head = connection.receive_head()
            assert head.status == 200 and connection.receive_body(head).endswith(b"</html>")


def test_head_of_a_dump_has_no_body(start_server):
    with full_buffer(start_server) as server:
        answer = panel.page(server, "/admin/stream/1/?rpb=y", ADMIN, method="HEAD")
        assert int(answer.head["Content-Length"]) > 2_000_000
