"""Drawings as another renderer shows them: ezdxf's drawing add-on over matplotlib, as black ink on
white, in a frame that is given, so that its pixels lie where the judged picture's lie."""

import logging
import math
import re

import ezdxf
import ezdxf.recover
import matplotlib
import numpy
from ezdxf.addons.drawing import Frontend, RenderContext
from ezdxf.addons.drawing.config import Configuration
from ezdxf.addons.drawing.matplotlib import MatplotlibBackend
from ezdxf.addons.drawing.properties import LayoutProperties
from ezdxf.entities import MText, Text
from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.figure import Figure
from matplotlib.font_manager import FontProperties, findfont, get_font

DOTS = 72  # an inch, so that a point is a pixel
FAINTEST = 192  # a pixel is ink when one of its channels is darker

matplotlib.rcParams["agg.path.chunksize"] = 10000
matplotlib.rcParams["path.simplify"] = False
for noisy in ("ezdxf", "matplotlib", "matplotlib.font_manager"):
    logging.getLogger(noisy).setLevel(logging.CRITICAL)


FAMILY = "DejaVu Sans"
LETTERS = get_font(findfont(FontProperties(family=FAMILY))).get_charmap()
PAGES = {"1": "cp932", "2": "cp950", "3": "cp949", "4": "johab", "5": "gbk"}


def with_known_letters(text):
    """Letters that the font lacks as squares, which have ink however small they are; each renderer
    has another mark for them."""
    return "".join(letter if ord(letter) in LETTERS else "\u25a0" for letter in text)


def with_escapes_read(text):
    """Letters of two bytes that are written in seven bits; the add-on shows the escapes."""
    def letter(found):
        return bytes.fromhex(found[2]).decode(PAGES[found[1]], "replace")
    return re.sub(r"\\M\+([1-5])([0-9A-Fa-f]{4})", letter, text)


class Backend(MatplotlibBackend):
    """All texts are of one font. Points without a size have that of a pixel; the add-on's own are
    too small to be seen."""

    def __init__(self, axes):
        super().__init__(axes, adjust_figure=False, font=FontProperties(family=FAMILY))
        texts, plain = self._text_renderer, self._text_renderer.get_text_path
        texts.get_font_properties = lambda font: texts.default_font
        texts.get_text_path = lambda text, font: plain(with_known_letters(text), font)

    def draw_point(self, pos, properties):
        self.ax.scatter([pos.x], [pos.y], s=1, c=properties.color, linewidths=0,
                        zorder=self._get_z())

    def draw_filled_polygon(self, points, properties):
        """With an outline, so that wide lines are seen however far away."""
        corners = [(point.x, point.y) for point in points]
        self.ax.fill(*zip(*corners), color=properties.color, linewidth=1, zorder=self._get_z())


class Ink(Frontend):
    def override_properties(self, entity, properties):
        properties.color = "#000000"


def read(name):
    try:
        document = ezdxf.readfile(name)
    except (ezdxf.DXFError, UnicodeError, ValueError):
        document = ezdxf.recover.readfile(name)[0]
    for entity in document.entitydb.values():
        if isinstance(entity, MText):
            entity.text = with_escapes_read(entity.text)
        elif isinstance(entity, Text) and entity.dxf.hasattr("text"):
            entity.dxf.text = with_escapes_read(entity.dxf.text)
    return document


def layout_to_show(document):
    """The model, or the first sheet of paper that holds anything where the model is empty."""
    for name in document.layout_names_in_taborder():
        layout = document.layout(name)
        if any(entity.dxftype() != "VIEWPORT" for entity in layout):
            return layout
    return document.modelspace()


def black_on_white(layout, axes, unit):
    context = RenderContext(layout.doc)
    colours = LayoutProperties.from_layout(layout)
    colours.set_colors("#ffffff", "#000000")
    config = Configuration.defaults().with_changes(
        lineweight_scaling=0, min_lineweight=1, pdmode=None, pdsize=None,
        min_dash_length=unit, max_flattening_distance=unit / 8, hatching_timeout=60)
    Ink(context, Backend(axes), config).draw_layout(
        layout, finalize=False, layout_properties=colours)


def draw(name, box, width, height):
    """The picture of a file, a box of its coordinates on so many pixels: true where there is
    ink."""
    figure = Figure(figsize=(width / DOTS, height / DOTS), dpi=DOTS)
    canvas = FigureCanvasAgg(figure)
    axes = figure.add_axes((0, 0, 1, 1))
    black_on_white(layout_to_show(read(name)), axes, (box[2] - box[0]) / width)
    axes.set_aspect("auto")
    axes.set_xlim(box[0], box[2])
    axes.set_ylim(box[1], box[3])
    axes.patch.set_visible(False)
    canvas.draw()
    return ink_of(numpy.asarray(canvas.buffer_rgba()))


def ink_of(pixels):
    """Where a picture of red, green, blue and alpha has ink, on white."""
    alpha = pixels[..., 3:].astype(float) / 255
    return (pixels[..., :3] * alpha + 255 * (1 - alpha)).min(axis=2) < FAINTEST
