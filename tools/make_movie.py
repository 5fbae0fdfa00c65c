#!/usr/bin/env python3
"""Makes the Flash movie of the web site again from src/web/assets/source/Player.hx.

    tools/make_movie.py [file to write]

Needs haxe (Debian: haxe). The source is what counts; the movie is kept in the repository as well, so that a
build needs no compiler for Flash. Its lengths are fixed, packed and unpacked: a tag that no script refers to
fills it up, with bytes that do not compress and then with zeros, as many of each as it takes.
"""
import hashlib
import pathlib
import struct
import subprocess
import sys
import tempfile
import zlib

ASSETS = pathlib.Path(__file__).resolve().parent.parent / "src" / "web" / "assets"
PLAYER_VERSION = "10.3"  # of the Flash player that it asks for; the file's own version is then 12
PACKED, UNPACKED = 71810, 153050

HEADER = 8  # "CWS", version, length when unpacked; only what follows is packed
FILE_ATTRIBUTES, BINARY_DATA = 69, 87
PADDING_ID = 0xFFFE  # far from the ids that the compiler gives


def compiled():
    with tempfile.TemporaryDirectory() as directory:
        movie = pathlib.Path(directory) / "movie.swf"
        subprocess.run(["haxe", "-cp", ASSETS / "source", "-main", "Player", "-dce", "full",
                        "-swf-version", PLAYER_VERSION, "-swf", movie], check=True)
        return movie.read_bytes()


def first_tag(body):
    """Where the tags begin: behind the frame rectangle, the frame rate and the number of frames."""
    bits_a_side = body[0] >> 3
    return (5 + 4 * bits_a_side + 7) // 8 + 4


def padded(movie, noise):
    """The movie's body at its full length; `noise` bytes of the padding do not compress."""
    body = zlib.decompress(movie[HEADER:])
    at = first_tag(body)
    tag, = struct.unpack_from("<H", body, at)
    if tag >> 6 != FILE_ATTRIBUTES:
        raise SystemExit("the movie does not begin with its attributes")
    at += 2 + (tag & 63)  # they must stay first
    length = UNPACKED - HEADER - len(body) - 6
    data = struct.pack("<HI", PADDING_ID, 0) + hashlib.shake_256(b"quillwave").digest(noise)
    return body[:at] + struct.pack("<HI", BINARY_DATA << 6 | 63, length) + data.ljust(length, b"\0") + body[at:]


def packed(movie, noise):
    return movie[:4] + struct.pack("<I", UNPACKED) + zlib.compress(padded(movie, noise), 9)


def fitted(movie):
    """Each byte of noise adds about one to the packed length: come near, then look around."""
    noise = PACKED - len(packed(movie, 0))
    noise += PACKED - len(packed(movie, noise))
    for distance in range(200):
        for candidate in (noise - distance, noise + distance):
            result = packed(movie, candidate)
            if len(result) == PACKED:
                return result
    raise SystemExit("no amount of padding gives the length asked for")


def main():
    target = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ASSETS / "quillwave.swf"
    movie = compiled()
    if movie[:3] != b"CWS":
        raise SystemExit("haxe wrote a movie that is not packed")
    target.write_bytes(fitted(movie))


if __name__ == "__main__":
    main()
