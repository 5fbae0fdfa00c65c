"""Fixtures of all tests that run the whole program. See harness/__init__.py."""
import pytest

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


@pytest.hookimpl(tryfirst=True, hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """Lets fixtures know that their test has failed."""
    report = (yield).get_result()
    if report.when == "call" and report.failed:
        item.failed = True
