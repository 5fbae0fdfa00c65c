"""The user file: what is read at the start, what is written at the stop, and who may read the files."""
import contextlib
import os
import stat

import pytest

from harness.accounts import account, pseudo_user, user_file
from harness.client import basic
from harness.listener import Listener
from harness.operator import CONF, comes_true, lines_of, reload, save
from harness.server import ADMIN, mount
from harness.source import HttpSource
from harness.station import status_of

USERS = "quillwave-users.xml"


# ---- the user file ---------------------------------------------------------------------------------------------------

def pseudo_lines(element, name, *properties):
    return [f"    <{element}>", f"        <username>{name}</username>", "        <usergroup>Anonymous</usergroup>",
            *property_lines(8, properties), f"    </{element}>"]


def account_lines(name, password, group, *properties):
    return ["        <user>", f"            <username>{name}</username>",
            *([f'            <password encryption="None">{password}</password>'] if password else []),
            f"            <usergroup>{group}</usergroup>", *property_lines(12, properties), "        </user>"]


def property_lines(indent, properties):
    """`properties` are (mount, type, text), one filter each."""
    blanks = " " * indent
    if not properties:
        return [blanks + "<properties/>"]
    lines = [blanks + "<properties>"]
    for number, kind, text in properties:
        lines += [f'{blanks}    <property mount="{number}">', f'{blanks}        <filter type="{kind}">{text}</filter>',
                  f"{blanks}    </property>"]
    return [*lines, blanks + "</properties>"]


EVERYWHERE = (-1, "All", "*")


def file_of(*accounts, banned=(), reserve=()):
    """The user file as the server writes it."""
    users = [line for lines in accounts for line in lines]
    return "\n".join(['<userlist version="1.0">', *pseudo_lines("banned", "Banned Users", *banned),
                      *pseudo_lines("reserve", "Reserved Users", *reserve),
                      *(["    <users>", *users, "    </users>"] if users else ["    <users/>"]), "</userlist>", ""])


def written_users(start_server, settings=(), users=None):
    """The user file that a server with this one leaves."""
    server = start_server([("AdminUser", None), ("AdminPass", None), *settings], users=users)
    assert server.stop() == 0
    return server.read(USERS)


def test_user_file_of_a_server_without_accounts(start_server):
    assert written_users(start_server) == file_of()


def test_user_file_holds_the_accounts_in_the_order_of_their_names(start_server):
    settings = [("AdminUser", "boss"), ("AdminPass", "secret"), *mount("/live", User="Zoe", Pass="a<&>\"'b"),
                *mount("/more", 2, User="alice", Pass="x")]
    assert written_users(start_server, settings) == file_of(
        account_lines("Zoe", "a&lt;&amp;&gt;\"'b", "Mount Manager", (1, "All", "*")),
        account_lines("alice", "x", "Mount Manager", (2, "All", "*")),
        account_lines("boss", "secret", "Administrator", EVERYWHERE))


def test_mounts_share_an_account_when_they_give_the_same_password(start_server):
    settings = [*mount("/live", User="dj", Pass="first"), *mount("/more", 2, User="dj", Pass="first"),
                *mount("/most", 3, User="dj", Pass="another")]
    assert written_users(start_server, settings) == file_of(
        account_lines("dj", "first", "Mount Manager", (1, "All", "*"), (2, "All", "*")))


def test_file_is_read_at_the_start_and_written_as_it_was(start_server):
    written = file_of(
        account_lines("all", "x", "Administrator", EVERYWHERE), account_lines("dj", "x", "Mount Source", (1, "IP", "1.2.3.4")),
        account_lines("nopass", "", "Listener", (1, "User Agent", "a &amp; b")),
        account_lines("none", "x", "Statistics"), account_lines("barred", "x", "Banned"),
        banned=[(-1, "Subnet", "10.0.0.0/8"), (1, "IP", "1.1.1.1")], reserve=[(-1, "User Agent", "me")])
    expected = file_of(
        account_lines("all", "x", "Administrator", EVERYWHERE), account_lines("barred", "x", "Banned"),
        account_lines("dj", "x", "Mount Source", (1, "IP", "1.2.3.4")),
        account_lines("none", "x", "Statistics"), account_lines("nopass", "", "Listener", (1, "User Agent", "a &amp; b")),
        banned=[(-1, "Subnet", "10.0.0.0/8"), (1, "IP", "1.1.1.1")], reserve=[(-1, "User Agent", "me")])
    settings = [("SourceMount1", "/live")]
    assert written_users(start_server, settings, users=written) == expected


def test_account_of_the_file_replaces_the_one_of_the_settings(start_server):
    users = user_file(account("admin", "from the file", "Listener"))
    server = start_server([("SourceMount1", "/live")], users=users)
    assert server.stop() == 0
    assert account_lines("admin", "from the file", "Listener", EVERYWHERE)[2].strip() in server.read(USERS)
    assert ADMIN[1] not in server.read(USERS)


@pytest.mark.parametrize("users, kept", [
    (user_file(account("a", "x", "Listener", mounts=["abc", 99, "-2", "", 1])),
     file_of(account_lines("a", "x", "Listener", (-2, "All", "*"), (1, "All", "*")))),
    (user_file(account("Anonymous", "x", "Administrator"), account("", "x", "Administrator")), file_of()),
    (user_file(account("a", "x", "no group")), file_of(account_lines("a", "x", "Anonymous", EVERYWHERE))),
    ('<userlist version="1.0"><users><user><username>a</username><password encryption="None" salt="s">x</password>'
     "</user></users></userlist>", file_of(account_lines("a", "x", "Anonymous"))),
    ('<userlist version="1.0"><users><user/><user><username/></user><user><username>a</username><password/><usergroup/>'
     '<properties><property mount="1"><filter type="IP"/><filter>x</filter></property></properties></user></users></userlist>',
     None),
    (user_file(account("a", "x", "Listener")).replace('"1.0"', '"2.0"'), file_of()),
    (user_file(account("a", "x", "Listener")).replace(' version="1.0"', ""), file_of()),
    ('<userlist version="1.0"/>', file_of()),
    ("<users/>", file_of()), ("", file_of()), ("<userlist", file_of()), ("no xml", file_of()),
], ids=["mounts", "names", "group", "salt", "empty", "version", "no version", "nothing", "root", "no byte", "cut", "text"])
def test_what_the_file_should_not_hold_is_passed_over(start_server, users, kept):
    written = written_users(start_server, [("SourceMount1", "/live")], users=users)
    if kept is None:
        assert "<username>a</username>" in written and "<password" not in written and "<filter" not in written
    else:
        assert written == kept


def test_filter_of_an_unknown_type_has_none_and_the_last_of_two_wins(start_server):
    users = ('<userlist version="1.0"><banned><properties><property mount="-1"><filter type="IP">1.1.1.1</filter>'
             '<filter type="Subnet">1.1.1.1</filter><filter type="what">2.2.2.2</filter></property></properties></banned>'
             "<users/></userlist>")
    assert '<filter type="Subnet">1.1.1.1</filter>' in (written := written_users(start_server, users=users))
    assert '<filter type="None">2.2.2.2</filter>' in written and "IP" not in written


def test_rights_on_a_mount_that_is_removed_go_with_it(start_server):
    server = start_server([*mount("/live"), *mount("/gone", 2, User="gone")], console=True,
                          users=user_file(account("both", "x", "Listener", mounts=[1, 2])))
    reload(server, server.read(CONF).replace(lines_of(mount("/gone", 2, User="gone")), ""))
    comes_true(server, lambda: status_of(server, "/gone") == 404)
    assert server.stop() == 0
    written = server.read(USERS)
    assert 'mount="1"' in written and 'mount="2"' not in written


def test_user_file_is_a_setting(start_server):
    server = start_server([("UserFile", "people.xml")])
    assert server.stop() == 0
    assert "<username>admin</username>" in server.read("people.xml")
    assert not server.path(USERS).exists()


def test_accounts_survive_a_restart(start_server):
    server = start_server(mount("/live", Auth="yes"), users=user_file(account("hearer", "secret", "Listener")))
    for turn in range(1, 3):
        with HttpSource(server, "/live"):
            server.wait_source(turn)
            assert status_of(server, user=("hearer", "secret")) == 200
        server.stop()
        server.start()


def test_ban_survives_a_restart_and_lets_no_account_in(start_server):
    users = user_file(account("boss", "x", "Administrator"), banned=pseudo_user("banned", (-1, "IP", "127.0.0.1")))
    server = start_server(mount("/live"), users=users)
    for _ in range(2):
        assert status_of(server, headers={"Authorization": basic("boss", "x")}) == 403
        server.stop()
        server.start()


# ---- modes -----------------------------------------------------------------------------------------------------------

def mode_of(server, name):
    return stat.S_IMODE(server.path(name).stat().st_mode)


@pytest.fixture
def open_umask():
    before = os.umask(0)
    yield
    os.umask(before)


def test_new_files_with_passwords_are_for_their_owner_alone_and_logs_can_be_read(start_server, open_umask):
    server = start_server([("SourceMount1", "/live")], console=True)
    server.path(CONF).unlink()
    save(server)
    with contextlib.suppress(PermissionError), HttpSource(server, "/live", user=ADMIN[0], password=ADMIN[1]):
        server.wait_source()
        Listener(server, "/live").close()
    server.wait_records(1)
    assert server.stop() == 0
    assert [mode_of(server, name) for name in (CONF, USERS)] == [0o600, 0o600]
    assert [mode_of(server, name) for name in ("quillwave.log", "quillwave-w3c.log", "quillwave.pid")] == [0o644] * 3


def test_user_file_keeps_its_mode(start_server):
    server = start_server(users=user_file())
    server.path(USERS).chmod(0o640)
    assert server.stop() == 0
    assert mode_of(server, USERS) == 0o640
    assert "<username>admin</username>" in server.read(USERS)
