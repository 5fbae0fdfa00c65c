"""A station on the air, and small steps that many tests take with it."""
import contextlib

from . import media
from .client import fetch
from .listener import Listener
from .server import mount
from .source import HttpSource

PROPERTIES = {"icy-name": "Name", "icy-genre": "Genre", "icy-url": "http://x/", "icy-pub": "1", "icy-br": "128",
              "ice-description": "Words", "ice-audio-info": "a=1"}
FRAME = len(media.mp3_frame(0))


@contextlib.contextmanager
def on_air(start_server, settings=None, **options):
    """(server, source): a source with PROPERTIES is on /live and sends what the test pushes."""
    server = start_server(mount("/live") if settings is None else settings, **options)
    with HttpSource(server, "/live", headers=PROPERTIES) as source:
        server.wait_source()
        yield server, source


def frames(count, first=0):
    return media.join(media.mp3_frames(count, first))


def push_until_heard(source, listener, first):
    """Sends frames of these numbers and waits until the first of them is heard."""
    data = frames(60, first)
    source.push(data)
    return listener.audio_from(data[:FRAME - 1], FRAME)


def status_of(server, target="/live", **options):
    """The status that a listener is answered with; HEAD, so that nothing of the stream comes."""
    return fetch(server.port, target, method="HEAD", **options).status


def listening(server, target="/live", **options):
    """A listener that has been let in."""
    listener = Listener(server, target, **options)
    assert listener.head.status == 200, listener.head
    return listener
