"""What the plots share: text, scales, and a panel that compares rows. All in SVG."""

import math
import statistics
from xml.sax.saxutils import escape

from tables import number

ROW = 18
NAME_WIDTH = 100
PLOT_WIDTH = 230
VALUE_WIDTH = 80
PANEL_WIDTH = NAME_WIDTH + PLOT_WIDTH + VALUE_WIDTH
STYLE = """text { font: 12px sans-serif; fill: #222 } .head { font-weight: bold } .axis { fill: #666; font-size: 10px }
.grid { stroke: #ddd } .spread { stroke: #4477aa; stroke-width: 2 } .median { fill: #4477aa }
.floor .spread { stroke: #888 } .floor .median { fill: #888 } .ours .spread { stroke: #cc3311 } .ours .median { fill: #cc3311 }
"""


def text(x, y, content, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{escape(content)}</text>'


def line(x1, y1, x2, y2, kind):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>'


def tick(value):
    """A power of ten, in few letters."""
    for unit, letter in ((1e6, "M"), (1e3, "k")):
        if value >= unit:
            return f"{value / unit:g}{letter}"
    return f"{value:g}"


def decades(values):
    """The powers of ten around the values, two at least."""
    low = math.floor(math.log10(min(values)))
    return low, max(math.ceil(math.log10(max(values))), low + 1)


def panel(head, rows, kind=lambda name: "peer", name_width=NAME_WIDTH):
    """One metric: a dot for the median of each row and a line from the least to the greatest run, on a logarithmic scale.
    The panel and its height."""
    low, high = decades([value for values in rows.values() for value in values])
    plot_width = PANEL_WIDTH - VALUE_WIDTH - name_width

    def x(value):
        return name_width + plot_width * (math.log10(value) - low) / (high - low)

    bottom = 26 + ROW * len(rows)
    parts = [text(0, 14, head, "head")]
    for power in range(low, high + 1):
        at = x(10.0 ** power)
        parts += [line(at, 22, at, bottom, "grid"), text(at, bottom + 12, tick(10.0 ** power), "axis", "middle")]
    for index, (name, values) in enumerate(rows.items()):
        y = 26 + ROW * index + ROW / 2
        parts.append(f'<g class="{kind(name)}">' + text(0, y + 4, name)
                     + line(x(min(values)), y, x(max(values)), y, "spread")
                     + f'<circle cx="{x(statistics.median(values)):.1f}" cy="{y}" r="4" class="median"/>'
                     + text(PANEL_WIDTH - 10, y + 4, number(statistics.median(values)), "", "end") + "</g>")
    return "\n".join(parts), bottom + 24


def document(panels):
    """Two panels beside each other, row by row."""
    y = 10
    body = []
    for start in range(0, len(panels), 2):
        for column, (content, _) in enumerate(panels[start:start + 2]):
            body.append(f'<g transform="translate({10 + column * (PANEL_WIDTH + 30)} {y})">{content}</g>')
        y += max(height for _, height in panels[start:start + 2]) + 12
    width = 2 * PANEL_WIDTH + 50
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{y}" viewBox="0 0 {width} {y}">\n'
            f'<style>{STYLE}</style>\n<rect width="{width}" height="{y}" fill="#fff"/>\n' + "\n".join(body) + "\n</svg>\n")
