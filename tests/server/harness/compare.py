"""Finds what was heard in what was sent."""
import dataclasses

REPEATED = 256 * 1024  # bytes; how far back a burst may go
PROBE = 1024  # bytes; less is not looked for
BLOCK = 4096


@dataclasses.dataclass
class Stretch:
    """`length` bytes of what was heard, from `at` on, are those of what was sent, from `place` on."""

    at: int
    place: int
    length: int

    @property
    def end(self):
        return self.place + self.length


def stretches(heard, sent, skipping):
    """`heard` as stretches of `sent`, in order; gives up once more than `skipping` bytes have fitted nowhere."""
    found, at, skipped = [], 0, 0
    while at + PROBE <= len(heard) and skipped <= skipping:
        after = max(0, found[-1].end - REPEATED) if found else 0
        place = sent.find(heard[at:at + PROBE], after)
        if place < 0:
            at, skipped = at + PROBE, skipped + PROBE
        else:
            found.append(Stretch(at, place, _common_length(heard, at, sent, place)))
            at += found[-1].length
    return found


def _common_length(one, at, other, place):
    length, most = 0, min(len(one) - at, len(other) - place)
    while length < most:
        size = min(BLOCK, most - length)
        ours, theirs = one[at + length:at + length + size], other[place + length:place + length + size]
        if ours != theirs:
            return length + next(i for i in range(size) if ours[i] != theirs[i])
        length += size
    return length


def assert_heard(heard, sent, *, least, skipping=0):
    """`heard` is a piece of `sent`, at least `least` bytes of it, in order and with nothing left out.

    Where a listener joins, packets of the burst may come twice. Up to `skipping` bytes may fit nowhere: a decoder
    that comes in the middle needs a while to settle. Gives the stretches.
    """
    found = stretches(heard, sent, skipping)
    fitting = sum(stretch.length for stretch in found)
    story = f"{len(heard)} bytes were heard: {found}"
    assert fitting >= least, f"too little fits; {story}"
    assert len(heard) - fitting < skipping + PROBE, f"too much fits nowhere; {story}"
    for before, after in zip(found, found[1:]):
        assert after.place - after.at <= before.place - before.at, f"something is missing; {story}"
    return found
