"""A station that is listed on directories, and what the panel says of them."""
import contextlib

from .client import basic, fetch
from .server import ADMIN
from .source import HttpSource
from .station import PROPERTIES, frames, listening, push_until_heard


@contextlib.contextmanager
def on_air(server, headers=PROPERTIES, count=1, **options):
    with HttpSource(server, "/live", headers=headers, **options) as source:
        server.wait_source(count)
        source.push(frames(300))
        yield source


def listings(server):
    """The rows of the panel's list of directories."""
    answer = fetch(server.port, "/admin/stream/1/publication", headers={"Authorization": basic(*ADMIN)})
    assert answer.status == 200
    return answer.text


def wait_status(server, words):
    server.wait_until(lambda: words in listings(server), complaint=f"the list of directories never said {words!r}")


def assert_source_returns(server, directory):
    """The mount takes a second source, which is heard and listed again."""
    server.wait_source_gone()
    with on_air(server, count=2) as source, listening(server) as ear:
        push_until_heard(source, ear, 300)
        directory.wait_call("add", 2)
