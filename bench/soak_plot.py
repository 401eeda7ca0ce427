"""Draws what scripts/bench --soak has measured over time, a panel a column."""

from drawing import PANEL_WIDTH, document, line, text
from tables import number

LEFT = 60
WIDTH = PANEL_WIDTH - LEFT - 20
HEIGHT = 90


def panel(head, values, times):
    """From nothing up to a quarter above the greatest value, so that what is small looks small."""
    top = max(*values, 1) * 1.25
    bottom = 26 + HEIGHT
    parts = [text(0, 14, head, "head")]
    for part in (0, 0.4, 0.8):
        y = bottom - HEIGHT * part
        parts += [line(LEFT, y, LEFT + WIDTH, y, "grid"), text(LEFT - 6, y + 3, number(top * part), "axis", "end")]
    for part in (0, 0.5, 1):
        parts.append(text(LEFT + WIDTH * part, bottom + 14, f"{times[-1] * part / 60:.0f} min", "axis", "middle"))
    places = " ".join(f"{LEFT + WIDTH * time / times[-1]:.1f},{bottom - HEIGHT * value / top:.1f}" for time, value in zip(times, values, strict=True))
    parts.append(f'<polyline points="{places}" fill="none" stroke="#cc3311" stroke-width="1.5"/>')
    return "\n".join(parts), bottom + 24


def plot(values, times, columns):
    return document([panel(head, values[column], times) for column, head in columns.items()])
