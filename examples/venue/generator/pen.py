"""A pen that draws in metres on a sheet and yields SVG. Lines waver a little, as if drawn by hand.

The waver depends only on where a line starts and ends, so that a plan stays the same when other lines come or go."""
import math
import zlib

STYLE = """\
.paper{fill:#faf6ec}
.ink{fill:none;stroke:#4a4a52;stroke-linecap:round;stroke-linejoin:round}
.thin{stroke-width:1.1}
.fine{stroke-width:.7;stroke:#7d7a74}
.dash{stroke-dasharray:5 4}
.wall{stroke:#3b3f4a;stroke-linecap:butt;fill:none}
.node{fill:#3b3f4a}
.garden-wall{stroke:#8d7f6d;stroke-linecap:butt;fill:none}
.garden-node{fill:#8d7f6d}
.pane{fill:#e3f0f5;stroke:#3b3f4a;stroke-width:.9}
.exhibition{fill:#f6e2bf}
.service{fill:#e4e1da}
.passage{fill:#f7ecd6}
.foyer{fill:#fbeeda}
.stairs{fill:#e7dfe9}
.shop{fill:#f3d9cf}
.cafe{fill:#f7dcc0}
.workshop{fill:#dfe7d2}
.terrace{fill:#efe4d3}
.maps{fill:#d7e4ea}
.reading{fill:#dde8d6}
.grass{fill:#dce8c6}
.stone{fill:#ece3d2}
.water{fill:#c5dfe8}
.bed{fill:#cbb798}
.leaf{fill:#a9c78b;stroke:#6f9159;stroke-width:1}
.leaf2{fill:#bcd49d;stroke:#7d9c64;stroke-width:1}
.track{fill:none;stroke:#f1e6cd;stroke-linecap:round}
.track-edge{fill:none;stroke:#cdbf9f;stroke-linecap:round}
.sandy{fill:#f1e6cd;stroke:#cdbf9f}
.tuft{fill:none;stroke:#b4cb93;stroke-width:1;stroke-linecap:round}
.paving{stroke:#d6cab2;stroke-width:1}
.tile{stroke:#cdc1b2;stroke-width:1}
.crown{fill:#c3dba6;fill-opacity:.7}
.street{fill:#e2dfd8}
.roof{fill:#e6ded4}
.wood{fill:#fffaf0;stroke:#857f74;stroke-width:1}
.steel{fill:#e9e7e4;stroke:#77757a;stroke-width:1}
text{font-family:"Gill Sans","Trebuchet MS","DejaVu Sans",Verdana,sans-serif;fill:#33353d;text-anchor:middle}
.halo{paint-order:stroke;stroke:#fffdf7;stroke-opacity:.75;stroke-width:3;stroke-linejoin:round}
.small{fill:#5d5b5a}
.title{font-family:Georgia,"DejaVu Serif",serif;text-anchor:start}
.left{text-anchor:start}
.middle{text-anchor:middle}
.haze{fill:#faf6ec;fill-opacity:.5}
"""


def waver(seed, amplitude):
    """A number in -amplitude .. amplitude that depends on nothing but the seed text."""
    return (zlib.crc32(seed.encode()) % 2001 / 1000.0 - 1.0) * amplitude


class Pen:
    def __init__(self, sheet, description):
        self.sheet, self.description, self.parts, self.frame = sheet, description, [], sheet.frame

    def use(self, frame):
        self.frame = frame
        return self

    def point(self, x, y):
        px, py = self.sheet.image_point(self.frame, x, y)
        return f'{px:.1f} {py:.1f}'

    def size(self, metres):
        return f'{metres * self.sheet.pixels_per_meter:.1f}'

    def add(self, text):
        self.parts.append(text)

    def is_off(self, points, margin=0.5):
        """Whether all of a drawing lies beyond the sheet's edges; such a drawing is left out."""
        sheet = self.sheet
        shown = [sheet.frame.from_site(*self.frame.to_site(*p)) for p in points]
        xs, ys = [p[0] - sheet.left for p in shown], [p[1] - sheet.top for p in shown]
        return (max(xs) < -margin or min(xs) > sheet.width + margin
                or max(ys) < -margin or min(ys) > sheet.height + margin)

    def drawn(self, points, closed):
        """The points with wavering ones between them, about one a metre."""
        ends = list(points) + ([points[0]] if closed else [])
        result = [ends[0]]
        for (ax, ay), (bx, by) in zip(ends, ends[1:]):
            length = math.hypot(bx - ax, by - ay)
            for i in range(1, int(length / 0.9) + 1):
                u = i / (int(length / 0.9) + 1)
                seed = f'{ax:.2f} {ay:.2f} {bx:.2f} {by:.2f} {i}'
                result.append((ax + (bx - ax) * u + waver(seed + 'x', 0.025),
                               ay + (by - ay) * u + waver(seed + 'y', 0.025)))
            result.append((bx, by))
        return result[:-1] if closed else result

    def line(self, points, css='ink thin', closed=False, straight=False, extra=''):
        if self.is_off(points):
            return
        shown = points if straight else self.drawn(points, closed)
        data = 'M' + 'L'.join(self.point(*p) for p in shown) + ('Z' if closed else '')
        self.add(f'<path class="{css}" d="{data}"{extra}/>')

    def area(self, points, css, straight=False):
        self.line(points, css, closed=True, straight=straight)

    def box(self, x, y, w, h, css='wood'):
        self.area([(x, y), (x + w, y), (x + w, y + h), (x, y + h)], css)

    def curve(self, points, css, closed=True, extra=''):
        """A smooth line through the points."""
        if self.is_off(points, 2.0):
            return
        n = len(points)
        get = (lambda i: points[i % n]) if closed else (lambda i: points[min(max(i, 0), n - 1)])
        data = 'M' + self.point(*points[0])
        for i in range(n if closed else n - 1):
            p0, p1, p2, p3 = get(i - 1), get(i), get(i + 1), get(i + 2)
            a = (p1[0] + (p2[0] - p0[0]) / 6, p1[1] + (p2[1] - p0[1]) / 6)
            b = (p2[0] - (p3[0] - p1[0]) / 6, p2[1] - (p3[1] - p1[1]) / 6)
            data += f'C{self.point(*a)} {self.point(*b)} {self.point(*p2)}'
        self.add(f'<path class="{css}" d="{data}{"Z" if closed else ""}"{extra}/>')

    def circle(self, x, y, radius, css):
        if self.is_off([(x, y)], radius):
            return
        cx, cy = self.point(x, y).split()
        self.add(f'<circle class="{css}" cx="{cx}" cy="{cy}" r="{self.size(radius)}"/>')

    def blob(self, x, y, radius, css, lobes=9):
        """A round shape with a wavy edge: a tree or a bush seen from above."""
        points = []
        for i in range(2 * lobes):
            angle = math.pi * i / lobes
            r = radius * ((1.0 if i % 2 else 0.86) + waver(f'{x} {y} {i}', 0.05))
            points.append((x + r * math.cos(angle), y + r * math.sin(angle)))
        self.curve(points, css)

    def text(self, x, y, lines, height, css='', line_height=1.2):
        """Lines of text centred on a point, level with the sheet; height in metres."""
        px, py = self.sheet.image_point(self.frame, x, y)
        size = height * self.sheet.pixels_per_meter
        for i, line in enumerate(lines):
            ly = py + (i - (len(lines) - 1) / 2) * size * line_height + size * 0.35
            self.add(f'<text class="{css}" x="{px:.1f}" y="{ly:.1f}" font-size="{size:.1f}">{line}</text>')

    def svg(self):
        width, height = self.sheet.image_size()
        head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
                f'viewBox="0 0 {width} {height}" role="img">\n<title>{self.description}</title>\n<style>\n{STYLE}</style>\n'
                f'<clipPath id="sheet"><rect width="{width}" height="{height}" rx="14"/></clipPath>\n'
                f'<g clip-path="url(#sheet)">\n<rect class="paper" width="{width}" height="{height}"/>\n')
        return head + '\n'.join(self.parts) + '\n</g>\n</svg>\n'
