"""The file of settings: reload, save, includes, and the save that comes by itself."""
import contextlib
import stat
import time

import pytest

from harness import media
from harness.client import Connection, fetch
from harness.listener import Listener
from harness.operator import CONF, comes_true, lines_of, reload, save
from harness.panel import post
from harness.server import ADMIN, PATIENCE, mount
from harness.source import HttpSource
from harness.station import status_of


def settings_of(server):
    """The least that a whole file of settings needs."""
    return f"PortBase={server.port}\nSCSourcePort={server.source_port}\nServIP=127.0.0.1\nRealtimeLog=no\nNameLookups=no\n"


@contextlib.contextmanager
def live(start_server, settings=None, **options):
    """(server, source, text): a source is on /live; `text` is what the file of settings held at the start."""
    settings = [("NameLookups", "no"), *(mount("/live") if settings is None else settings)]
    server = start_server(settings, console=True, **options)
    with HttpSource(server, "/live") as source:
        server.wait_source()
        yield server, source, server.read(CONF)


# ---- reload: what takes effect at once -------------------------------------------------------------------------------

@pytest.mark.parametrize("key, value", [("UserMax", 0), ("Auth", "yes")])
def test_new_key_of_a_mount_takes_effect_at_once(start_server, key, value):
    with live(start_server) as (server, _, text):
        assert status_of(server) == 200
        reload(server, text + f"Source{key}1={value}\n")
        comes_true(server, lambda: status_of(server) == 451)


@pytest.mark.parametrize("key, value, header, before, after", [
    ("MetaInterval", 3000, "icy-metaint", "8192", "3000"), ("NameFormat", "%s!", "icy-name", "Unknown", "Unknown!"),
])
def test_next_listener_is_told_a_changed_key(start_server, key, value, header, before, after):
    def told():
        return fetch(server.port, "/live", method="HEAD", headers={"Icy-MetaData": "1"}).head[header]
    with live(start_server) as (server, _, text):
        assert told() == before
        reload(server, text + f"Source{key}1={value}\n")
        comes_true(server, lambda: told() == after)


def test_key_that_left_the_section_of_a_mount_is_gone(start_server):
    with live(start_server, mount("/live", UserMax=0)) as (server, _, text):
        assert status_of(server) == 451
        reload(server, text.replace("SourceUserMax1=0\n", ""))
        comes_true(server, lambda: status_of(server) == 200)


def test_changed_default_takes_effect_in_mounts_that_do_not_set_the_key(start_server):
    settings = [("DefaultUserMax", 5), *mount("/live"), *mount("/own", 2, User="own", UserMax=5)]
    with live(start_server, settings) as (server, _, text), HttpSource(server, "/own", user="own"):
        server.wait_source(2)
        reload(server, text.replace("DefaultUserMax=5", "DefaultUserMax=0"))
        comes_true(server, lambda: status_of(server) == 451)
        assert status_of(server, "/own") == 200


def test_key_of_its_own_gives_way_to_the_default_when_it_leaves(start_server):
    with live(start_server, [("DefaultUserMax", 0), *mount("/live", UserMax=5)]) as (server, _, text):
        assert status_of(server) == 200
        reload(server, text.replace("SourceUserMax1=5\n", ""))
        comes_true(server, lambda: status_of(server) == 451)


def test_address_becomes_and_ceases_to_be_the_default_mount(start_server):
    with live(start_server) as (server, _, text):
        reload(server, text + "SourceIsDefault1=yes\n")
        comes_true(server, lambda: status_of(server, "/;x") == 200)
        reload(server, text + "SourceIsDefault1=no\n")
        comes_true(server, lambda: status_of(server, "/;x") == 404)


def hostname_told(server):
    """What an invalid request is answered, which names the host."""
    with Connection(server.port) as connection:
        connection.send("GET / HTTP/1.1\r\n\r\n")
        return connection.receive_all().decode()


def test_global_key_takes_effect_at_the_next_use(start_server):
    server = start_server([("Hostname", "old.example")], console=True)
    assert "port old.example" in hostname_told(server)
    reload(server, server.read(CONF).replace("old.example", "new.example"))
    comes_true(server, lambda: "port new.example" in hostname_told(server))


def test_global_key_that_left_the_file_keeps_its_value_and_is_saved_again(start_server):
    server = start_server([("Hostname", "old.example")], console=True)
    text = server.read(CONF)
    reload(server, text.replace("Hostname=old.example\n", ""))
    save(server)
    assert "port old.example" in hostname_told(server)
    assert "Hostname=old.example\n" in server.read(CONF)


def test_debug_in_the_file_does_not_bring_debug_lines(start_server):
    server = start_server([("Debug", 1), *mount("/live")])
    assert status_of(server) == 503
    server.wait_log("> No Source (/live)")
    assert not any("Receiver media found." in line for line in server.log_lines())


# ---- reload: mounts --------------------------------------------------------------------------------------------------

def test_new_mount_takes_sources_and_the_old_one_goes_on(start_server):
    with live(start_server) as (server, source, text):
        with Listener(server, "/live") as listener:
            reload(server, text + lines_of(mount("/new", 2, User="new")))
            comes_true(server, lambda: status_of(server, "/new") == 503)
            with HttpSource(server, "/new", user="new"):
                server.wait_source(2)
                assert status_of(server, "/new") == 200
            stream = media.join(media.mp3_frames(60))
            source.push(stream)
            assert listener.audio(16000) == stream[:16000]


def test_vanished_mount_lets_source_and_listeners_go(start_server):
    settings = [*mount("/live"), *mount("/gone", 2, User="gone")]
    with live(start_server, settings) as (server, source, text), HttpSource(server, "/gone", user="gone") as other, \
            contextlib.ExitStack() as stack:
        server.wait_source(2)
        left = stack.enter_context(Listener(server, "/gone"))
        stays = stack.enter_context(Listener(server, "/live"))
        reload(server, text.replace(lines_of(mount("/gone", 2, User="gone")), ""))
        server.wait_log("Closing Mount /gone down")
        assert left.ends_within(2 * PATIENCE)
        assert other.connection.ends_within(2 * PATIENCE)
        comes_true(server, lambda: status_of(server, "/gone") == 404)
        stream = media.join(media.mp3_frames(60))
        source.push(stream)
        assert stays.audio(16000) == stream[:16000]
        save(server)
        assert server.read(CONF) == text.replace(lines_of(mount("/gone", 2, User="gone")), "")


def test_number_of_a_vanished_mount_serves_again(start_server):
    gone, back = lines_of(mount("/gone", 2, User="gone")), lines_of(mount("/back", 2, User="back"))
    with live(start_server, [*mount("/live"), *mount("/gone", 2, User="gone")]) as (server, _, text):
        reload(server, text.replace(gone, ""))
        comes_true(server, lambda: status_of(server, "/gone") == 404)
        for _ in range(2):
            reload(server, text.replace(gone, back))
            comes_true(server, lambda: status_of(server, "/back") == 503)
        with HttpSource(server, "/back", user="back"):
            server.wait_source(2)
            reload(server)
            assert status_of(server, "/back") == 200
        assert server.read(CONF).count("SourceMount2=/back\n") == 1
        comes_true(server, lambda: status_of(server, "/stream/2") == 503)


def test_reload_of_an_unchanged_file_changes_nothing(start_server):
    with live(start_server) as (server, source, text):
        with Listener(server, "/live") as listener:
            for _ in range(5):
                reload(server, text)
            stream = media.join(media.mp3_frames(60))
            source.push(stream)
            assert listener.audio(16000) == stream[:16000]
        assert not any("Disconnected" in line or "Closing" in line for line in server.log_lines())


def test_disabled_mount_takes_no_source_until_it_is_enabled(start_server):
    server = start_server(mount("/live", Disabled="yes"), console=True)
    text = server.read(CONF)
    assert "/live" not in server.thread_names()
    with pytest.raises(PermissionError, match="503 Service Unavailable"):
        HttpSource(server, "/live").start()
    reload(server, text.replace("SourceDisabled1=yes\n", ""))
    comes_true(server, lambda: "/live" in server.thread_names())
    with HttpSource(server, "/live"):
        server.wait_source()
        assert status_of(server) == 200


def test_reload_while_the_file_is_missing_keeps_everything(start_server):
    with live(start_server) as (server, _, text):
        server.path(CONF).unlink()
        server.say("r\n")
        server.wait_log(f"WARNING: {CONF} could not be loaded. Please Configure via your web browser")
        assert status_of(server) == 200
        save(server)
        assert sorted(server.read(CONF).splitlines()) == sorted(text.splitlines())


@pytest.mark.waits(9)
def test_reload_is_no_reason_to_save(start_server):
    server = start_server([("Hostname", "old.example"), *mount("/live")], console=True)
    text = "; mine\n" + server.read(CONF).replace("old.example", "new.example") + "SourceUserMax1=5\n"
    reload(server, text)
    time.sleep(9)
    assert server.read(CONF) == text
    assert not any(line.startswith("Configuration saved") for line in server.log_lines())


# ---- old lines -------------------------------------------------------------------------------------------------------

def test_lines_without_numbers_get_them_from_the_newest_section_on(start_server):
    server = start_server(console=True, config=lambda s: settings_of(s) + (
        "SourceName=A\nSourceMount=/a\nSourceUserMax=1\nSourceMount=/b\nSourceUserMax=2\n"))
    first = settings_of(server).count("\n") + 1
    server.wait_log(f"Configuration Warning: Source definition SourceName is missing its index at line {first}, ignored.")
    for line in (first + 1, first + 3):
        server.wait_log(f"Configuration Warning: Detected old style Source definition SourceMount on line {line}.  "
                        "Please start using indexes when possible.")
    assert [status_of(server, target) for target in ("/a", "/b", "/stream/1", "/stream/2")] == [503] * 4
    save(server)
    assert server.read(CONF) == settings_of(server) + \
        "SourceMount2=/a\nSourceUserMax2=1\nSourceMount1=/b\nSourceUserMax1=2\n"


@pytest.mark.parametrize("line", ["SOURCEMOUNT3=/x", "sourcemount3=/x", "SourceMount03=/x", "SourceMount3x=/x", "SourceMount3 =/x",
                                  "SourceMount3=  /x \t\r"])
def test_line_of_a_mount_in_any_spelling(start_server, line):
    server = start_server(config=lambda s: settings_of(s) + line + "\n")
    assert [status_of(server, "/x"), status_of(server, "/stream/3")] == [503, 503]


@pytest.mark.parametrize("line", [" SourceMount1=/x", "\tSourceMount1=/x", ";SourceMount1=/x", "SourceMount1 /x", "Source=x",
                                  "Source1Mount=/x", "#SourceMount1=/x"])
def test_line_that_is_no_mount(start_server, line):
    server = start_server(config=lambda s: settings_of(s) + line + "\n" + lines_of(mount("/live", 9)))
    assert [status_of(server, "/x"), status_of(server)] == [404, 503]


# ---- save ------------------------------------------------------------------------------------------------------------

def test_saving_what_has_not_changed_keeps_the_file_byte_for_byte(start_server):
    def config(server):
        return ("; Station\n\n" + settings_of(server) + "\n; Listeners\n  indented=comment\n\tso is=this\nno setting\n"
                "ClientTimeout=40\nFoo =bar\nEmpty=\nLong=a=b=c\n\n; Defaults\nDefaultUserMax=100\n\n; First\n"
                "SourceMount1=/live\n; between\nSourceUser1=source\nSourcePass1=hackme\n\n; the end\n")
    server = start_server(config=config, console=True)
    save(server)
    assert server.read(CONF) == config(server)


def test_saving_trims_values_and_ends_the_last_line(start_server):
    server = start_server(console=True, config=lambda s: settings_of(s) + "Foo = bar \r\n; comment\r\nLast=x")
    save(server)
    assert server.path(CONF).read_bytes().decode() == settings_of(server) + "Foo =bar\n; comment\r\nLast=x\n"


def test_key_that_is_not_in_the_file_is_saved_at_its_end(start_server):
    server = start_server(console=True, config=lambda s: settings_of(s) + "; before\nHostname=h\n; behind\n")
    server.write(CONF, server.read(CONF).replace("Hostname=h\n", ""))
    save(server)
    assert server.read(CONF) == settings_of(server) + "; before\n; behind\nHostname=h\n"


def test_key_that_left_the_tree_leaves_the_file_and_its_comment_stays(start_server):
    server = start_server([("NameLookups", "no"), *mount("/live", UserMax=5)], console=True)
    before = server.read(CONF)
    reload(server, before.replace("SourceUserMax1=5\n", ""))
    server.write(CONF, before.replace("SourceUserMax1=5\n", "; many\nSourceUserMax1=5\n"))
    save(server)
    assert server.read(CONF) == before.replace("SourceUserMax1=5\n", "; many\n")


def test_repeated_keys_are_saved_in_their_order(start_server):
    def config(server):
        return settings_of(server).replace("ServIP=127.0.0.1\n", "ServIP=127.0.0.1\nServIP=127.0.0.2\nServIP=127.0.0.1\n")
    server = start_server(config=config, console=True)
    reload(server, config(server))
    save(server)
    assert server.read(CONF) == config(server)


@pytest.mark.parametrize("mode", [0o600, 0o640, 0o644])
def test_saving_keeps_the_mode_of_the_file(start_server, mode):
    server = start_server(console=True)
    server.path(CONF).chmod(mode)
    save(server)
    assert stat.S_IMODE(server.path(CONF).stat().st_mode) == mode


def test_file_that_cannot_be_saved_is_logged(start_server):
    server = start_server(console=True)
    server.path(CONF).unlink()
    server.path(CONF).mkdir()
    server.say("s\n")
    server.wait_log(f"WARNING: {CONF} could not be saved")
    assert server.alive()


def test_saving_leaves_no_other_files_behind(start_server):
    server = start_server(console=True)
    for _ in range(3):
        save(server)
    names = {file.name for file in server.directory.iterdir()}
    assert names == {CONF, "quillwave.log", "quillwave.pid", "stdout", "stderr"}


# ---- includes --------------------------------------------------------------------------------------------------------

def with_include(start_server, text, **files):
    def config(server):
        for name, words in files.items():
            server.write(name + ".conf", words)
        return settings_of(server) + text
    return start_server(config=config, console=True)


def test_included_files_are_read_where_they_stand_and_saved_each_for_itself(start_server):
    text = "include=mounts.conf\n; behind\nSourceUserMax1=3\n"
    mounts = "; the mounts\nSourceMount1=/live\ninclude=more.conf\nSourceUser1=source\n"
    more = "; more\nSourceMount2=/more\n"
    server = with_include(start_server, text, mounts=mounts, more=more)
    assert [status_of(server), status_of(server, "/more")] == [503, 503]
    save(server)
    saved = {name: server.read(name) for name in (CONF, "mounts.conf", "more.conf")}
    assert saved["more.conf"] == more
    assert saved["mounts.conf"].startswith("; the mounts\nSourceMount1=/live\n")
    assert saved[CONF].startswith(settings_of(server) + "include=mounts.conf\n; behind\n")
    everything = "".join(saved.values())
    for line in ("SourceMount1=/live\n", "SourceUser1=source\n", "SourceUserMax1=3\n", "SourceMount2=/more\n"):
        assert everything.count(line) == 1, (line, saved)


def test_missing_include_is_logged_and_the_rest_is_read(start_server):
    server = with_include(start_server, "include=nowhere.conf\nSourceMount1=/live\n")
    server.wait_log("WARNING: nowhere.conf could not be loaded")
    assert status_of(server) == 503
    save(server)
    assert server.read(CONF) == settings_of(server) + "include=nowhere.conf\nSourceMount1=/live\n"


def test_file_that_includes_itself_is_read_once(start_server):
    server = with_include(start_server, "include=ring.conf\nSourceMount1=/live\n",
                          ring=f"include={CONF}\ninclude=ring.conf\nSourceMount2=/ring\n")
    for name in (CONF, "ring.conf"):
        server.wait_log(f"WARNING: {name} could not be loaded")
    assert [status_of(server), status_of(server, "/ring")] == [503, 503]
    assert "Server Bound 2 sockets" in server.log_lines()


def test_line_numbers_of_warnings_are_those_of_the_included_file(start_server):
    server = with_include(start_server, "include=old.conf\n", old="; one\n; two\nSourceName=x\n")
    server.wait_log("Configuration Warning: Source definition SourceName is missing its index at line 3, ignored.")


PANEL = f"AdminUser={ADMIN[0]}\nAdminPass={ADMIN[1]}\n"


def test_key_added_on_the_panel_stands_at_the_end_of_the_main_file(start_server):
    text = PANEL + "include=more.conf\n; behind\nClientTimeout=40\nDefaultIPUserMax=3\nSourceMount2=/own\n; the end\n"
    more = "; more\nYPLog=no\nDefaultMetaInterval=3000\nSourceMount1=/live\n; end of more\n"
    server = with_include(start_server, text, more=more)
    post(server, "/admin/configure_defaults", {"action": "Save", "UserMax": "7"})
    post(server, "/admin/configure", {"action": "Save", "Hostname": "here.example"})
    save(server)
    assert server.read("more.conf") == more
    assert server.read(CONF) == settings_of(server) + text + "Hostname=here.example\nDefaultUserMax=7\n"


def test_key_added_on_the_panel_to_an_included_mount_stands_with_its_mount(start_server):
    text = PANEL + "include=more.conf\n; behind\nClientTimeout=40\n"
    more = "; more\nSourceMount1=/live\n; end of more\n"
    server = with_include(start_server, text, more=more)
    post(server, "/admin/stream/1/configure", {"action": "Save", "UserMax": "7"})
    save(server)
    assert server.read("more.conf") == more.replace("/live\n", "/live\nSourceUserMax1=7\n")
    assert server.read(CONF) == settings_of(server) + text


# ---- the automatic save ----------------------------------------------------------------------------------------------

def without_source_port(server):
    """Settings that the start changes, as it fills in the missing port."""
    return "; mine\n" + settings_of(server).replace(f"SCSourcePort={server.source_port}\n", "") + "; the end\n"


@pytest.mark.waits(7)
def test_change_is_saved_some_six_seconds_later(start_server):
    began = time.monotonic()
    server = start_server(config=without_source_port)
    text = without_source_port(server)
    server.wait_log(f"Configuration saved to {CONF}")
    assert time.monotonic() - began > 4.5
    assert server.read(CONF) == text + f"SCSourcePort={server.source_port}\n"
    assert sum(line.startswith("Configuration saved") for line in server.log_lines()) == 1


def test_save_that_is_pending_is_done_at_the_stop(start_server):
    server = start_server(config=without_source_port)
    text = without_source_port(server)
    server.wait_until(lambda: "ConfigWatch Tim" in server.thread_names(), complaint="no save is pending")
    assert server.read(CONF) == text
    assert server.stop() == 0
    assert server.read(CONF) == text + f"SCSourcePort={server.source_port}\n"


def test_save_that_is_pending_is_done_before_a_reload(start_server):
    server = start_server(config=without_source_port, console=True)
    server.wait_until(lambda: "ConfigWatch Tim" in server.thread_names(), complaint="no save is pending")
    server.say("r\n")
    server.wait_log("Configuration reload started")
    lines = server.log_lines()
    assert lines.index(f"Configuration saved to {CONF}") < lines.index("Configuration reload started")
    assert f"SCSourcePort={server.source_port}\n" in server.read(CONF)
