"""Furniture seen from above: a function a kind, each taking the pen and a box in metres."""
import math


def draw_furniture(pen, items):
    for frame, kind, x, y, w, h in items:
        FURNITURE[kind](pen.use(frame), x, y, w, h)


def stripes(pen, x, y, w, h, count):
    """A box with lines across its longer side."""
    pen.box(x, y, w, h)
    for i in range(1, count):
        u = i / count
        ends = [(x + w * u, y), (x + w * u, y + h)] if w > h else [(x, y + h * u), (x + w, y + h * u)]
        pen.line(ends, 'ink fine', straight=True)


def shelf(pen, x, y, w, h):
    stripes(pen, x, y, w, h, max(2, round(max(w, h) / 0.42)))


def case(pen, x, y, w, h):
    pen.box(x, y, w, h)
    pen.box(x + 0.12, y + 0.12, w - 0.24, h - 0.24, 'ink fine')


def press(pen, x, y, w, h):
    pen.box(x, y + 0.25 * h, w, 0.6 * h, 'steel')
    pen.box(x + 0.2 * w, y, 0.6 * w, h, 'steel')
    pen.line([(x + 0.2 * w, y + 0.5 * h), (x + 0.8 * w, y + 0.5 * h)], 'ink fine', straight=True)
    pen.circle(x + 0.5 * w, y + 0.5 * h, 0.17 * w, 'wood')
    pen.line([(x + 0.5 * w, y + 0.5 * h), (x + 1.15 * w, y + 0.42 * h)], 'ink thin', straight=True)


def table(pen, x, y, w, h):
    for u in (0.25, 0.75):
        for side in (y - 0.22, y + h + 0.22):
            pen.circle(x + w * u, side, 0.2, 'wood')
    pen.box(x, y, w, h)


def round_table(pen, x, y, w, h):
    cx, cy = x + w / 2, y + h / 2
    for i in range(4):
        angle = math.pi * (i / 2 + 0.25)
        pen.circle(cx + 0.62 * w * math.cos(angle), cy + 0.62 * h * math.sin(angle), 0.2, 'wood')
    pen.circle(cx, cy, w / 2 * 0.86, 'wood')


def sofa(pen, x, y, w, h):
    pen.box(x, y, w, h)
    pen.box(x + 0.15, y, w - 0.3, h - 0.25, 'wood')
    pen.line([(x + w / 2, y), (x + w / 2, y + h - 0.25)], 'ink fine', straight=True)


def counter(pen, x, y, w, h):
    pen.box(x, y, w, h)
    pen.line([(x + w - 0.18, y + 0.1), (x + w - 0.18, y + h - 0.1)], 'ink fine', straight=True)


def stairs(pen, x, y, w, h, down):
    """Two flights side by side with a half landing at the top; the arrow shows the way up or down."""
    flight, landing = w * 0.46, 0.9
    pen.box(x, y, w, h, 'ink thin')
    pen.line([(x, y + landing), (x + w, y + landing)], 'ink thin')
    pen.box(x + flight, y + landing, w - 2 * flight, h - landing, 'wood')
    steps = round((h - landing) / 0.27)
    for i in range(1, steps):
        sy = y + landing + (h - landing) * i / steps
        pen.line([(x, sy), (x + flight, sy)], 'ink fine', straight=True)
        pen.line([(x + w - flight, sy), (x + w, sy)], 'ink fine', straight=True)
    near, far = (x + flight / 2, x + w - flight / 2) if down else (x + w - flight / 2, x + flight / 2)
    track = [(near, y + h - 0.15), (near, y + landing / 2), (far, y + landing / 2), (far, y + h - 0.5)]
    pen.line(track, 'ink thin')
    tip = track[-1]
    pen.line([(tip[0] - 0.14, tip[1] - 0.24), tip, (tip[0] + 0.14, tip[1] - 0.24)], 'ink thin', straight=True)


FURNITURE = {
    'shelf': shelf, 'case': case, 'press': press, 'table': table, 'desk': table, 'round': round_table, 'sofa': sofa,
    'counter': counter, 'bench': lambda pen, x, y, w, h: stripes(pen, x, y, w, h, 3),
    'vat': lambda pen, x, y, w, h: (pen.box(x, y, w, h), pen.box(x + 0.1, y + 0.1, w - 0.2, h - 0.2, 'water ink fine')),
    'basin': lambda pen, x, y, w, h: (pen.box(x, y, w, h), pen.circle(x + w / 2, y + h / 2, w * 0.32, 'pane')),
    'plant': lambda pen, x, y, w, h: pen.blob(x + w / 2, y + h / 2, w / 2, 'leaf', 6),
    'stairs-up': lambda pen, x, y, w, h: stairs(pen, x, y, w, h, False),
    'stairs-down': lambda pen, x, y, w, h: stairs(pen, x, y, w, h, True),
}
