"""The images and the movie of the site are what their sources make."""
import struct
import subprocess
import zlib

import pytest

from harness.server import ROOT

ASSETS = ROOT / "src" / "web" / "assets"
BINARY_DATA = 87  # the tag that fills the movie up


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    """A directory with everything made again."""
    directory = tmp_path_factory.mktemp("made")
    subprocess.run([ROOT / "tools" / "make_images.py", directory], check=True)
    subprocess.run([ROOT / "tools" / "make_movie.py", directory / "quillwave.swf"], check=True)
    return directory


def image_data(png):
    """The packed pixels, unpacked."""
    at, data = 8, b""
    while at < len(png):
        length, name = struct.unpack_from(">I4s", png, at)
        if name == b"IDAT":
            data += png[at + 8:at + 8 + length]
        at += 12 + length
    return zlib.decompress(data)


@pytest.mark.parametrize("name", ["logo.png", "quillwave.png", "play.png", "stop.png"])
def test_image_is_made_from_its_drawing(made, name):
    kept, again = (ASSETS / name).read_bytes(), (made / name).read_bytes()
    assert len(again) == len(kept)
    assert image_data(again) == image_data(kept)


def test_icon_is_made_from_its_drawing(made):
    assert (made / "favicon.ico").read_bytes() == (ASSETS / "favicon.ico").read_bytes()


def tags(movie):
    """(number, content) of each tag of a packed movie, but for the padding."""
    body = zlib.decompress(movie[8:])
    at = (5 + 4 * (body[0] >> 3) + 7) // 8 + 4
    found = []
    while at < len(body):
        head, = struct.unpack_from("<H", body, at)
        at, length = at + 2, head & 63
        if length == 63:
            length, = struct.unpack_from("<I", body, at)
            at += 4
        if head >> 6 != BINARY_DATA:
            found.append((head >> 6, body[at:at + length]))
        at += length
    return found


def test_movie_is_made_from_its_source(made):
    kept, again = (ASSETS / "quillwave.swf").read_bytes(), (made / "quillwave.swf").read_bytes()
    assert len(again) == len(kept) and again[:8] == kept[:8]
    assert tags(again) == tags(kept)
