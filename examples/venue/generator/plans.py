"""Draws the three plans."""
import math

from . import garden, house
from .furniture import draw_furniture, round_table, stripes
from .house import EAST_WING, LENGTH, MATERIALS, NORTH_WING, PROPERTY, box
from .pen import Pen, waver

LABEL, SMALL = 18.0, 13.0  # heights of text, image pixels


def draw_walls(pen, walls):
    for wall in walls:
        draw_wall(pen.use(wall.frame), wall)
    for wall in walls:
        for opening in wall.openings:
            draw_opening(pen.use(wall.frame), wall, opening)


def draw_wall(pen, wall):
    thickness = MATERIALS[wall.material][1]
    if wall.material in ('glass', 'rail'):
        for a, b in wall.solid():
            for aside in ((-0.09, 0.09) if wall.material == 'glass' else (0.0,)):
                pen.line([wall.at(a, aside), wall.at(b, aside)], 'ink thin')
            posts = max(1, round((b - a) / 1.1))
            for i in range(posts + 1):
                p = a + (b - a) * i / posts
                pen.line([wall.at(p, -0.12), wall.at(p, 0.12)], 'ink thin', straight=True)
        return
    css, node = ('garden-wall', 'garden-node') if wall.material == 'garden-wall' else ('wall', 'node')
    for a, b in wall.solid():
        pen.line([wall.at(a), wall.at(b)], css, extra=f' stroke-width="{pen.size(thickness)}"')
    for end in (wall.start, wall.end):
        pen.circle(*end, thickness / 2, node)


def draw_opening(pen, wall, opening):
    a, b = opening.start, opening.end
    half = MATERIALS[wall.material][1] / 2
    if opening.kind == 'window':
        pen.area([wall.at(a, -half), wall.at(b, -half), wall.at(b, half), wall.at(a, half)], 'pane', straight=True)
        pen.line([wall.at(a), wall.at(b)], 'ink fine', straight=True)
    elif opening.kind == 'gap':
        for aside in (-half, half):
            pen.line([wall.at(a, aside), wall.at(b, aside)], 'ink fine dash', straight=True)
    elif opening.kind == 'door':
        draw_leaf(pen, wall, *((a, b) if opening.hinge == 'start' else (b, a)), opening.side)
    else:
        draw_leaf(pen, wall, a, (a + b) / 2, opening.side)
        draw_leaf(pen, wall, b, (a + b) / 2, opening.side)


def draw_leaf(pen, wall, hinge, tip, side):
    """A door leaf that stands open at a right angle, and the arc that it swings through."""
    width = tip - hinge
    swing = [wall.at(hinge + width * math.cos(t * math.pi / 16), side * abs(width) * math.sin(t * math.pi / 16))
             for t in range(9)]
    pen.line([wall.at(hinge), swing[-1]], 'ink', straight=True, extra=' stroke-width="1.6"')
    pen.curve(swing, 'ink fine', closed=False)


def draw_rooms(pen, rooms):
    for room in rooms:
        pen.use(room.frame).area(list(room.outline), room.kind, straight=True)


def draw_labels(pen, rooms):
    for room in rooms:
        height = (SMALL if room.small else LABEL) / pen.sheet.pixels_per_meter
        pen.use(room.frame).text(*room.label_at, room.label, height, 'halo' + ' small' * room.small)


def draw_scale(pen, x, y, length):
    """A scale bar at a place on the sheet and a needle that points north."""
    pen.use(pen.sheet.frame)
    unit = 22 / pen.sheet.pixels_per_meter  # text of the same size on every sheet
    for i in range(length):
        pen.box(x + i, y, 1, unit * 0.3, 'node' if i % 2 == 0 else 'paper')
    pen.box(x, y, length, unit * 0.3, 'ink fine')
    pen.text(x, y - unit * 0.45, ['0'], unit * 0.6, 'small')
    pen.text(x + length, y - unit * 0.45, [f'{length} m'], unit * 0.6, 'small')


def draw_north(pen, x, y):
    unit = 24 / pen.sheet.pixels_per_meter
    angle = math.radians(pen.sheet.frame.angle)
    ux, uy = math.sin(angle), -math.cos(angle)  # north on the sheet; a frame's y points down
    pen.use(pen.sheet.frame).circle(x, y, unit, 'ink thin')
    at = lambda along, aside: (x + unit * (ux * along - uy * aside), y + unit * (uy * along + ux * aside))
    pen.area([at(0.85, 0), at(-0.55, 0.38), at(-0.25, 0), at(-0.55, -0.38)], 'paper ink thin', straight=True)
    pen.area([at(0.85, 0), at(-0.55, 0.38), at(-0.25, 0)], 'node', straight=True)
    pen.text(x + 1.35 * unit * ux, y + 1.35 * unit * uy, ['N'], unit * 0.55, '')


def scatter_grass(pen, left, top, right, bottom, inside):
    """Small tufts on a lawn wherever inside(x, y) holds."""
    step = 2.4
    for i in range(int((right - left) / step)):
        for j in range(int((bottom - top) / step)):
            x = left + (i + 0.5) * step + waver(f'tuft {i} {j} x', 0.9)
            y = top + (j + 0.5) * step + waver(f'tuft {i} {j} y', 0.9)
            if inside(x, y):
                pen.line([(x - 0.18, y - 0.22), (x, y), (x + 0.2, y - 0.25)], 'tuft', straight=True)


def draw_outdoors(pen):
    """Lawn, paths, water, beds: everything that lies flat on the grounds."""
    pen.use(PROPERTY).area([(-60, -60), (120, -60), (120, 120), (-60, 120)], 'grass', straight=True)
    scatter_grass(pen, 0, 0, garden.WIDTH, garden.HEIGHT, lambda x, y: True)
    for track, width in ((garden.ORCHARD_PATH, 1.5), (garden.PAVILION_PATH, 1.8), (garden.GARDEN_PATH, 2.4)):
        pen.curve(list(track), 'track-edge', closed=False, extra=f' stroke-width="{pen.size(width + 0.16)}"')
    for track, width in ((garden.ORCHARD_PATH, 1.5), (garden.PAVILION_PATH, 1.8), (garden.GARDEN_PATH, 2.4)):
        pen.curve(list(track), 'track', closed=False, extra=f' stroke-width="{pen.size(width)}"')
    pen.area([(-60, garden.HEIGHT), (120, garden.HEIGHT), (120, 120), (-60, 120)], 'street', straight=True)
    pen.area(list(garden.COURTYARD), 'stone', straight=True)
    draw_paving(pen)


def draw_paving(pen):
    x, y = garden.FOUNTAIN
    for ring in range(1, 3):
        radius = 2.0 + 1.4 * ring
        points = [(x + radius * math.cos(i * math.pi / 18), y + radius * math.sin(i * math.pi / 18)) for i in range(36)]
        pen.line(points, 'ink paving', closed=True)
    for i in range(20):
        angle = (i + 0.5) * math.pi / 10
        pen.line([(x + r * math.cos(angle), y + r * math.sin(angle)) for r in (2.0, 4.8)], 'ink paving', straight=True)


def draw_garden_things(pen):
    pen.use(PROPERTY)
    x, y = garden.FOUNTAIN
    pen.circle(x, y, 1.5, 'wood')
    pen.circle(x, y, 1.25, 'water ink thin')
    pen.circle(x, y, 0.4, 'wood')
    for bx, by, w, h in garden.BENCHES:
        stripes(pen, bx, by, w, h, 3)
    for tx, ty in garden.CAFE_TABLES:
        round_table(pen, tx - 0.5, ty - 0.5, 1.0, 1.0)
    pen.circle(*garden.SUNDIAL, 1.6, 'sandy')
    pen.circle(*garden.SUNDIAL, 0.5, 'wood')
    for bx, by, w, h in garden.BEDS:
        pen.box(bx, by, w, h, 'bed')
        for i in range(int(w / 0.6)):
            pen.blob(bx + 0.35 + i * 0.6, by + h / 2, 0.24, 'leaf2', 5)
    pen.curve(list(garden.POND), 'water ink thin')
    pen.curve([(16.5, 41.0), (18.2, 40.5), (19.8, 41.0)], 'ink fine', closed=False)
    pen.curve([(20.0, 42.0), (21.6, 41.5), (23.0, 41.8)], 'ink fine', closed=False)


def draw_pavilion(pen):
    x, y = garden.PAVILION
    rim = [(x + 2.5 * math.cos((i + 0.5) * math.pi / 4), y + 2.5 * math.sin((i + 0.5) * math.pi / 4)) for i in range(8)]
    pen.use(PROPERTY).area(rim, 'roof')
    pen.area(rim, 'ink thin')
    for corner in rim:
        pen.line([(x, y), corner], 'ink fine', straight=True)
    pen.circle(x, y, 0.3, 'wood')


def draw_trees(pen):
    pen.use(PROPERTY)
    for x, y, radius in garden.TREES + garden.ORCHARD:
        pen.blob(x, y, radius, 'leaf' if radius > 1.6 else 'leaf2')
        pen.blob(x - radius * 0.15, y - radius * 0.15, radius * 0.5, 'crown', 6)


def draw_ground_floor(sheet):
    pen = Pen(sheet, 'Ground floor of Quill House')
    draw_outdoors(pen)
    draw_garden_things(pen)
    draw_rooms(pen, house.GROUND_ROOMS)
    draw_furniture(pen, house.GROUND_FURNITURE)
    draw_walls(pen, garden.WALLS)
    draw_walls(pen, house.GROUND_WALLS)
    draw_trees(pen)
    draw_labels(pen, house.GROUND_ROOMS)
    pen.use(PROPERTY).text(31.4, 24.0, ['Courtyard'], LABEL / sheet.pixels_per_meter, 'halo')
    draw_title_block(pen, sheet)
    draw_north(pen, sheet.left + 2.0, sheet.top + sheet.crop_height - 2.0)
    return pen.svg()


def draw_title_block(pen, sheet):
    """The strip below the crop: what the sheet is, and its scale."""
    top = sheet.top + sheet.crop_height
    pen.use(sheet.frame).area(box(sheet.left - 1, top, sheet.left + sheet.width + 1, top + 5), 'paper', straight=True)
    pen.line([(sheet.left, top), (sheet.left + sheet.width, top)], 'ink thin')
    pen.text(sheet.left + 1.2, top + 1.2, ['Quill House'], 1.15, 'title')
    pen.text(sheet.left + 1.2, top + 2.3, ['Ground floor, sheet 1 of 3'], 0.6, 'left small')
    draw_scale(pen, sheet.left + 23.5, top + 1.5, 10)


def draw_upper_floor(sheet):
    pen = Pen(sheet, 'Upper floor of Quill House')
    draw_outdoors(pen)
    draw_garden_things(pen)
    draw_walls(pen, garden.WALLS)
    draw_trees(pen)
    pen.use(sheet.frame).area(box(-60, -60, 120, 120), 'haze', straight=True)
    draw_roof(pen, NORTH_WING, 0.0, -0.3, LENGTH, house.DEPTH + 0.3)
    draw_rooms(pen, house.UPPER_ROOMS)
    draw_deck(pen)
    draw_furniture(pen, house.UPPER_FURNITURE)
    draw_walls(pen, house.UPPER_WALLS)
    draw_labels(pen, house.UPPER_ROOMS)
    pen.use(sheet.frame).text(sheet.left + 0.7, sheet.top + sheet.height - 2.35, ['Upper floor'], 0.9, 'title halo')
    draw_scale(pen, sheet.left + 0.9, sheet.top + sheet.height - 1.0, 5)
    draw_north(pen, sheet.left + sheet.width - 1.4, sheet.top + sheet.height - 1.5)
    return pen.svg()


def draw_roof(pen, frame, left, top, right, bottom):
    """A tiled gable roof whose ridge runs along the frame's x axis."""
    pen.use(frame).area(box(left, top, right, bottom), 'roof')
    ridge = (top + bottom) / 2
    rows = 7
    for i in range(1, rows):
        for y in (top + (ridge - top) * i / rows, bottom + (ridge - bottom) * i / rows):
            pen.line([(left, y), (right, y)], 'ink tile')
    pen.line([(left, ridge), (right, ridge)], 'ink thin')
    pen.area(box(left, top, right, bottom), 'ink thin')


def draw_deck(pen):
    """The boards of the roof terrace."""
    pen.use(NORTH_WING)
    for i in range(1, 16):
        y = house.DEPTH * i / 16
        edge = 19.5 + (house.FOYER_CORNER - 19.5) * i / 16
        pen.line([(LENGTH, y), (edge, y)], 'ink paving', straight=True)


def draw_garden(sheet):
    pen = Pen(sheet, 'Garden and courtyard of Quill House')
    draw_outdoors(pen)
    draw_garden_things(pen)
    draw_rooms(pen, house.GROUND_ROOMS)
    draw_walls(pen, house.GROUND_WALLS)
    draw_walls(pen, garden.WALLS)
    draw_pavilion(pen)
    draw_trees(pen)
    for room in house.GROUND_ROOMS:
        pen.use(room.frame).text(*room.label_at, room.label, 0.8, 'halo small')
    pen.use(NORTH_WING).text(9.6, -2.7, ['Quill House'], 1.9, 'title middle halo')
    pen.use(PROPERTY)
    for x, y, name in ((31.4, 24.4, 'Courtyard'), (34.5, 41.3, 'Pavilion'), (20.0, 44.2, 'Pond'),
                       (54.2, 28.2, 'Orchard'), (51.0, 13.6, 'Sundial'), (10.5, 47.6, 'Gate')):
        pen.text(x, y, [name], 1.2, 'halo')
    draw_scale(pen, 48.0, 47.9, 10)
    draw_north(pen, 58.3, 5.0)
    return pen.svg()


DRAW = {'ground-floor': draw_ground_floor, 'upper-floor': draw_upper_floor, 'garden': draw_garden}


def draw(sheet):
    return DRAW[sheet.map_id](sheet)
