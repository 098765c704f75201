"""Pictures of real drawings beside those that another renderer makes of them, pixel by pixel.
  pictures.py ZEV [COUNT] [--keep DIR] [--cache DIR] [--side PIXELS] [FILE...]
COUNT drawings of the symbol library that Debian has, 100 unless told, spread over its folders and
over the kinds of entities; all 100 bring the sheets of an npm package along, where it can be had.
Or these files. Ink of one picture that lies within two pixels of the other's is shared; each
drawing is to share 0.97 of it, or stand in DIFFERENT with the reason.
  --keep DIR     both pictures of each drawing, and what only one of them has, worst first
  --cache DIR    for the other renderer's pictures, which are slow to make
  --side PIXELS  of the longer side, 1000 unless told"""

import argparse
import collections
import glob
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

from sheets import sheets

# A module here has the name of one that Debian's have beneath them.
sys.path.append(sys.path.pop(0))
try:
    import numpy
    from PIL import Image
    import other_renderer
except ImportError as missing:
    print("skipped:", missing)
    sys.exit(77)

LIBRARY = "/usr/share/librecad"
NEAR = 2  # pixels that ink may lie apart
LEAST = 0.97
SHOWN = (b"LINE|ARC|CIRCLE|ELLIPSE|LWPOLYLINE|POLYLINE|TEXT|MTEXT|ATTRIB|ATTDEF|POINT|SOLID|TRACE|"
         b"3DFACE|INSERT|DIMENSION|SPLINE|HATCH|LEADER")

# Drawings that may share less, by the end of their path, with the reason.
HALF_OF_SMALL = ("a paragraph placed by its middle: theirs has the middle of small letters there, "
                 "ours that of the box from capitals to baseline, for which the symbol was drawn")
DIFFERENT = {
    "power-iso/Gen.dxf": HALF_OF_SMALL,
    "electronics/trig.dxf": HALF_OF_SMALL,
}


def kinds(name):
    """The kinds of entities that a file shows, each once."""
    with open(name, "rb") as file:
        return set(re.findall(rb"\n *0\r?\n(" + SHOWN + rb")\r?\n", file.read()))


def choose(count):
    """One drawing of each folder, then of any, each time the one whose kinds and folder were seen
    least till then, of equal ones the largest."""
    left = {name: (kinds(name), os.path.getsize(name))
            for name in sorted(glob.glob(LIBRARY + "/**/*.dxf", recursive=True))
            if kinds(name)}
    seen, chosen = collections.Counter(), []

    def rank(name):
        folder = seen[os.path.dirname(name)]
        return (folder == 0, sum(1 / (1 + seen[kind]) for kind in left[name][0]) / (1 + folder),
                left[name][1])

    while len(chosen) < count and left:
        chosen.append(max(left, key=rank))
        seen.update((os.path.dirname(chosen[-1]), *left.pop(chosen[-1])[0]))
    return chosen


class Picture:
    """Ours: ink, the box of drawing coordinates that it shows, and what the program said."""

    def __init__(self, zev, name, side, scratch):
        svg = scratch + "/ours.svg"
        began = time.monotonic()
        told = view(zev, name, svg)
        self.seconds = time.monotonic() - began
        self.words = [line for line in told.decode().splitlines() if svg not in line]
        with open(svg, "rb") as file:
            if file.read() != view(zev, name, "-"):
                raise RuntimeError(f"{name}: another picture the second time")
        head = alike(svg)
        self.box = numbers(head, "data-box")
        self.ink = other_renderer.ink_of(rasterized(svg, side, numbers(head, "viewBox"), scratch))


def view(zev, name, output):
    told = subprocess.run([zev, "view", name, "-o", output], capture_output=True,
                          env={**os.environ, "LC_ALL": "C"})
    if told.returncode:
        raise RuntimeError(f"{name}: {told.returncode} {told.stderr.decode().strip()}")
    return told.stdout


def rasterized(svg, side, view_box, scratch):
    """With the thinnest of lines, and one font, as the other renderer is told."""
    _, _, width, height = view_box
    unit = side / max(width, height)
    with open(scratch + "/thin.css", "w") as file:
        file.write(f"* {{ stroke-width: {1 / unit:.4f}px }} text {{ font-family: "
                   f"'{other_renderer.FAMILY}'; font-weight: normal; font-style: normal }}")
    subprocess.run(["rsvg-convert", "--stylesheet", scratch + "/thin.css", "--unlimited",
                    "-w", str(round(width * unit)), "-h", str(round(height * unit)),
                    "-b", "white", "-o", scratch + "/ours.png", svg], check=True)
    with Image.open(scratch + "/ours.png") as image:
        return numpy.asarray(image.convert("RGBA"))


def alike(svg):
    """All ink is black but for the ground's, and letters that the font lacks are squares, as the
    other renderer is told. Gives the first element."""
    with open(svg, encoding="utf-8") as file:
        text = re.sub('="#(?!ffffff)[0-9a-f]{6}"', '="#000000"', file.read())
    with open(svg, "w", encoding="utf-8") as file:
        file.write(re.sub(r"(?<=>)[^<]+(?=</text>|</tspan>)",
                          lambda t: other_renderer.with_known_letters(t.group()), text))
    return re.search("<svg[^>]*>", text).group()


def numbers(element, attribute):
    found = re.search(f' {attribute}="([^"]*)"', element)
    return [float(word) for word in found.group(1).split()]


def others(name, picture, cache):
    """The other renderer's picture in the same frame, and the seconds that it took, 0 if kept."""
    height, width = picture.ink.shape
    began = time.monotonic()
    if not cache:
        ink = other_renderer.draw(name, picture.box, width, height)
        return ink, time.monotonic() - began
    with open(name, "rb") as drawing, open(other_renderer.__file__, "rb") as script:
        state = drawing.read() + script.read() + repr((picture.box, width, height)).encode()
    kept = os.path.join(cache, hashlib.sha256(state).hexdigest() + ".png")
    if os.path.exists(kept):
        return ~numpy.asarray(Image.open(kept)), 0
    ink = other_renderer.draw(name, picture.box, width, height)
    Image.fromarray(~ink).save(kept)
    return ink, time.monotonic() - began


def grown(ink):
    """What lies within NEAR pixels of ink, in a square."""
    for axis in 0, 1:
        wide = ink.copy()
        for step in range(1, NEAR + 1):
            ahead, behind = [slice(None)] * 2, [slice(None)] * 2
            ahead[axis], behind[axis] = slice(step, None), slice(None, -step)
            wide[tuple(ahead)] |= ink[tuple(behind)]
            wide[tuple(behind)] |= ink[tuple(ahead)]
        ink = wide
    return ink


class Result:
    def __init__(self, name, picture, other, seconds):
        self.name, self.picture, self.other, self.seconds = name, picture, other, seconds
        self.only_ours = picture.ink & ~grown(other)
        self.only_theirs = other & ~grown(picture.ink)
        self.sum = int(picture.ink.sum()) + int(other.sum())
        missed = int(self.only_ours.sum()) + int(self.only_theirs.sum())
        self.share = 1 - missed / self.sum if self.sum else 1.0

    def reason(self):
        return next((why for end, why in DIFFERENT.items() if self.name.endswith(end)), None)

    def keep(self, name):
        """Ours, theirs, and both in grey with what only ours has in red, only theirs in blue."""
        both = numpy.full((*self.other.shape, 3), 255, numpy.uint8)
        both[self.picture.ink | self.other] = 190
        both[self.only_ours] = 220, 0, 0
        both[self.only_theirs] = 0, 0, 255
        parts = [numpy.repeat(numpy.where(ink, 0, 255).astype(numpy.uint8)[..., None], 3, axis=2)
                 for ink in (self.picture.ink, self.other)]
        axis = 1 if self.other.shape[0] > self.other.shape[1] else 0
        Image.fromarray(numpy.concatenate([*parts, both], axis=axis)).save(name)


def judge(zev, name, side, cache):
    with tempfile.TemporaryDirectory() as scratch:
        picture = Picture(zev, name, side, scratch)
    other, seconds = others(name, picture, cache)
    return Result(name, picture, other, seconds)


def told(result):
    words = "; ".join(" ".join(line.split()) for line in result.picture.words)
    reason = f" [{result.reason()}]" if result.reason() else ""
    print(f"{result.share:.4f} {int(result.picture.ink.sum()):7} {int(result.other.sum()):7} "
          f"{result.picture.seconds:6.2f}s {result.seconds:6.2f}s {shown(result.name)}{reason}"
          + (f" ({words})" if words else ""))


def shown(name):
    return os.path.relpath(name, LIBRARY) if name.startswith(LIBRARY) else os.path.basename(name)


def arguments():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("zev")
    parser.add_argument("files", nargs="*")
    parser.add_argument("--keep")
    parser.add_argument("--cache")
    parser.add_argument("--side", type=int, default=1000)
    given = parser.parse_intermixed_args()
    count = int(given.files.pop(0)) if given.files and given.files[0].isdigit() else 100
    given.zev = os.path.abspath(given.zev)
    if not given.files:
        given.files = choose(count) + (sheets() if count >= 100 else [])
    return given


def main():
    if not os.path.isdir(LIBRARY) or not shutil.which("rsvg-convert"):
        print("skipped: no librecad-data or no rsvg-convert")
        return 77
    given = arguments()
    for place in filter(None, (given.keep, given.cache)):
        os.makedirs(place, exist_ok=True)
    results, failures = [], []
    for name in given.files:
        try:
            results.append(judge(given.zev, name, given.side, given.cache))
        except RuntimeError as failure:
            failures.append(str(failure))
    results.sort(key=lambda result: result.share)
    print(" share    ours  theirs    ours  theirs  drawing")
    for place, result in enumerate(results):
        told(result)
        if given.keep:
            result.keep(f"{given.keep}/{place:03}-{os.path.basename(result.name)}.png")
    return verdict(results, failures)


def verdict(results, failures):
    below = [result for result in results if result.share < LEAST]
    failures += [f"{shown(result.name)}: {result.share:.4f}, and no reason" for result in below
                 if not result.reason()]
    if len(results) >= 100 and len(below) > len(results) // 20:
        failures.append(f"{len(below)} of {len(results)} below {LEAST}")
    print(f"{len(results)} drawings, {len(below)} below {LEAST}")
    print("\n".join(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
