"""Plots as SVG, by hand: bars that are compared within a panel, and lines on logarithmic axes."""
import math
from xml.sax.saxutils import escape

WIDTH = 860
TEXT, FAINT, GRID = "#24292f", "#6e7781", "#d8dee4"
OURS, TYPED, BEFORE, BASE, OTHERS = "#0969da", "#0a3069", "#9cc7f5", "#57606a", "#c4cbd3"
LINES = ["#bf8700", "#8250df", "#1a7f37", "#cf222e"]  # where there are several others


def is_ours(name):
    return name.startswith("netrove") or name == "python-netrove"


def colour(name):
    known = {"netrove_client": TYPED, "multi": BASE}
    return known.get(name, OURS if is_ours(name) else BEFORE if name.startswith("before") else OTHERS)


class Drawing:
    def __init__(self, height):
        self.height = height
        self.parts = []

    def text(self, x, y, text, anchor="start", size=12, fill=TEXT, weight="normal"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" fill="{fill}" '
                          f'font-weight="{weight}" stroke="#ffffff" stroke-width="3" paint-order="stroke">'
                          f'{escape(text)}</text>')

    def box(self, x, y, width, height, fill):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{max(width, 0.5):.1f}" height="{height:.1f}" '
                          f'fill="{fill}" rx="1.5"/>')

    def line(self, points, stroke, width=1.0, dash=""):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        dashes = f' stroke-dasharray="{dash}"' if dash else ""
        self.parts.append(f'<polyline points="{path}" fill="none" stroke="{stroke}" stroke-width="{width}"{dashes}/>')

    def dot(self, x, y, fill):
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{fill}"/>')

    def svg(self, title):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {self.height:.0f}" role="img" '
                f'font-family="system-ui, -apple-system, \'Segoe UI\', Helvetica, Arial, sans-serif">\n'
                f'<title>{escape(title)}</title>\n<rect width="{WIDTH}" height="{self.height:.0f}" fill="#ffffff"/>\n' +
                "\n".join(self.parts) + "\n</svg>\n")


def bars(title, panels, columns=2):
    """`panels` are (title, [(name, label, value, text)], reference): one bar each, the shortest first."""
    row, head, gap = 17, 30, 18
    width = (WIDTH - 20) / columns
    drawing = Drawing(0)
    top = 10
    for begin in range(0, len(panels), columns):
        beside = panels[begin:begin + columns]
        for column, (heading, values, reference) in enumerate(beside):
            left = 10 + column * width
            names = 176  # of the bars
            room = width - names - 68
            longest = max(value for _, _, value, _ in values)
            drawing.text(left + 4, top + 15, heading, size=13, weight="600")
            if reference:
                x = left + names + room * reference / longest
                drawing.line([(x, top + head - 3), (x, top + head + len(values) * row)], BASE, 1, "3 3")
            for place, (name, label, value, text) in enumerate(sorted(values, key=lambda bar: bar[2])):
                y = top + head + place * row
                ours = is_ours(name)
                drawing.text(left + names - 8, y + 11, label, "end", weight="600" if ours else "normal",
                             fill=TEXT if ours else FAINT)
                drawing.box(left + names, y + 1, room * value / longest, row - 4, colour(name))
                drawing.text(left + names + room * value / longest + 5, y + 11, text, size=11,
                             weight="600" if ours else "normal")
        top += head + max(len(values) for _, values, _ in beside) * row + gap
    drawing.height = top
    return drawing.svg(title)


def lines(title, panels, columns=2):
    """`panels` are (title, [(name, label, [(x, y)])], x_text, y_text), on logarithmic axes."""
    width, height, head, gap = (WIDTH - 20) / columns, 210, 30, 44
    drawing = Drawing(0)
    top = 10
    for begin in range(0, len(panels), columns):
        for column, panel in enumerate(panels[begin:begin + columns]):
            lines_panel(drawing, 10 + column * width, top, width, height, head, panel)
        top += head + height + gap
    drawing.height = top
    return drawing.svg(title)


def lines_panel(drawing, left, top, width, height, head, panel):
    heading, series, x_text, y_text = panel
    drawing.text(left + 4, top + 15, heading, size=13, weight="600")
    begin, end, floor, ceiling = left + 58, left + width - 112, top + head + height, top + head
    places = sorted({x for _, _, points in series for x, _ in points})
    values = [y for _, _, points in series for _, y in points]
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)) + 1e-9)
    high = max(high, low + 1)

    def across(x):
        span = math.log(places[-1] / places[0]) or 1
        return begin + (end - begin) * math.log(x / places[0]) / span

    def up(y):
        return floor - (floor - ceiling) * (math.log10(y) - low) / (high - low)

    for power in range(low, high + 1):
        y = up(10.0 ** power)
        drawing.line([(begin, y), (end, y)], GRID)
        drawing.text(begin - 6, y + 4, y_text(10.0 ** power), "end", 11, FAINT)
    for x in places:
        drawing.text(across(x), floor + 16, x_text(x), "middle", 11, FAINT)
    labels = []
    others = iter(LINES)
    for name, label, points in series:
        ours = is_ours(name)
        stroke = colour(name)
        if stroke == OTHERS:
            stroke = next(others)
        drawing.line([(across(x), up(y)) for x, y in points], stroke, 2.5 if ours else 1.5)
        for x, y in points:
            drawing.dot(across(x), up(y), stroke)
        labels.append([up(points[-1][1]) + 4, label, stroke, ours])
    labels.sort()
    for place in range(1, len(labels)):  # none on top of another
        labels[place][0] = max(labels[place][0], labels[place - 1][0] + 13)
    for y, label, stroke, ours in labels:
        drawing.text(end + 10, y, label, size=11, fill=stroke, weight="600" if ours else "normal")
