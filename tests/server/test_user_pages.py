"""Accounts, bans and reserved places on the panel: each form and button, for each group, with its effect at once."""
import html
import re
import urllib.parse
import xml.etree.ElementTree as xml

import pytest

from harness import media
from harness.accounts import account, pseudo_user, user_file
from harness.client import Connection, basic
from harness.listener import Listener
from harness.panel import page, post, rows_of
from harness.server import ADMIN, mount
from harness.source import HttpSource
from harness.station import listening, status_of

FILE = "quillwave-users.xml"
USERS, BANS, RESERVES = "/admin/users", "/admin/users?m=b", "/admin/users?m=v"
LIVE, OTHER = "/admin/stream/1/", "/admin/stream/2/"
PASSWORD = "x"  # of all accounts but ADMIN's
MANAGER, SEVERAL, ENCODER = ("manager", PASSWORD), ("several", PASSWORD), ("encoder", PASSWORD)
GROUPS = {"Administrator": "2", "Statistics": "3", "Mount Manager": "4", "Mount Source": "5", "Listener": "6"}
TYPES = {"None": "0", "IP": "1", "Subnet": "2", "User Agent": "3", "All": "4"}
ACCOUNTS = [account("manager", PASSWORD, "Mount Manager", (1,)), account("several", PASSWORD, "Mount Manager", (1, 2)),
            account("encoder", PASSWORD, "Mount Source", (1,)), account("hearer", PASSWORD, "Listener", (1,)),
            account("guest", PASSWORD, "Listener", (1, 2)), account("member", PASSWORD, "Listener"),
            account("foreign", PASSWORD, "Mount Manager", (2,)), account("watcher", PASSWORD, "Statistics"),
            account("shut", PASSWORD, "Banned")]
NAMES = ["admin", "encoder", "foreign", "guest", "hearer", "manager", "member", "several", "shut", "watcher"]


def station(start_server, *more, **options):
    """/live and /other, and the accounts; no account belongs to a mount's settings."""
    options.setdefault("users", user_file(*ACCOUNTS))
    mounts = [*mount("/live", User=None, Pass=None), *mount("/other", 2, User=None, Pass=None)]
    return start_server([*(pair for pair in mounts if pair[1] is not None), *more], **options)


# ---- the user file ---------------------------------------------------------------------------------------------------

def properties_of(element):
    return {(int(entry.get("mount")), filter.get("type"), filter.text)
            for entry in element.iter("property") for filter in entry.iter("filter")}


def saved(server):
    """The accounts of the user file as it is now: name to (password, group, properties)."""
    root = xml.fromstring(server.read(FILE))
    return {user.findtext("username"): (user.findtext("password"), user.findtext("usergroup"), properties_of(user))
            for user in root.iter("user")}


def saved_list(server, element):
    """The filters of "banned" or "reserve" in the user file as it is now."""
    return properties_of(xml.fromstring(server.read(FILE)).find(element))


# ---- pages -----------------------------------------------------------------------------------------------------------

INPUT = re.compile(r"<input ([^>]*)/>")
ATTRIBUTE = re.compile(r'([\w-]+)(?:="([^"]*)")?')


def inputs(answer):
    """The input elements of the content, each a dictionary of its attributes."""
    content = answer.text.split('id="displayArea"')[1]
    return [{name: html.unescape(value) for name, value in ATTRIBUTE.findall(text)} for text in INPUT.findall(content)]


def boxes(answer):
    """The row check boxes: name to whether it can be ticked."""
    return {box["name"]: "disabled" not in box for box in inputs(answer) if box.get("id") == "select_check"}


def buttons(answer):
    return [(one["type"], one["value"]) for one in inputs(answer) if one["type"] in ("submit", "reset")]


def links(answer):
    """The accounts that the list opens."""
    return [urllib.parse.unquote_plus(html.unescape(name)) for name in re.findall(r'<a href="\?u=([^"]*)">', answer.text)]


def options(answer, name):
    """The options of a combo box: value to label."""
    select = re.search(rf'<select[^>]* name="{name}"[^>]*>(.*?)</select>', answer.text).group(1)
    return {value: html.unescape(label) for value, label in re.findall(r'<option value="([^"]*)"[^>]*>([^<]*)<', select)}


def selected(answer, name):
    select = re.search(rf'<select[^>]* name="{name}"[^>]*>(.*?)</select>', answer.text).group(1)
    return re.findall(r'<option value="([^"]*)" selected>', select)


def is_form_of_account(answer):
    return answer.status == 200 and 'name="password-confirm"' in answer.text


def one_account(server, name, tab=USERS, user=ADMIN):
    return page(server, f"{tab}?u={urllib.parse.quote_plus(name)}", user)


# ---- what the forms post ---------------------------------------------------------------------------------------------

def create(server, name, group, password=PASSWORD, confirm=None, tab=USERS, user=ADMIN):
    return post(server, tab, {"username": name, "password": password, "password-confirm": password if confirm is None else confirm,
                              "group": GROUPS.get(group, group), "action": "Create"}, user)


def save(server, name, group, password="*******", confirm=None, tab=USERS, user=ADMIN):
    return post(server, f"{tab}?u={urllib.parse.quote_plus(name)}",
                {"password": password, "password-confirm": password if confirm is None else confirm,
                 "group": GROUPS.get(group, group), "action": "Save"}, user)


def delete(server, *names, tab=USERS, user=ADMIN, **fields):
    return post(server, tab, {**fields, **dict.fromkeys(names, "on"), "action": "Delete"}, user)


def add(server, tab, kind, target, mount_id="-1", user=ADMIN):
    return post(server, tab, {"property_list_subform": "form", "property_list": mount_id, "target": target,
                              "type": TYPES.get(kind, kind), "action": "Create"}, user)


def remove(server, tab, *filters, mount_id="-1", user=ADMIN):
    return delete(server, *filters, tab=tab, user=user, property_list=mount_id, property_list_subform="list")


def redirected(answer, target):
    return answer.status == 303 and answer.head["Location"] == target and answer.body == b""


def may_enter(server, name, password=PASSWORD):
    """Whether the panel takes this login."""
    return page(server, "/admin/", (name, password)).status == 200


# ---- the list of accounts --------------------------------------------------------------------------------------------

def test_list_has_every_account_with_its_group(start_server):
    answer = page(station(start_server), USERS)
    assert rows_of(answer) == [["admin", "Administrator"], ["encoder", "Mount Source"], ["foreign", "Mount Manager"],
                               ["guest", "Listener"], ["hearer", "Listener"], ["manager", "Mount Manager"],
                               ["member", "Listener"], ["several", "Mount Manager"], ["shut", "Banned"],
                               ["watcher", "Statistics"], [""]]
    assert links(answer) == [name for name in NAMES if name != "shut"]
    assert buttons(answer) == [("submit", "Create"), ("submit", "Delete")]


def test_ones_own_box_is_disabled(start_server):
    ticks = boxes(page(station(start_server), USERS))
    assert [name for name in NAMES if not ticks[name]] == ["admin", "shut"]


def test_list_of_a_stream_has_who_has_rights_there_and_no_administrator(start_server):
    answer = page(station(start_server), LIVE + "users")
    assert list(boxes(answer)) == ["encoder", "guest", "hearer", "manager", "member", "several", "shut",
                                   "watcher"]


@pytest.mark.parametrize("user, reached", [(MANAGER, ["encoder", "hearer", "manager"]), (SEVERAL, ["encoder", "hearer", "manager"]),
                                           (ENCODER, [])], ids=["manager", "manager of several", "source"])
def test_reach_of_a_rank_on_a_stream(start_server, user, reached):
    server = station(start_server)
    tab = LIVE + "users"
    answer = page(server, tab, user)
    assert links(answer) == reached
    assert [name for name, free in boxes(answer).items() if free] == [name for name in reached if name != user[0]]
    for name in NAMES:
        wanted = name in reached or (user, name) == (SEVERAL, "foreign")  # who is on his other stream's list
        assert is_form_of_account(one_account(server, name, tab, user)) == wanted, name


def test_manager_of_several_reaches_the_users_of_each_of_his_streams(start_server):
    server = station(start_server)
    assert links(page(server, OTHER + "users", SEVERAL)) == ["foreign"]


@pytest.mark.parametrize("name", ["watcher", "hearer", "shut", "nobody"])
def test_other_groups_have_no_panel(start_server, name):
    server = station(start_server)
    before = server.read(FILE)
    for target in (USERS, LIVE + "users", LIVE + "bans", LIVE + "reserve"):
        assert page(server, target, (name, PASSWORD)).status == 401
        assert delete(server, "encoder", tab=target, user=(name, PASSWORD)).status == 401
    assert server.read(FILE) == before


@pytest.mark.parametrize("user", [MANAGER, SEVERAL, ENCODER], ids=["manager", "manager of several", "source"])
def test_page_of_all_accounts_is_the_administrators(start_server, user):
    server = station(start_server)
    create(server, "newcomer", "Administrator", user=user)
    delete(server, "foreign", "watcher", "admin", user=user)
    add(server, BANS, "All", "*", user=user)
    assert server.read(FILE) == user_file(*ACCOUNTS)
    assert may_enter(server, *ADMIN) and may_enter(server, "foreign") and not may_enter(server, "newcomer")


def test_list_without_accounts(start_server):
    server = station(start_server, users=user_file(account("other", PASSWORD, "Listener", (2,))))
    answer = page(server, LIVE + "users")
    assert rows_of(answer) == [["No users are currently configured."], [""]]
    assert buttons(answer) == [("submit", "Create")]


# ---- the form of an account ------------------------------------------------------------------------------------------

def test_form_of_a_new_account(start_server):
    server = station(start_server)
    answer = post(server, USERS, {"action": "Create"})
    assert is_form_of_account(answer) and 'autocomplete="off"' in answer.text
    assert [row[0] for row in rows_of(answer)] == ["Username:", "Password:", "Confirm Password:", "Group:", ""]
    assert options(answer, "group") == {number: word for word, number in GROUPS.items()} and not selected(answer, "group")
    assert buttons(answer) == [("submit", "Cancel"), ("reset", "Reset"), ("submit", "Create")]


def test_form_of_an_account_shows_no_password(start_server):
    answer = one_account(station(start_server), "guest")
    assert rows_of(answer)[0] == ["Username:", "guest"]
    assert [(one["name"], one["value"]) for one in inputs(answer) if one["type"] == "password"] == [
        ("password", "*******"), ("password-confirm", "*******")]
    assert selected(answer, "group") == ["6"]
    assert options(answer, "property_list") == {"-1": "All Resources (0)", "1": "/live (1)", "2": "/other (1)"}
    assert buttons(answer) == [("submit", "Edit Access"), ("submit", "Cancel"), ("reset", "Reset"), ("submit", "Save")]


def test_managers_form_offers_his_own_rank_and_those_below_it_and_no_access(start_server):
    server = station(start_server)
    answer = one_account(server, "hearer", LIVE + "users", MANAGER)
    assert options(answer, "group") == {"4": "Mount Manager", "5": "Mount Source", "6": "Listener"}
    assert "Access:" not in answer.text
    assert options(post(server, LIVE + "users", {"action": "Create"}, ENCODER), "group") == {"5": "Mount Source", "6": "Listener"}


@pytest.mark.parametrize("group", GROUPS)
def test_account_of_each_group_is_made_and_saved_at_once(start_server, group):
    server = station(start_server)
    assert redirected(create(server, "newcomer", group, "word"), USERS)
    assert saved(server)["newcomer"] == ("word", group, set())
    assert not may_enter(server, "newcomer", "word"), "it has no rights yet"
    add(server, USERS + "?u=newcomer", "All", "*")
    assert saved(server)["newcomer"] == ("word", group, {(-1, "All", "*")})
    assert may_enter(server, "newcomer", "word") == (group in ("Administrator", "Mount Manager", "Mount Source"))


@pytest.mark.parametrize("group, has_stream", [("Administrator", False), ("Statistics", False), ("Mount Manager", True),
                                               ("Mount Source", True), ("Listener", True)])
def test_account_made_on_a_streams_tab_has_that_stream(start_server, group, has_stream):
    server = station(start_server)
    assert redirected(create(server, "newcomer", group, tab=OTHER + "users"), OTHER + "users")
    assert saved(server)["newcomer"][2] == ({(2, "All", "*")} if has_stream else set())


def test_account_that_a_manager_makes_sends_to_his_stream(start_server):
    server = station(start_server)
    assert redirected(create(server, "newcomer", "Mount Source", tab=LIVE + "users", user=MANAGER), LIVE + "users")
    with HttpSource(server, "/live", user="newcomer", password=PASSWORD):
        server.wait_source()
    assert may_enter(server, "newcomer")
    with pytest.raises(PermissionError), HttpSource(server, "/other", user="newcomer", password=PASSWORD):
        pass


@pytest.mark.parametrize("user, group", [(MANAGER, "Administrator"), (MANAGER, "Statistics"), (ENCODER, "Mount Manager")])
def test_nobody_makes_an_account_above_his_own_rank(start_server, user, group):
    server = station(start_server)
    answer = create(server, "newcomer", group, tab=LIVE + "users", user=user)
    assert is_form_of_account(answer) and not may_enter(server, "newcomer")
    assert server.read(FILE) == user_file(*ACCOUNTS)


@pytest.mark.parametrize("fields", [
    {"password": ""}, {"password": "a", "password-confirm": "b"}, {"password": "*******", "password-confirm": "*******"},
    {"group": "1"}, {"group": "7"}, {"group": "99"}, {"group": "-"}, {"group": "2147483648"}, {"group": ""}, {"username": ""},
    {"username": "hearer"}, {"username": "\n"},
], ids=str)
def test_nothing_comes_of_an_incomplete_form(start_server, fields):
    server = station(start_server)
    answer = post(server, USERS, {"username": "newcomer", "password": "a", "password-confirm": "a", "group": "2",
                                  "action": "Create", **fields})
    assert is_form_of_account(answer)
    assert sorted(boxes(page(server, USERS))) == NAMES
    assert not may_enter(server, "newcomer", "a") and not may_enter(server, "hearer", "a")
    assert server.read(FILE) == user_file(*ACCOUNTS)


def test_name_that_is_taken_raises_no_stranger(start_server):
    server = station(start_server)
    create(server, "hearer", "Administrator")
    assert page(server, "/admin/", None).status == 401
    assert not may_enter(server, "nobody", "")


def test_new_password_counts_at_once(start_server):
    server = station(start_server)
    assert redirected(save(server, "manager", "Mount Manager", "new"), USERS)
    assert not may_enter(server, "manager") and may_enter(server, "manager", "new")
    assert saved(server)["manager"][:2] == ("new", "Mount Manager")


def test_new_group_counts_at_once_and_the_password_stays(start_server):
    server = station(start_server)
    assert redirected(save(server, "manager", "Listener"), USERS)
    assert not may_enter(server, "manager")
    assert saved(server)["manager"][:2] == (PASSWORD, "Listener")
    save(server, "manager", "Mount Manager")
    assert may_enter(server, "manager")


def test_emptied_password_fields_keep_the_password(start_server):
    server = station(start_server)
    assert redirected(save(server, "manager", "Mount Source", ""), USERS)
    assert saved(server)["manager"][:2] == (PASSWORD, "Mount Source")


@pytest.mark.parametrize("password, confirm, group", [("a", "b", "Mount Source"), ("a", "a", "1"), ("a", "a", "7"), ("a", "a", "-"),
                                                      ("a", "a", ""), ("a", "a", "-2")])
def test_mistakes_leave_the_account_alone(start_server, password, confirm, group):
    server = station(start_server)
    assert is_form_of_account(save(server, "manager", group, password, confirm))
    assert may_enter(server, "manager") and server.read(FILE) == user_file(*ACCOUNTS)


def test_manager_raises_nobody_above_himself(start_server):
    server = station(start_server)
    for group in ("Administrator", "Statistics"):
        assert is_form_of_account(save(server, "hearer", group, "new", tab=LIVE + "users", user=MANAGER))
    assert server.read(FILE) == user_file(*ACCOUNTS)
    assert redirected(save(server, "hearer", "Mount Manager", tab=LIVE + "users", user=MANAGER), LIVE + "users")
    assert may_enter(server, "hearer")


@pytest.mark.parametrize("name", ["admin", "foreign", "guest", "member", "several", "watcher"])
def test_manager_takes_over_nobody_out_of_reach(start_server, name):
    server = station(start_server)
    save(server, name, "Mount Manager", "stolen", tab=LIVE + "users", user=MANAGER)
    assert not may_enter(server, name, "stolen") and server.read(FILE) == user_file(*ACCOUNTS)


def test_cancel_returns_to_the_list(start_server):
    server = station(start_server)
    assert redirected(post(server, USERS + "?u=hearer", {"action": "Cancel", "group": "2", "password": "a"}), USERS)
    assert boxes(post(server, USERS, {"action": "Cancel", "username": "newcomer", "password": "a", "password-confirm": "a",
                                      "group": "2"})).keys() == set(NAMES)
    assert server.read(FILE) == user_file(*ACCOUNTS)


def test_answer_to_a_form_is_the_redirect_alone(start_server):
    server = station(start_server)
    with Connection(server.port) as connection:
        body = "action=Save&group=6"
        connection.send(f"POST {USERS}?u=hearer HTTP/1.1\r\nHost: x\r\nAuthorization: {basic(*ADMIN)}\r\nContent-Type: "
                        f"application/x-www-form-urlencoded\r\nContent-Length: {len(body)}\r\n\r\n{body}")
        assert connection.receive_head().status == 303
        connection.send(f"GET {USERS}?u=hearer HTTP/1.1\r\nHost: x\r\nAuthorization: {basic(*ADMIN)}\r\n\r\n")
        head = connection.receive_head()
        assert head.status == 200 and b"password-confirm" in connection.receive_body(head)


# ---- Delete ----------------------------------------------------------------------------------------------------------

def test_deleted_accounts_cannot_log_in_and_leave_the_file(start_server):
    server = station(start_server)
    answer = delete(server, "manager", "guest", "nobody")
    assert sorted(boxes(answer)) == [name for name in NAMES if name not in ("guest", "manager")]
    assert not may_enter(server, "manager") and "manager" not in saved(server) and "guest" not in saved(server)
    assert may_enter(server, "several")


def test_nobody_deletes_himself(start_server):
    server = station(start_server)
    delete(server, "admin")
    delete(server, "manager", tab=LIVE + "users", user=MANAGER)
    assert may_enter(server, *ADMIN) and may_enter(server, "manager") and server.read(FILE) == user_file(*ACCOUNTS)


def test_delete_on_a_streams_tab_takes_the_rights_on_that_stream_only(start_server):
    server = station(start_server)
    delete(server, "guest", "hearer", "member", tab=LIVE + "users")
    accounts = saved(server)
    assert accounts["guest"][2] == {(2, "All", "*")} and accounts["member"][2] == {(-1, "All", "*")}
    assert "hearer" not in accounts


def test_manager_deletes_whom_he_may_edit(start_server):
    server = station(start_server)
    delete(server, *NAMES, tab=LIVE + "users", user=MANAGER)
    accounts = saved(server)
    assert "hearer" not in accounts and "encoder" not in accounts
    assert accounts["guest"][2] == {(1, "All", "*"), (2, "All", "*")} and accounts["several"][2] == accounts["guest"][2]


def test_source_deletes_nobody(start_server):
    server = station(start_server)
    delete(server, *NAMES, tab=LIVE + "users", user=ENCODER)
    assert server.read(FILE) == user_file(*ACCOUNTS)


@pytest.mark.parametrize("name", ["action", "property_list", "property_list_subform"])
def test_accounts_and_filters_named_like_a_field_are_not_ticked(start_server, name):
    server = station(start_server, users=user_file(*ACCOUNTS, account(name, PASSWORD, "Listener"),
                                                   banned=pseudo_user("banned", (-1, "User Agent", name))))
    add(server, BANS, "IP", "1.1.1.1")
    delete(server, "hearer")
    remove(server, BANS, "1.1.1.1")
    assert name in saved(server) and "hearer" not in saved(server)
    assert saved_list(server, "banned") == {(-1, "User Agent", name)}


# ---- properties of an account ----------------------------------------------------------------------------------------

def test_access_of_an_account_is_edited_for_a_mount(start_server):
    server = station(start_server)
    one = USERS + "?u=guest"
    answer = post(server, one, {"action": "Edit Access", "property_list": "2", "group": "6"})
    assert rows_of(answer) == [["*", "All", "/other"], [""]]
    answer = post(server, one, {"action": "Create", "property_list_subform": "list", "property_list": "2"})
    assert [row[0] for row in rows_of(answer)][:2] == ["Target:", "Type:"]
    assert options(answer, "type") == {number: word for word, number in TYPES.items()}
    assert buttons(answer) == [("submit", "Cancel"), ("reset", "Reset"), ("submit", "Create")]
    assert redirected(add(server, one, "IP", "10.1.2.3", "2"), one)
    assert saved(server)["guest"][2] == {(1, "All", "*"), (2, "All", "*"), (2, "IP", "10.1.2.3")}
    remove(server, one, "*", mount_id="2")
    assert saved(server)["guest"][2] == {(1, "All", "*"), (2, "IP", "10.1.2.3")}


def test_access_from_an_address_decides_about_a_login(start_server):
    server = station(start_server)
    one = USERS + "?u=manager"
    remove(server, one, "*", mount_id="1")
    assert not may_enter(server, "manager")
    add(server, one, "IP", "127.0.0.2", "1")
    assert not may_enter(server, "manager")
    assert page(server, "/admin/", MANAGER, source="127.0.0.2").status == 200
    add(server, one, "User Agent", "robot", "1")
    assert page(server, "/admin/", MANAGER, headers={"User-Agent": "robot"}).status == 200


def test_account_gets_into_a_stream_that_asks_for_a_login(start_server):
    server = station(start_server, ("SourceAuth1", "yes"))
    with HttpSource(server, "/live", media.mp3_frames(), user="encoder", password=PASSWORD):
        server.wait_source()
        create(server, "newcomer", "Listener", tab=LIVE + "users", user=MANAGER)
        assert status_of(server, user=("newcomer", PASSWORD)) == 200
        save(server, "newcomer", "Listener", "other", tab=LIVE + "users", user=MANAGER)
        assert status_of(server, user=("newcomer", PASSWORD)) == 451
        assert status_of(server, user=("newcomer", "other")) == 200
        delete(server, "newcomer", tab=LIVE + "users", user=MANAGER)
        assert status_of(server, user=("newcomer", "other")) == 451


def test_manager_edits_no_properties_of_an_account(start_server):
    server = station(start_server)
    one = LIVE + "users?u=hearer"
    answer = add(server, one, "All", "*", "2", MANAGER)
    assert answer.status == 200 and 'value="list"' in answer.text
    remove(server, one, "*", mount_id="2", user=MANAGER)
    assert server.read(FILE) == user_file(*ACCOUNTS)


def test_access_on_a_streams_tab_is_about_that_stream(start_server):
    server = station(start_server)
    one = OTHER + "users?u=guest"
    answer = page(server, one)
    assert selected(answer, "property_list") == ["2"]
    assert rows_of(post(server, one, {"action": "Edit Access", "property_list": "1"})) == [["*", "All", "/other"], [""]]
    add(server, one, "IP", "10.1.2.3", "1")
    assert (2, "IP", "10.1.2.3") in saved(server)["guest"][2]


# ---- bans ------------------------------------------------------------------------------------------------------------

def test_list_without_bans_and_its_form(start_server):
    server = station(start_server)
    answer = page(server, BANS)
    assert rows_of(answer) == [["No properties are currently configured for Banned Users."], [""]]
    assert buttons(answer) == [("submit", "Create")]
    answer = post(server, BANS, {"action": "Create", "property_list_subform": "list", "property_list": "-1"})
    assert "/32 or /0" in answer.text, "whoever writes such a range locks everybody out"


@pytest.mark.parametrize("kind, target, stored, client", [
    ("IP", "127.0.0.2", "127.0.0.2", "127.0.0.2"), ("Subnet", "127.0.1.9", "127.0.1.0/24", "127.0.1.5"),
    ("Subnet", "127.9.0.0/16", "127.9.0.0/16", "127.9.1.2"), ("Subnet", "10.1.2", "10.1.0/24", None)])
def test_ban_of_an_address_bites_and_is_lifted(start_server, kind, target, stored, client):
    server = station(start_server)
    assert redirected(add(server, BANS, kind, target), BANS)
    assert saved_list(server, "banned") == {(-1, kind, stored)}
    if client:
        assert page(server, "/admin/", ADMIN, source=client).status == 403
    assert "No properties" in remove(server, BANS, stored).text
    assert saved_list(server, "banned") == set()
    if client:
        assert page(server, "/admin/", ADMIN, source=client).status == 200


def test_ban_of_a_user_agent_bites_and_is_lifted(start_server):
    server = station(start_server)
    name = '"><script>alert(1)</script> &+%41='
    add(server, BANS, "User Agent", name)
    robot = {"User-Agent": name}
    assert page(server, "/", None, headers=robot).status == 403
    answer = page(server, BANS)
    assert rows_of(answer)[0] == [name, "User Agent", "All Resources"] and name in boxes(answer)
    assert "<script>alert" not in answer.text
    remove(server, BANS, name)
    assert page(server, "/", None, headers=robot).status == 200


def test_ban_of_a_stream_bites_there_alone(start_server):
    server = station(start_server)
    add(server, LIVE + "bans", "User Agent", "robot", user=MANAGER)
    assert saved_list(server, "banned") == {(1, "User Agent", "robot")}
    robot = {"User-Agent": "robot"}
    with HttpSource(server, "/live", media.mp3_frames(), user="several", password=PASSWORD), \
            HttpSource(server, "/other", media.mp3_frames(), user="several", password=PASSWORD):
        server.wait_source(2)
        assert status_of(server, "/live", headers=robot) == 451
        assert status_of(server, "/other", headers=robot) == 200
        assert status_of(server, "/live") == 200


def test_bans_of_a_stream_show_those_of_every_stream_with_disabled_boxes(start_server):
    server = station(start_server, users=user_file(*ACCOUNTS, banned=pseudo_user(
        "banned", (-1, "IP", "10.0.0.1"), (1, "IP", "10.0.0.2"), (2, "IP", "10.0.0.3"))))
    answer = page(server, LIVE + "bans", MANAGER)
    assert rows_of(answer)[:2] == [["10.0.0.1", "IP", "All Resources"], ["10.0.0.2", "IP", "/live"]]
    assert boxes(answer) == {"10.0.0.1": False, "10.0.0.2": True}
    assert all(boxes(page(server, LIVE + "bans")).values())
    assert [row[2] for row in rows_of(page(server, BANS))[:3]] == ["All Resources", "/live", "/other"]


def test_manager_lifts_bans_of_his_stream_alone(start_server):
    bans = [(-1, "IP", "10.0.0.1"), (1, "IP", "10.0.0.2"), (2, "IP", "10.0.0.2")]
    server = station(start_server, users=user_file(*ACCOUNTS, banned=pseudo_user("banned", *bans)))
    for mount_id in ("-1", "2", "", "x"):
        remove(server, LIVE + "bans", "10.0.0.1", "10.0.0.2", mount_id=mount_id, user=MANAGER)
    assert saved_list(server, "banned") == set(bans)
    remove(server, LIVE + "bans", "10.0.0.2", mount_id="1", user=MANAGER)
    assert saved_list(server, "banned") == {(-1, "IP", "10.0.0.1"), (2, "IP", "10.0.0.2")}


def test_page_of_all_bans_lifts_those_of_every_mount_only(start_server):
    bans = [(-1, "IP", "10.0.0.1"), (1, "IP", "10.0.0.2")]
    server = station(start_server, users=user_file(*ACCOUNTS, banned=pseudo_user("banned", *bans)))
    remove(server, BANS, "10.0.0.2", "10.0.0.1")
    assert saved_list(server, "banned") == {(1, "IP", "10.0.0.2")}


def test_manager_bans_on_his_stream_whatever_he_posts(start_server):
    server = station(start_server)
    add(server, LIVE + "bans", "User Agent", "robot", "-1", MANAGER)
    add(server, LIVE + "bans", "User Agent", "other", "2", MANAGER)
    assert saved_list(server, "banned") == {(1, "User Agent", "robot"), (1, "User Agent", "other")}


@pytest.mark.parametrize("kind, mount_id", [("5", "-1"), ("99", "-1"), ("-", "-1"), ("-1", "-1"), ("", "-1"), ("1", "-"), ("1", ""),
                                            ("1", "x"), ("1", "99999999999")])
def test_property_without_a_type_or_a_mount_is_not_taken(start_server, kind, mount_id):
    server = station(start_server)
    answer = add(server, BANS, kind, "10.0.0.1", mount_id)
    assert answer.status == 200 and 'name="target"' in answer.text
    assert "No properties" in page(server, BANS).text


def test_cancel_of_a_property_returns_to_its_list(start_server):
    server = station(start_server)
    assert redirected(post(server, BANS, {"action": "Cancel", "property_list_subform": "form", "property_list": "-1",
                                          "target": "10.0.0.1", "type": "1"}), BANS)
    assert "No properties" in page(server, BANS).text


# ---- reserved places -------------------------------------------------------------------------------------------------

def test_reserved_client_gets_into_a_full_stream(start_server):
    server = station(start_server, ("SourceUserMax1", 1))
    friend = {"User-Agent": "friend"}
    with HttpSource(server, "/live", media.mp3_frames(), user="encoder", password=PASSWORD):
        server.wait_source()
        with listening(server):
            assert status_of(server, headers=friend) != 200
            assert redirected(add(server, LIVE + "reserve", "User Agent", "friend", user=MANAGER), LIVE + "reserve")
            assert saved_list(server, "reserve") == {(1, "User Agent", "friend")}
            assert status_of(server) != 200
            with Listener(server, "/live", headers=friend) as listener:
                assert listener.head.status == 200
        remove(server, LIVE + "reserve", "friend", mount_id="1", user=MANAGER)
        assert saved_list(server, "reserve") == set()


def test_reserve_of_every_stream_is_kept_on_the_page_of_all(start_server):
    server = station(start_server)
    assert "configured for Reserved Users." in page(server, RESERVES).text
    assert redirected(add(server, RESERVES, "Subnet", "10.1.2.3"), RESERVES)
    assert saved_list(server, "reserve") == {(-1, "Subnet", "10.1.2.0/24")}
    assert rows_of(page(server, RESERVES))[0] == ["10.1.2.0/24", "Subnet", "All Resources"]


# ---- words of strangers ----------------------------------------------------------------------------------------------

HOSTILE = ["<b>\"&'", "a+b c", "100%", "%41", "a=b&c", "?u=x#", "../..", "\u00e9\u4e16", "]]>", "-1", "0", "&lt;"]


@pytest.mark.parametrize("name", HOSTILE)
def test_accounts_of_any_name_are_made_opened_kept_and_deleted(start_server, name):
    server = station(start_server)
    password = f"p {name} p"
    assert redirected(create(server, name, "Administrator", password), USERS)
    answer = page(server, USERS)
    assert name in links(answer) and [name, "Administrator"] in rows_of(answer) and "<b>" not in answer.text
    assert rows_of(one_account(server, name))[0] == ["Username:", name]
    assert redirected(add(server, f"{USERS}?u={urllib.parse.quote_plus(name)}", "All", "*"),
                      f"{USERS}?u={urllib.parse.quote_plus(name)}")
    server.stop()
    server.start()
    assert saved(server)[name] == (password, "Administrator", {(-1, "All", "*")})
    delete(server, name)
    assert name not in saved(server) and name not in boxes(page(server, USERS))


@pytest.mark.parametrize("end", ["\n", "\r", "\0"])
def test_names_filters_and_passwords_end_with_their_line(start_server, end):
    server = station(start_server)
    more = end + "<usergroup>Administrator</usergroup>"
    create(server, "newcomer" + more, "Listener", "word" + more)
    add(server, BANS, "User Agent", "robot" + more)
    assert saved(server)["newcomer"][:2] == ("word", "Listener")
    assert saved_list(server, "banned") == {(-1, "User Agent", "robot")}


def test_what_the_panel_wrote_is_there_after_a_restart(start_server):
    server = station(start_server)
    create(server, "newcomer", "Mount Manager", "word", tab=LIVE + "users")
    add(server, BANS, "IP", "127.0.0.2")
    server.kill()
    server.start()
    assert may_enter(server, "newcomer", "word")
    assert page(server, "/", None, source="127.0.0.2").status == 403
