"""The pages of settings: who may change what, what it does at once, and what reaches the file."""
import re
import time

import pytest

from harness import media
from harness.accounts import account, user_file
from harness.client import fetch
from harness.operator import CONF, comes_true, saves
from harness.panel import page, post, settings_of
from harness.server import ADMIN, mount
from harness.source import HttpSource
from harness.station import listening, status_of

SERVER, DEFAULTS = "/admin/configure", "/admin/configure_defaults"
LIVE, OTHER = "/admin/stream/1/configure", "/admin/stream/2/configure"
SEVERAL = ("several", "x")  # manages the mounts 1 and 2
ONE = ("one", "x")  # manages mount 1
ENCODER = ("encoder", "x")  # may send to mount 1
WATCHER = ("watcher", "x")
STRANGER = ("nobody", "x")
ACCOUNTS = user_file(account("several", "x", "Mount Manager", (1, 2)), account("one", "x", "Mount Manager", (1,)),
                     account("encoder", "x", "Mount Source", (1,)), account("watcher", "x", "Statistics"))
SAVED = 6  # seconds from a change to the file


def station(start_server, *more):
    return start_server([*mount("/live", 1, UserMax=5), *mount("/other", 2), *mount("/third", 3), *more], users=ACCOUNTS)


def save(server, target, changes, user=ADMIN, new=()):
    """Posts a page: `changes` are for the rows that it has, by label, `new` for keys that it has not."""
    names = settings_of(page(server, target, user))
    return post(server, target, {"action": "Save", **{names[label][0]: value for label, value in changes.items()}, **dict(new)},
                user)


def values(server, target, user=ADMIN):
    return {label: value for label, (_, value) in settings_of(page(server, target, user)).items()}


def wait_saved(server, text):
    """Until the file has this line."""
    server.wait_until(lambda: f"{text}\n" in server.read(CONF), complaint=f"no line {text}")


# ---- from the form to the file ---------------------------------------------------------------------------------------

@pytest.mark.waits(SAVED)
def test_a_mounts_setting_counts_at_once_and_is_in_the_file_seconds_later(start_server):
    server = station(start_server, (";a comment", "kept"))
    with HttpSource(server, "/live", media.mp3_frames()):
        server.wait_source()
        assert status_of(server) == 200
        answer = save(server, LIVE, {"UserMax": "0"}, ONE)
        assert status_of(server) == 451
        assert answer.status == 200 and settings_of(answer)["UserMax"][1] == "0"
        assert "SourceUserMax1=5\n" in server.read(CONF) and saves(server) == 0
        wait_saved(server, "SourceUserMax1=0")
        comes_true(server, lambda: saves(server) == 1)
        assert ";a comment=kept\n" in server.read(CONF)


@pytest.mark.waits(SAVED)
def test_a_server_setting_counts_at_once_and_is_in_the_file_seconds_later(start_server):
    server = station(start_server)
    fetch(server.port, "/admin/receiver/logged")
    server.wait_log("/admin/receiver/logged")
    save(server, SERVER, {}, new={"WebLog": "no"})
    fetch(server.port, "/admin/receiver/unlogged")
    assert values(server, SERVER)["WebLog"] == "no"
    wait_saved(server, "WebLog=no")
    save(server, SERVER, {"WebLog": "yes"})
    fetch(server.port, "/admin/receiver/again")
    server.wait_log("/admin/receiver/again")
    assert not any("unlogged" in line for line in server.log_lines())
    wait_saved(server, "WebLog=yes")


@pytest.mark.waits(SAVED)
def test_a_default_counts_at_once_in_mounts_without_a_value_of_their_own(start_server):
    server = station(start_server)
    with HttpSource(server, "/live", media.mp3_frames()), \
            HttpSource(server, "/other", media.mp3_frames(), user=ADMIN[0], password=ADMIN[1]):
        server.wait_source(2)
        answer = save(server, DEFAULTS, {}, new={"UserMax": "0"})
        assert settings_of(answer)["UserMax"][1] == "0"
        assert [status_of(server, "/live"), status_of(server, "/other")] == [200, 451]
        wait_saved(server, "DefaultUserMax=0")


@pytest.mark.waits(SAVED)
def test_an_emptied_box_takes_the_key_away(start_server):
    server = station(start_server, ("DefaultUserMax", 0))
    with HttpSource(server, "/live", media.mp3_frames()):
        server.wait_source()
        assert status_of(server) == 200
        assert "UserMax" not in settings_of(save(server, LIVE, {"UserMax": ""}))
        assert status_of(server) == 451
        server.wait_until(lambda: "SourceUserMax1" not in server.read(CONF))
        assert "SourceMount1=/live\n" in server.read(CONF)


@pytest.mark.waits(SAVED)
def test_a_new_key_is_there_after_the_next_start(start_server):
    server = station(start_server)
    answer = save(server, LIVE, {}, ONE, new={"Note": "été & <b>", "IPUserMax": "2", "Backup": ""})
    assert list(values(server, LIVE)) == ["UserMax", "IPUserMax", "Note"]
    assert "<b>" not in answer.text
    save(server, LIVE, {"Note": "été & <i>"}, ONE)
    wait_saved(server, "SourceNote1=été & <i>")
    server.stop()
    server.start()
    assert values(server, LIVE) == {"UserMax": "5", "IPUserMax": "2", "Note": "été & <i>"}


def saves_in_full(server):
    """How often the log tells of a save. Equal lines that follow each other are one there, and a count before the next."""
    count, saved = 0, False
    for line in server.log_lines():
        repeated = re.fullmatch(r"Last message repeated (\d+) times", line)
        if repeated and saved:
            count += int(repeated[1])
        saved = line == f"Configuration saved to {CONF}"
        count += saved
    return count


@pytest.mark.waits(8 + SAVED)
def test_changes_in_a_row_are_saved_once_seconds_after_the_last(start_server):
    server = station(start_server)
    box, _ = settings_of(page(server, LIVE, ONE))["UserMax"]
    asked, late = [time.monotonic()], 0
    for number in range(5):
        time.sleep(max(asked[0] + 2 * number - time.monotonic(), 0))
        asked.append(time.monotonic())
        post(server, LIVE, {"action": "Save", box: f"1{number}"}, ONE)
        late += time.monotonic() - asked[-2] > 5  # a machine that stands still so long has a save between
    wait_saved(server, "SourceUserMax1=14")
    assert late or time.monotonic() - asked[-1] > 4.5
    server.stop()  # does a save that is pending still
    assert 1 <= saves_in_full(server) <= 1 + late


# ---- the form --------------------------------------------------------------------------------------------------------

def offered(answer):
    """The keys of the combo box."""
    return re.findall(r'<option value="([^"0]+)">\1</option>', answer.text)


def test_a_key_with_a_row_is_no_longer_offered(start_server):
    server = station(start_server)
    before = page(server, LIVE)
    assert "UserMax" not in offered(before) and {"Note", "Relay", "Directory", "IP", "Port", "IsDefault"} <= set(offered(before))
    save(server, LIVE, {}, new={"Note": "x", "Relay": "http://a/", "Directory": "b"})
    assert set(offered(before)) - set(offered(page(server, LIVE))) == {"Note"}


def test_the_pages_of_the_server_and_the_defaults(start_server):
    server = station(start_server)
    root = page(server, SERVER)
    assert "Server Configuration" in root.text and "PortBase" in offered(root) and "RealtimeLog" not in offered(root)
    labels = list(settings_of(root))
    assert labels == sorted(labels, key=str.lower) and "PortBase" in labels
    assert not {"Source", "Default", "AdminUser", "AdminPass"} & set(labels)
    defaults = page(server, DEFAULTS)
    assert "Configuration for Default" in defaults.text
    assert not {"Relay", "IP", "Port", "IsDefault"} & set(offered(defaults)) and "UserMax" in offered(defaults)
    assert "Configuration for live" in page(server, LIVE).text
    assert "hackme" not in root.text + page(server, LIVE).text


# ---- who may change what ---------------------------------------------------------------------------------------------

def test_only_administrators_reach_the_server_and_the_defaults(start_server):
    server = station(start_server)
    for target in (SERVER, DEFAULTS):
        refused = fetch(server.port, target, user=SEVERAL)
        assert refused.status == 404 and "configForm" not in refused.text
        own = page(server, target, ONE)  # whatever he asks for is about his one stream
        assert "Configuration for Default" not in own.text and "Server Configuration" not in own.text
        for nobody in (STRANGER, WATCHER, None):
            assert page(server, target, nobody).status == 401


@pytest.mark.parametrize("user", [SEVERAL, ONE, ENCODER, WATCHER, STRANGER, None])
@pytest.mark.parametrize("target", [SERVER, DEFAULTS])
def test_nobody_else_changes_the_server_or_the_defaults(start_server, user, target):
    server = station(start_server, ("Debug", "no"), ("DefaultUserMax", 7))
    before = values(server, target)
    fields = {"action": "Save", **{name: "e" for name, _ in settings_of(page(server, target)).values()}}
    post(server, target, fields, user)
    assert values(server, target) == before
    post(server, target, {"action": "Save", "Hostname": "e"}, user)
    assert values(server, target) == before


def test_a_stream_is_configured_by_those_who_manage_it(start_server):
    server = station(start_server)
    for number, user in enumerate([ADMIN, SEVERAL, ONE, ENCODER]):
        save(server, LIVE, {"UserMax": str(number)}, user)
        assert values(server, LIVE)["UserMax"] == str(number)
    before = values(server, OTHER)
    for user in (WATCHER, STRANGER, None):
        assert post(server, LIVE, {"action": "Save", "Note": "e"}, user).status == 401
    assert page(server, "/admin/stream/3/configure", SEVERAL).status == 404
    assert post(server, "/admin/stream/3/configure", {"action": "Save", "Note": "e"}, SEVERAL).status == 404
    post(server, OTHER, {"action": "Save", "Note": "e"}, ONE)  # his own stream, whatever the address says
    assert values(server, OTHER) == before and "Note" not in values(server, "/admin/stream/3/configure")
    assert values(server, LIVE) == {"UserMax": "3", "Note": "e"}


# ---- what a form may not do ------------------------------------------------------------------------------------------

@pytest.mark.waits(SAVED)
def test_no_value_becomes_a_second_line_of_the_file(start_server):
    server = station(start_server)
    evil = "\r\nAdminUser=evil\r\nAdminPass=evil"
    save(server, LIVE, {"UserMax": "4" + evil}, ENCODER, new={"Note": "x" + evil, "Public\nAdminUser=evil": "never"})
    assert values(server, LIVE) == {"UserMax": "4", "Note": "x", "Public": "never"}
    wait_saved(server, "SourceNote1=x")
    assert "evil" not in server.read(CONF)
    server.stop()
    server.start()
    assert page(server, "/admin", ("evil", "evil")).status == 401
    assert page(server, "/admin/users").status == 200


@pytest.mark.parametrize("name", ["a=b", ";note", " note", "\tnote", "\nnote", "Note2", "mount", "User", "PASS", "pass\r\n"])
def test_names_that_are_no_keys_of_a_mount_are_dropped(start_server, name):
    server = station(start_server)
    save(server, LIVE, {}, ONE, new={name: "e", "Note": "x"})
    assert values(server, LIVE) == {"UserMax": "5", "Note": "x"}
    assert page(server, "/admin", ("e", "e")).status == 401


@pytest.mark.waits(SAVED)
def test_nothing_hidden_is_reached_by_its_number(start_server):
    server = station(start_server)
    numbers = {str(number): "/evil" for number in range(200)}
    post(server, LIVE, {"action": "Save", **numbers}, ONE)
    assert values(server, LIVE) == {"UserMax": "/evil"}
    assert "/evil" not in page(server, SERVER).text + page(server, DEFAULTS).text + page(server, OTHER).text
    post(server, DEFAULTS, {"action": "Save", **numbers})
    wait_saved(server, "SourceUserMax1=/evil")
    server.stop()
    text = server.read(CONF)
    assert text.count("/evil") == 1
    for line in ("SourceMount1=/live", "SourcePass1=hackme", f"AdminPass={ADMIN[1]}"):
        assert f"{line}\n" in text


@pytest.mark.waits(SAVED)
def test_the_administrators_login_is_no_setting_of_the_page(start_server):
    server = station(start_server)
    shown = {name for name, _ in settings_of(page(server, SERVER)).values()}
    hidden = {str(number): "e" for number in range(200) if str(number) not in shown}
    post(server, SERVER, {"action": "Save", **hidden, "AdminUser": "e", "adminpass": "e", "Source": "e", "Hostname": "here"})
    wait_saved(server, "Hostname=here")
    assert server.read(CONF).count("=e\n") == 0
    server.stop()
    server.start()
    assert page(server, "/admin/users").status == 200
    assert status_of(server, "/live") == 503


def test_two_editors_win_key_by_key(start_server):
    server = station(start_server)
    mine = settings_of(page(server, LIVE, ONE))
    save(server, LIVE, {"UserMax": "8"}, SEVERAL, new={"Note": "theirs"})
    post(server, LIVE, {"action": "Save", mine["UserMax"][0]: "9"}, ONE)
    assert values(server, LIVE) == {"UserMax": "9", "Note": "theirs"}


def test_a_change_does_not_disturb_listeners(start_server):
    server = station(start_server)
    with HttpSource(server, "/live", media.mp3_frames(), pace=4):
        server.wait_source()
        with listening(server) as listener:
            for number in range(3):
                save(server, LIVE, {"UserMax": str(number)}, ONE)
                listener.audio(40000)
            comes_true(server, lambda: status_of(server, "/nothing") == 404)
