"""Random and hostile forms posted to the panel by every group of account.

Whatever is posted, the server lives, no page holds markup of a client's making, and nothing changes that the poster
has no right to change. The forms are drawn from a seed, sent by several clients at once, and made of what the panel's
own pages offer to an administrator: who posts knows every name, number and identifier.
"""
import concurrent.futures
import html.parser
import random
import re
import urllib.parse
import xml.etree.ElementTree as xml

import pytest

from harness import media
from harness.accounts import account, pseudo_user, user_file
from harness.client import basic, fetch
from harness.listener import Listener
from harness.operator import CONF
from harness.panel import FORM
from harness.server import ADMIN, mount
from harness.source import HttpSource

SEED = 20160111
FORMS = 400  # for each group
CLIENTS = 6
FILE = "quillwave-users.xml"
PASSWORD = "x"
ACCOUNTS = {  # name to group and mounts
    "manager": ("Mount Manager", (1,)), "several": ("Mount Manager", (1, 2)), "everywhere": ("Mount Manager", (-1,)),
    "encoder": ("Mount Source", (1,)), "hearer": ("Listener", (1,)), "guest": ("Listener", (1, 2)), "member": ("Listener", (-1,)),
    "foreign": ("Mount Manager", (2,)), "stranger": ("Listener", (3,)), "watcher": ("Statistics", (-1,)), "shut": ("Banned", (-1,)),
}
BANS = [(-1, "IP", "10.0.0.1"), (1, "IP", "10.0.0.2"), (2, "IP", "10.0.0.3")]
RESERVES = [(-1, "User Agent", "friend"), (2, "User Agent", "other friend")]
MOUNTS = ["/live", "/other", "/third"]


# ---- marks -----------------------------------------------------------------------------------------------------------

MARK = "qfz"  # the name of elements, attributes and script functions that only a client could have made
MARKS = [f"<{MARK}>", f'"><{MARK} x="', f"'><{MARK} x='", f'" on{MARK}="1', f"' on{MARK}='1", f"</script><{MARK}>", f"--><{MARK}>",
         f"</select></textarea></title><{MARK}>", f"<script>{MARK}()</script>", f"&lt;{MARK}&gt;<{MARK}/>", f"javascript:{MARK}()",
         f"\\x3c{MARK}\\x3e", f"';{MARK}();'", f'";{MARK}();"', f"javascript://%0a{MARK}()"]
ADDRESSES = ("href", "src", "action", "formaction")


class Reader(html.parser.HTMLParser):
    """Reads a page as a browser does, and collects what a client's mark has become more than text."""

    def __init__(self):
        super().__init__()
        self.faults = []
        self.in_script = False

    def handle_starttag(self, tag, attrs):
        self.in_script = tag == "script"
        self.faults += [f"<{tag}>"] if MARK in tag else []
        for name, value in attrs:
            script = name in ADDRESSES and (value or "").strip().lower().startswith("javascript:")
            if MARK in name or ((script or name.startswith("on")) and MARK in (value or "")):
                self.faults.append(f"<{tag} {name}={value}>")

    def handle_endtag(self, tag):
        self.in_script = False

    def handle_data(self, data):
        if self.in_script and MARK in data:
            self.faults.append(f"script: {data[max(0, data.index(MARK) - 40):][:80]}")


def faults_of(answer):
    if not (answer.head.get("content-type") or "text/html").startswith("text/html"):
        return []
    reader = Reader()
    reader.feed(answer.text)
    reader.close()
    return reader.faults


def test_reader_finds_what_it_is_for():
    for markup in ("<p><qfz>", '<p onqfz="1">', "<a href=' javascript:qfz()'>", "<script>var a = 'qfz';</script>"):
        reader = Reader()
        reader.feed(markup)
        assert reader.faults, markup
    reader = Reader()
    reader.feed('<input name="javascript:qfz()"><p title="&quot;&gt;&lt;qfz&gt;">&lt;qfz&gt; javascript:qfz()<script>var a;</script>qfz</p>')
    assert not reader.faults


# ---- what is posted --------------------------------------------------------------------------------------------------

SUBPAGES = ["stats", "listeners", "played", "publication", "configure", "users", "bans", "reserve", "nothing"]
PATHS = (["/admin", "/admin/", "/admin/listeners", "/admin/configure", "/admin/configure_defaults", "/admin/users", "/admin/users?m=b",
          "/admin/users?m=v", "/admin/log", "/admin/nothing", "/admin/stream/99/users", "/admin/stream/-1/configure",
          "/admin/stream/x/bans", "/", "/about", "/view/1/", "/view/99/stats"]
         + [f"/admin/stream/{number}/{subpage}" for number in (1, 2, 3) for subpage in SUBPAGES]
         + [f"/admin/{subpage}" for subpage in SUBPAGES])
FORM_PATHS = [path for path in PATHS if path.startswith("/admin") and path != "/admin/log"]
ACCOUNT_PATHS = [path for path in FORM_PATHS if re.search("/(users|bans|reserve)", path)]
TICKS = [*ACCOUNTS, "admin", "new", "newer", "10.0.0.1", "10.0.0.2", "10.0.0.3", "friend", "other friend"]
OTHER_NAMES = ["action", "property_list", "property_list_subform", "username", "password", "password-confirm", "group", "target", "type",
               "addr", "move_to", "", "-", "-1", "0", "1", "2147483648", "AdminUser", "AdminPass", "User", "Pass", "Mount", "Note", "Source",
               "Default", "a\r\nAdminPass=e", "Note\0", ";x", "x=y", *TICKS]
ACTIONS = ["Create", "Delete", "Save", "Cancel", "Edit Access", "Disable", "Enable", "Kick", "Clear", "Add", "Move", "", "delete"]
VALUES = ["on", "1", "0", "-1", "2", "3", "4", "5", "6", "7", "99", "-", "*", "form", "list", "2147483648", "99999999999999999999", "yes", "no",
          "*******", "a", "", "/live", "/other", "/new", "/", "/;x", "admin", "foreign", "10.9.9.0/24", "10.9.9.9",
          "x\r\nAdminUser=evil\r\nAdminPass=evil\r\n", "x\nAdminUser=evil\nAdminPass=evil\n", "a\0b", "%00%0d%0a", "\x01\x1f\x7f", "\xff\xfe",
          "\u202e\U0001f600", "A" * 5000, *MARKS]
# Values that would take the server's own limits away from under the test, or leave the machine.
UNTOUCHED = re.compile(r"maxrequestbuffersize|uploadlimit|sockettimeout|relay|notify|directory|logfile|intro", re.I)


def harvest(server):
    """What the pages offer to an administrator: (names of fields, labels of buttons, other values)."""
    names, actions, values = set(), set(), set()
    for path in PATHS + [f"/admin/users?u={name}" for name in ACCOUNTS]:
        text = fetch(server.port, path, user=ADMIN).text if path != "/admin/log" else ""
        for tag in re.findall(r"<(?:input|select|option)[^>]*>", text):
            found = {key: html.unescape(value) for key, value in re.findall(r'([\w-]+)="([^"]*)"', tag)}
            names.add(found.get("name", ""))
            (actions if found.get("type") == "submit" else values).add(found.get("value", ""))
    return sorted(names | set(OTHER_NAMES)), sorted(actions | set(ACTIONS)), sorted(values | set(VALUES))


class Writer:
    """Draws forms."""

    def __init__(self, seed, offer):
        self.dice = random.Random(seed)
        self.names, self.actions, self.values = offer

    def name(self):
        return self.dice.choice(self.names) if self.dice.random() < 0.9 else self.dice.choice(MARKS)

    def value(self):
        return self.dice.choice(self.values)

    def fields(self):
        """Anything anywhere."""
        fields = {self.name(): self.value() for _ in range(self.dice.randint(0, 12))}
        if self.dice.random() < 0.9:
            fields["action"] = self.dice.choice(self.actions)
        return fields

    def account_fields(self):
        """What the forms of accounts and of their properties post, mostly."""
        password = self.dice.choice(["p", "p", "*******", ""])
        return {"username": self.dice.choice(["new", "newer", "hearer", *MARKS]), "password": password, "password-confirm": password,
                "group": str(self.dice.choice([2, 3, 4, 5, 6, 6, 7, 99])), "target": self.value(),
                "type": str(self.dice.choice([0, 1, 2, 3, 3, 4, 5])), "property_list": self.dice.choice(["-1", "-1", "1", "2", "x"]),
                "property_list_subform": self.dice.choice(["", "", "list", "form"]),
                "action": self.dice.choice(["Create", "Create", "Save", "Save", "Delete", "Delete", "Cancel", "Edit Access"]),
                **dict.fromkeys(self.dice.sample(TICKS, len(TICKS) // 2), "on"), self.name(): "on"}

    def target(self, paths):
        path = self.dice.choice(paths)
        if "?" not in path and self.dice.random() < 0.7:
            name = self.dice.choice([*ACCOUNTS, *ACCOUNTS, *ACCOUNTS, "admin", "new", "newer", *MARKS])
            path += "?" + urllib.parse.urlencode({self.dice.choice("uuums"): name})
        return path

    def body(self, fields):
        """(body, content type)"""
        kind = self.dice.random()
        if kind < 0.85:
            return urllib.parse.urlencode(fields).encode(), FORM
        if kind < 0.95:
            parts = "".join(f'--{MARK}\r\nContent-Disposition: form-data; name="{name}"\r\n\r\n{value}\r\n' for name, value in fields.items())
            return f"{parts}--{MARK}--\r\n".encode("utf-8", "replace"), f"multipart/form-data; boundary={MARK}"
        return self.dice.randbytes(self.dice.randint(1, 200)), FORM

    def form(self):
        """The target and the options of a request."""
        about_accounts = self.dice.random() < 0.7
        fields = self.account_fields() if about_accounts else self.fields()
        body, kind = self.body({name: value for name, value in fields.items() if not UNTOUCHED.search(name)})
        headers = {"Content-Type": kind, "User-Agent": self.dice.choice(MARKS), "Referer": self.dice.choice(MARKS),
                   "Cookie": self.dice.choice(MARKS)}
        return self.target(ACCOUNT_PATHS if about_accounts else FORM_PATHS), {"method": "POST", "body": body, "headers": headers}


# ---- the server under fire -------------------------------------------------------------------------------------------

def start(start_server):
    """A server whose files are as it writes them itself: what changes later is a form's doing."""
    settings = [pair for number, address in enumerate(MOUNTS, 1) for pair in mount(address, number, User=None, Pass=None, UserMax=50)
                if pair[1] is not None]
    users = user_file(*(account(name, PASSWORD, group, mounts) for name, (group, mounts) in ACCOUNTS.items()),
                      account(*ADMIN, "Administrator"),
                      banned=pseudo_user("banned", *BANS), reserve=pseudo_user("reserve", *RESERVES))
    server = start_server([("AdminUser", None), ("AdminPass", None), *settings], users=users)
    server.stop()
    return server.start()


class Fire:
    """A server on the air, and what its files held before."""

    def __init__(self, start_server):
        self.server = start(start_server)
        self.settings = self.server.read(CONF).splitlines()
        self.users = self.server.read(FILE)
        self.faults = []
        self.statuses = {}

    def __enter__(self):
        self.sources = [HttpSource(self.server, address, media.mp3_frames(), user=ADMIN[0], password=ADMIN[1]).start()
                        for address in MOUNTS]
        self.server.wait_source(len(MOUNTS))
        # From an address of their own, so that a ban of theirs leaves the posters alone.
        self.listeners = [Listener(self.server, address, headers={"User-Agent": MARKS[1]}, source="127.9.9.9") for address in MOUNTS]
        return self

    def __exit__(self, *_):
        for one in self.sources:
            one.stop()
        for one in self.listeners:
            one.close()

    def look(self, target, **options):
        try:
            answer = fetch(self.server.port, target, **options)
        except (EOFError, ConnectionError):  # a body that is no form may end the connection
            assert self.server.alive()
            self.statuses[0] = self.statuses.get(0, 0) + 1
            return
        self.statuses[answer.status] = self.statuses.get(answer.status, 0) + 1
        self.faults += [f"{options.get('method', 'GET')} {target}: {fault}" for fault in faults_of(answer)]

    def shoot(self, seed, **login):
        """Posts the forms, and looks at every page as the poster and as the administrator."""
        writer = Writer(seed, harvest(self.server))
        forms = [writer.form() for _ in range(FORMS)]
        with concurrent.futures.ThreadPoolExecutor(CLIENTS) as clients:
            list(clients.map(lambda form: self.look(form[0], **self.signed(form[1], login)), forms))
            list(clients.map(lambda path: self.look(path, **self.signed({}, login)), FORM_PATHS))
            list(clients.map(lambda path: self.look(path, user=ADMIN), PATHS))
        assert self.server.alive() and not self.faults, "\n".join(self.faults[:10])

    @staticmethod
    def signed(options, login):
        return {**options, **login, "headers": {**options.get("headers", {}), **login.get("headers", {})}}

    def is_on_air(self, number):
        """Whether nobody ended the mount's source or its listener."""
        place = number - 1
        return not self.sources[place].ended_by_server(0) and not self.listeners[place].ends_within(0.2)


@pytest.fixture
def fire(start_server):
    with Fire(start_server) as fire:
        yield fire


# ---- what has changed ------------------------------------------------------------------------------------------------

def settings_changed(fire):
    """The settings that are not as before, without those of the mounts' numbers in the keys: [(key, number)]."""
    now = fire.server.read(CONF).splitlines()
    changed = {line for line in now if line not in fire.settings} | {line for line in fire.settings if line not in now}
    changed.discard("NameLookups=")  # the server's own line, which comes with the first save
    return sorted(line.split("=")[0] for line in changed)


def parsed(text):
    """What a user file holds, control bytes aside, which the server's own reader takes as they come."""
    root = xml.fromstring(re.sub(r"[\x00-\x08\x0b\x0c\x0e-\x1f\ufffe\uffff]", "?", text))
    users = {user.findtext("username"): (user.findtext("password"), user.findtext("usergroup"), filters(user)) for user in root.iter("user")}
    return users, filters(root.find("banned")), filters(root.find("reserve"))


def filters(element):
    return {(int(entry.get("mount")), one.get("type"), one.text) for entry in element.iter("property") for one in entry.iter("filter")}


def outside(entries, mounts):
    return {entry for entry in entries if entry[0] not in mounts}


def stop(fire):
    """An orderly end, which saves what waits to be saved."""
    assert fire.server.stop() == 0
    assert not re.search("^Admin(User|Pass)|evil$", fire.server.read(CONF), re.I | re.M), "a value became a line of its own"


def assert_nothing_changed(fire):
    for number in (1, 2, 3):
        assert fire.is_on_air(number), MOUNTS[number - 1]
    stop(fire)
    assert fire.server.read(CONF).splitlines() == fire.settings and fire.server.read(FILE) == fire.users


STRANGERS = {"nobody": {}, "unknown name": {"user": (MARKS[1], MARKS[1])}, "wrong password": {"user": ("admin", "wrong")},
             "no password": {"headers": {"Authorization": basic("admin", "")}}, "listener": {"user": ("hearer", PASSWORD)},
             "statistics": {"user": ("watcher", PASSWORD)}, "banned group": {"user": ("shut", PASSWORD)}}


@pytest.mark.parametrize("who", STRANGERS)
def test_who_has_no_panel_changes_nothing(fire, who):
    fire.shoot(f"{SEED} {who}", **STRANGERS[who])
    assert 303 not in fire.statuses, fire.statuses
    assert_nothing_changed(fire)


# Who posts, the mounts that he manages, whom he may change, and the groups that he hands out.
MANAGERS = {
    "encoder": ((1,), (), ("Mount Source", "Listener")),
    "manager": ((1,), ("manager", "encoder", "hearer"), ("Mount Manager", "Mount Source", "Listener")),
    "several": ((1, 2), ("manager", "encoder", "hearer", "foreign"), ("Mount Manager", "Mount Source", "Listener")),
}


@pytest.mark.parametrize("who", MANAGERS)
def test_managers_change_what_is_theirs(fire, who):
    mounts, reach, handed_out = MANAGERS[who]
    fire.shoot(f"{SEED} {who}", user=(who, PASSWORD))
    for number in {1, 2, 3} - set(mounts):
        assert fire.is_on_air(number), MOUNTS[number - 1]
    stop(fire)

    strange = [key for key in settings_changed(fire) if not re.fullmatch(rf"Source\D*(?:{'|'.join(map(str, mounts))})", key, re.I)]
    assert not strange
    (users, bans, reserves), (old_users, old_bans, old_reserves) = parsed(fire.server.read(FILE)), parsed(fire.users)
    for name, old in old_users.items():
        if name not in reach:
            assert users.get(name) == old, name
    for name, (_, group, properties) in users.items():
        if name not in old_users or users[name] != old_users[name]:
            assert group in handed_out, name
            assert not outside(properties, mounts), name
    assert outside(bans, mounts) == outside(old_bans, mounts) and outside(reserves, mounts) == outside(old_reserves, mounts)
    assert any(status == 303 for status in fire.statuses), "no form was taken"


@pytest.mark.parametrize("turn", range(3))
def test_administrators_forms_hold_no_markup_and_what_was_saved_can_be_read(fire, turn):
    fire.shoot(f"{SEED} admin {turn}", user=ADMIN, headers={"User-Agent": "a poster"})
    assert fire.statuses.get(303), "no form was taken"
    stop(fire)
    written = fire.server.read(FILE)
    fire.server.write(CONF, "\n".join(fire.settings) + "\n")
    fire.server.start()
    assert fire.server.stop() == 0
    assert set(parsed(fire.server.read(FILE))[0]) <= set(parsed(written)[0]), "an account came from nowhere"
