"""Fixtures of all tests that run the whole program. See harness/__init__.py."""
import itertools
import os

import pytest

from harness.programs import Program
from harness.recordings import make_recordings
from harness.server import Server


@pytest.fixture
def start_server(tmp_path, request):
    """start_server(settings, ...): starts a server (harness.server.Server, or `kind`) and waits until it accepts.

    At the end of the test every server that was started is stopped and must have ended with 0 and without a
    sanitizer report. A server that the test expects to end otherwise is checked by the test: `returncode`.
    """
    servers = []

    def start(settings=(), *, kind=Server, directory=None, wait=True, **options):
        place = tmp_path / (directory or f"server{len(servers) + 1}")
        server = kind(place, settings, **options)
        servers.append(server)
        return server.start(wait=wait)

    yield start

    faults = []
    for server in servers:
        ended_before = not server.alive()
        try:
            status = server.stop()
            if status != 0 and not ended_before:
                faults.append(f"the server ended with {status}")
        except AssertionError as fault:
            faults.append(str(fault).splitlines()[0])
        faults += server.faults()
        failed = getattr(request.node, "failed", False)
        if faults or failed:
            print(server.report())
        server.close()
    if faults:
        pytest.fail("; ".join(faults))


@pytest.fixture
def start_program(tmp_path, request):
    """start_program(word, ...): starts a program of others (harness.programs.Program), killed at the test's end."""
    programs = []

    def start(*words, **options):
        programs.append(Program(tmp_path / "programs", *words, **options))
        return programs[-1]

    yield start

    for program in programs:
        program.kill()
        if getattr(request.node, "failed", False):
            print(f"---- {program.name} ----\n{program.said()[-4000:]}")


@pytest.fixture(scope="session")
def recordings(tmp_path_factory):
    """Encoded streams of all kinds (harness.recordings.Recording) by name, shared by the workers of this run."""
    base = tmp_path_factory.getbasetemp()
    run = base.parent if "PYTEST_XDIST_WORKER" in os.environ else base
    return make_recordings(run / "recordings")


def pytest_configure(config):
    config.addinivalue_line("markers", "waits(seconds): the test spends this time waiting for a rule of the server")
    config.addinivalue_line("markers", "once: the test waits so long that one build of the server is enough")


def pytest_collection_modifyitems(config, items):
    """The waits begin at once, spread over the parallel workers, which do the rest meanwhile.

    xdist hands every worker a stretch of the tests first, a quarter of its share. Who has the longest wait gets no other.
    """
    def seconds(item):
        marker = item.get_closest_marker("waits")
        return marker.args[0] if marker else 0
    workers = getattr(config, "workerinput", {}).get("workercount", 1)
    length = max(len(items) // workers // 4, 2)
    items.sort(key=seconds, reverse=True)
    waits = [item for item in items if seconds(item)]
    rest = iter(items[len(waits):])
    stretches = [[] for _ in range(workers)]
    for number, item in enumerate(waits):
        turn, worker = divmod(number, workers)
        stretches[worker if turn % 2 == 0 else -1 - worker].append(item)
    for stretch in stretches:
        stretch.extend(itertools.islice(rest, max(length - len(stretch), 0)))
    items[:] = [*itertools.chain.from_iterable(stretches), *rest]


@pytest.hookimpl(tryfirst=True, hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Lets fixtures know that their test has failed."""
    report = (yield).get_result()
    if report.when == "call" and report.failed:
        item.failed = True
