"""./run, as a newcomer meets it: a station on the air, an address to listen at, and Ctrl-C."""
import os
import re
import runpy
import signal

import pytest

from harness.compare import assert_heard
from harness.listener import Listener
from harness.ports import PortBlock
from harness.programs import PATIENCE, run_program
from harness.server import REPORTS, ROOT, SANITIZERS, binary, is_listening

STATION = runpy.run_path(str(ROOT / "demo" / "station.py"))


@pytest.fixture
def start_run(start_program, tmp_path):
    """start_run(argument, ...): ./run with a server that is built already, on a free port, with a state of its own.

    `settings` is the text of "own.conf" where it starts, with {port} for that port.
    """
    block = PortBlock()
    state = tmp_path / "state"
    environment = {**SANITIZERS, "QUILLWAVE_BIN": binary(), "QUILLWAVE_STATE": str(state), "PORT": str(block.first)}

    def start(*arguments, settings=None):
        if settings:
            (tmp_path / "programs").mkdir()
            (tmp_path / "programs" / "own.conf").write_text(settings.format(port=block.first))
        run = start_program(ROOT / "run", *arguments, environment=environment)
        run.host, run.port, run.state = "127.0.0.1", block.first, state
        return run

    yield start
    block.release()


def printed(run):
    """What it says once the station is on the air, by the words in front."""
    run.wait_said("Ctrl-C ends it.")
    return dict(re.findall(r"^ {4}(\w+) +(\S+)", run.said(), re.M))


def settings(run):
    return dict(re.findall(r"^(\w+)=(.*)$", (run.state / "quillwave.conf").read_text(), re.M))


def listen(run):
    """A player with titles, once the station is on the air."""
    def on_the_air():
        if not is_listening(run.port):
            return None
        listener = Listener(run, "/demo", metadata=True)
        if listener.head.status == 200:
            return listener
        listener.close()
        return None
    return run.wait_until(on_the_air, "the station is not on the air")


def assert_ended(run, status=0):
    assert run.wait_end() == status
    assert run.group_members() == {}, "something is left behind"
    assert not REPORTS.search(run.said()), run.said()
    assert not is_listening(run.port)


def test_a_station_plays_until_ctrl_c(start_run, start_program, tmp_path):
    run = start_run()
    told = printed(run)
    assert told["Listen"] == f"http://localhost:{run.port}/demo"
    assert told["Panel"] == f"http://localhost:{run.port}/admin"
    assert told["Administrator"] == settings(run)["AdminUser"]
    assert told["Password"] == settings(run)["AdminPass"]

    with listen(run) as listener:
        listener.audio_until(lambda: listener.titles, within=PATIENCE)
        assert listener.titles[0] in STATION["TITLES"]

    curl = start_program("curl", "-sS", "-N", "-o", tmp_path / "heard", told["Listen"])
    heard = curl.wait_written(tmp_path / "heard", 30000)
    loop = b"".join(frame for frame, _ in STATION["frames"]((ROOT / "demo" / "loop.mp3").read_bytes()))
    assert_heard(heard, 3 * loop, least=len(heard) - 1024)

    run.interrupt()
    assert_ended(run)
    assert "Received termination request" in (run.state / "quillwave.log").read_text()


def test_a_second_start_keeps_the_settings(start_run):
    run = start_run()
    first = printed(run)
    listen(run).close()
    run.interrupt()
    assert_ended(run)
    run = start_run()
    assert printed(run) == first
    listen(run).close()
    run.interrupt()
    assert_ended(run)


def test_the_station_goes_when_the_server_does(start_run):
    run = start_run()
    listen(run).close()
    server = next(pid for pid, name in run.group_members().items() if name.startswith("quillwave"))
    os.kill(server, signal.SIGKILL)
    assert_ended(run, status=128 + signal.SIGKILL)


def test_a_configuration_of_ones_own_is_found_from_where_one_is(start_run, tmp_path):
    run = start_run("own.conf", settings="PortBase={port}\n")
    run.wait_until(lambda: is_listening(run.port), "nobody listens")
    run.interrupt()
    assert_ended(run)
    assert not run.state.exists()


def test_the_binary_for_run_can_be_configured(tmp_path):
    """What ./run does before it builds."""
    run_program("cmake", "-S", ROOT, "-B", tmp_path / "build", "--preset", "release", "-DBUILD_TESTING=OFF", within=300)
    assert (tmp_path / "build" / "build.ninja").exists()
