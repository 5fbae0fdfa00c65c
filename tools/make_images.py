#!/usr/bin/env python3
"""Makes the images of the web site again from the drawings in src/web/assets/source.

    tools/make_images.py [directory to write to]

Needs rsvg-convert (Debian: librsvg2-bin). The drawings are the sources; what this writes is kept in the
repository as well, so that a build needs no renderer. Each image has a fixed length on the wire: what
compression leaves free is filled with a private chunk, which no reader of PNG looks at.
"""
import pathlib
import struct
import subprocess
import sys
import zlib

ASSETS = pathlib.Path(__file__).resolve().parent.parent / "src" / "web" / "assets"
SOURCES = ASSETS / "source"

# name: width, height, bytes of the file
IMAGES = {
    "logo": (96, 87, 11936),
    "quillwave": (126, 30, 2039),
    "play": (20, 20, 2224),
    "stop": (20, 20, 2058),
}
ICON_SIDES = (16, 32)

SIGNATURE = b"\x89PNG\r\n\x1a\n"
PADDING = b"quIl"  # ancillary, private, safe to copy
CHUNK_FRAME = 12  # length, type, checksum
BYTES_PER_PIXEL = 4


def rows(name, width, height):
    """The drawing at that size: rows of red, green, blue, alpha."""
    drawn = subprocess.run(["rsvg-convert", "-w", str(width), "-h", str(height), SOURCES / f"{name}.svg"],
                           stdout=subprocess.PIPE, check=True).stdout
    return unfiltered(image_data(drawn, width, height), width * BYTES_PER_PIXEL)


def image_data(png, width, height):
    at, data = len(SIGNATURE), b""
    while at < len(png):
        length, kind = struct.unpack_from(">I4s", png, at)
        body = png[at + 8:at + 8 + length]
        if kind == b"IHDR" and body != header(width, height):
            raise SystemExit("rsvg-convert wrote another kind of image than RGBA of that size")
        if kind == b"IDAT":
            data += body
        at += length + CHUNK_FRAME
    return zlib.decompress(data)


def paeth(left, up, corner):
    guess = left + up - corner
    return min((left, up, corner), key=lambda value: abs(guess - value))


# What each filter of PNG expects a byte to be, from its left, upper and upper left neighbour.
FILTERS = [
    lambda left, up, corner: 0,
    lambda left, up, corner: left,
    lambda left, up, corner: up,
    lambda left, up, corner: (left + up) // 2,
    paeth,
]


def unfiltered(data, stride):
    above, result = bytes(stride), []
    for start in range(0, len(data), stride + 1):
        expect = FILTERS[data[start]]
        row = bytearray()
        for i, byte in enumerate(data[start + 1:start + 1 + stride]):
            left, corner = (row[i - BYTES_PER_PIXEL], above[i - BYTES_PER_PIXEL]) if i >= BYTES_PER_PIXEL else (0, 0)
            row.append((byte + expect(left, above[i], corner)) & 255)
        above = bytes(row)
        result.append(above)
    return result


def filtered(row, above, number):
    expect = FILTERS[number]
    shifted, corner = bytes(BYTES_PER_PIXEL) + row, bytes(BYTES_PER_PIXEL) + above
    return bytes([number]) + bytes((byte - expect(shifted[i], above[i], corner[i])) & 255
                                   for i, byte in enumerate(row))


def smallest_data(pixels):
    """One filter for the whole image: whichever compresses best."""
    above = [bytes(len(pixels[0])), *pixels]
    return min((zlib.compress(b"".join(filtered(row, above[y], number) for y, row in enumerate(pixels)), 9)
                for number in range(len(FILTERS))), key=len)


def chunk(kind, body):
    return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))


def header(width, height):
    return struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)  # 8 bits of red, green, blue, alpha each


def png(name, width, height, size):
    begin = SIGNATURE + chunk(b"IHDR", header(width, height))
    end = chunk(b"IDAT", smallest_data(rows(name, width, height))) + chunk(b"IEND", b"")
    free = size - len(begin) - len(end) - CHUNK_FRAME
    if free < 0:
        raise SystemExit(f"{name}.png is {-free} bytes too long: draw it with less detail")
    return begin + chunk(PADDING, bytes(free)) + end


def icon_image(side):
    """A bitmap as icons hold it: a header for twice the height, colours from the bottom up, then a mask."""
    pixels = rows("favicon", side, side)[::-1]
    colours = b"".join(bytes((row[i + 2], row[i + 1], row[i], row[i + 3])) for row in pixels
                       for i in range(0, len(row), BYTES_PER_PIXEL))
    mask_stride = (side + 31) // 32 * 4
    mask = b"".join(
        sum(1 << (side - 1 - x) for x in range(side) if row[x * BYTES_PER_PIXEL + 3] == 0)
        .to_bytes(side // 8, "big").ljust(mask_stride, b"\0") for row in pixels)
    return struct.pack("<IiiHHIIiiII", 40, side, 2 * side, 1, 32, 0, len(colours) + len(mask), 0, 0, 0, 0) + colours + mask


def icon():
    images = [icon_image(side) for side in ICON_SIDES]
    directory, at = struct.pack("<HHH", 0, 1, len(images)), 6 + 16 * len(images)
    for side, image in zip(ICON_SIDES, images):
        directory += struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(image), at)
        at += len(image)
    return directory + b"".join(images)


def main():
    target = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ASSETS
    for name, (width, height, size) in IMAGES.items():
        (target / f"{name}.png").write_bytes(png(name, width, height, size))
    (target / "favicon.ico").write_bytes(icon())


if __name__ == "__main__":
    main()
