"""Quill House, a small museum of writing with a library: its frames, rooms, walls, furniture and indoor beacons.

Everything is in metres. NORTH_WING and EAST_WING are the frames of the two wings, which meet at an angle: the foyer
between them is a trapezium. The upper floor covers the east wing only; over the foyer lies a roof terrace."""
import math
from dataclasses import dataclass, field

from .geometry import Frame

PROPERTY = Frame(-22.0, 18.5, -5.0)  # origin: the north-west corner of the garden wall
NORTH_WING = PROPERTY.frame_at(17.0, 8.5, -9.0)
SPLAY = 18.0
EAST_WING = NORTH_WING.frame_at(19.5, 0.0, SPLAY)
DEPTH, LENGTH, EAST_WIDTH, EAST_LENGTH = 8.0, 13.5, 8.0, 15.0
FOYER_CORNER = 19.5 + DEPTH * math.tan(math.radians(SPLAY))  # x of the foyer's south-east corner, north wing
FOYER_WALL = DEPTH / math.cos(math.radians(SPLAY))  # length of the wall between foyer and east wing
STOREY = 4.2  # from floor to floor

# What a wall costs a radio signal (dB) and how thick it is drawn (metres).
MATERIALS = {'stone': (11.0, 0.46), 'brick': (6.0, 0.3), 'partition': (4.0, 0.18), 'glass': (2.5, 0.2),
             'garden-wall': (5.0, 0.3), 'rail': (0.0, 0.08)}
WINDOW_LOSS = 3.0


@dataclass(frozen=True)
class Opening:
    """A hole in a wall, `start` to `end` metres along it. A door's hinge is at its start or end, its leaf on a side."""
    kind: str  # window, gap, door or double
    start: float
    end: float
    hinge: str = 'start'
    side: int = 1  # 1: to the right of somebody walking along the wall, -1: to the left


@dataclass(frozen=True)
class Wall:
    frame: Frame
    start: tuple
    end: tuple
    material: str
    openings: tuple = ()

    def length(self):
        return math.dist(self.start, self.end)

    def at(self, along, aside=0.0):
        """The point `along` metres from the start and `aside` metres to the right."""
        (ax, ay), (bx, by) = self.start, self.end
        ux, uy = (bx - ax) / self.length(), (by - ay) / self.length()
        return ax + ux * along - uy * aside, ay + uy * along + ux * aside

    def solid(self):
        """The stretches between openings, as pairs of metres along the wall."""
        position = 0.0
        for o in sorted(self.openings, key=lambda o: o.start):
            if o.start > position:
                yield position, o.start
            position = o.end
        if position < self.length():
            yield position, self.length()

    def obstacles(self):
        """What a signal meets: pairs along the wall with the loss in dB. Open doors cost nothing."""
        loss = MATERIALS[self.material][0]
        if loss:
            yield from ((a, b, loss) for a, b in self.solid())
            yield from ((o.start, o.end, WINDOW_LOSS) for o in self.openings if o.kind == 'window')


@dataclass(frozen=True)
class Room:
    frame: Frame
    outline: tuple
    kind: str  # a colour of the plan
    label: tuple = ()  # lines of text
    label_at: tuple = (0.0, 0.0)
    small: bool = False


@dataclass(frozen=True)
class Beacon:
    identifier: str
    name: str
    major: int
    minor: int
    map_id: str
    frame: Frame
    position: tuple
    height: float  # above its floor
    real_power: float  # dBm at one metre, what it really sends
    advertised_power: int  # dBm at one metre, what it says it sends
    interval: float  # seconds between frames
    attributes: dict = field(default_factory=dict)


def box(x1, y1, x2, y2):
    return ((x1, y1), (x2, y1), (x2, y2), (x1, y2))


def windows(*stretches):
    return tuple(Opening('window', a, b) for a, b in stretches)


N, E = NORTH_WING, EAST_WING
FOYER = ((LENGTH, 0.0), (19.5, 0.0), (FOYER_CORNER, DEPTH), (LENGTH, DEPTH))

GROUND_ROOMS = (
    Room(N, box(0, 0, 6.5, 8), 'exhibition', ('Press Room',), (3.25, 1.5)),
    Room(N, box(6.5, 0, 11.2, 5), 'exhibition', ('Type', 'Gallery'), (8.85, 2.15)),
    Room(N, box(11.2, 0, LENGTH, 5), 'service', ('WC',), (12.35, 2.6), True),
    Room(N, box(6.5, 5, LENGTH, 8), 'passage', ('Cloister',), (8.9, 6.55), True),
    Room(N, FOYER, 'foyer', ('Foyer',), (17.4, 2.4)),
    Room(E, box(0, 0, 3.2, 5), 'stairs', ('Stairs',), (1.6, 3.95), True),
    Room(E, box(3.2, 0, 8, 5), 'shop', ('Shop',), (5.5, 2.0)),
    Room(E, box(0, 5, 8, 10), 'cafe', ('Café',), (2.6, 7.3)),
    Room(E, box(0, 10, 8, 15), 'workshop', ('Paper', 'Workshop'), (4.1, 11.9)),
)

GROUND_WALLS = (
    Wall(N, (0, 0), (19.5, 0), 'stone', windows((1.0, 2.6), (3.8, 5.4), (7.6, 8.8), (9.4, 10.6), (12.0, 12.7),
                                               (14.6, 16.0), (16.9, 18.3))),
    Wall(N, (0, 0), (0, 8), 'stone', windows((1.6, 3.2), (4.8, 6.4))),
    Wall(N, (0, 8), (LENGTH, 8), 'stone', windows((1.0, 2.6), (3.8, 5.4), (7.2, 8.6), (9.3, 10.7), (11.4, 12.8))),
    Wall(N, (LENGTH, 8), (FOYER_CORNER, 8), 'glass', (Opening('double', 3.4, 5.4, side=1),)),
    Wall(N, (6.5, 0), (6.5, 8), 'brick', (Opening('door', 6.0, 7.1, 'end', 1),)),
    Wall(N, (6.5, 5), (LENGTH, 5), 'partition', (Opening('gap', 1.5, 3.1), Opening('door', 5.4, 6.3, 'end', -1))),
    Wall(N, (11.2, 0), (11.2, 5), 'partition'),
    Wall(N, (LENGTH, 0), (LENGTH, 8), 'brick', (Opening('gap', 5.7, 7.3),)),
    Wall(E, (0, 0), (8, 0), 'stone', windows((4.4, 6.8))),
    Wall(E, (8, 0), (8, 15), 'stone', windows((1.3, 3.7), (6.0, 7.2), (7.8, 9.0), (11.0, 12.2), (12.8, 14.0))),
    Wall(E, (0, 15), (8, 15), 'stone', windows((1.2, 3.2), (4.8, 6.8))),
    Wall(E, (0, 0), (0, FOYER_WALL), 'brick', (Opening('gap', 2.9, 4.5), Opening('gap', 5.9, 7.5))),
    Wall(E, (0, FOYER_WALL), (0, 15), 'stone', windows((2.4, 4.0), (4.7, 6.1))),
    Wall(E, (3.2, 0), (3.2, 5), 'partition', (Opening('door', 3.2, 4.2, 'end', -1),)),
    Wall(E, (0, 5), (8, 5), 'brick', (Opening('door', 5.6, 6.6, 'start', 1),)),
    Wall(E, (0, 10), (8, 10), 'partition', (Opening('door', 1.3, 2.4, 'start', 1),)),
)

GROUND_FURNITURE = (
    (N, 'press', 1.3, 2.6, 1.5, 2.2), (N, 'press', 4.0, 3.0, 1.5, 2.2), (N, 'table', 1.4, 6.4, 3.4, 0.8),
    (N, 'case', 6.95, 0.9, 0.7, 1.3), (N, 'case', 10.1, 0.9, 0.7, 1.3), (N, 'case', 6.95, 3.0, 0.7, 1.3),
    (N, 'case', 10.1, 3.0, 0.7, 1.3), (N, 'basin', 11.6, 0.5, 0.5, 0.5), (N, 'basin', 12.6, 0.5, 0.5, 0.5),
    (N, 'bench', 11.3, 5.25, 1.4, 0.4), (N, 'counter', 14.2, 1.0, 0.8, 3.2), (N, 'sofa', 19.0, 6.3, 1.7, 0.8),
    (N, 'plant', 14.2, 7.3, 0.9, 0.9), (E, 'stairs-up', 0.35, 0.35, 2.5, 2.9), (E, 'shelf', 3.5, 0.35, 0.5, 2.5),
    (E, 'shelf', 7.2, 0.4, 0.5, 4.0), (E, 'table', 5.0, 3.3, 1.3, 0.7), (E, 'counter', 3.9, 5.5, 0.7, 2.2),
    (E, 'round', 6.4, 6.9, 1.0, 1.0), (E, 'round', 6.5, 8.7, 1.0, 1.0), (E, 'round', 4.2, 8.8, 1.0, 1.0),
    (E, 'table', 1.7, 13.6, 4.0, 0.8), (E, 'vat', 6.9, 10.9, 0.8, 1.3),
    (E, 'shelf', 0.35, 11.3, 0.5, 2.8), (E, 'vat', 6.9, 13.1, 0.8, 1.3),
)

UPPER_ROOMS = (
    Room(N, FOYER, 'terrace', ('Roof', 'Terrace'), (17.3, 4.0)),
    Room(E, box(0, 0, 3.2, 5), 'stairs', ('Landing',), (1.7, 4.0), True),
    Room(E, box(3.2, 0, 8, 5), 'maps', ('Map Room',), (5.2, 1.35)),
    Room(E, box(0, 5, 8, 10.6), 'reading', ('Reading Room',), (4.0, 6.35)),
    Room(E, box(0, 10.6, 5, 15), 'exhibition', ('Manuscripts',), (2.6, 12.75)),
    Room(E, box(5, 10.6, 8, 15), 'service', ('Archive',), (6.15, 12.9), True),
)

UPPER_WALLS = (
    Wall(E, (0, 0), (8, 0), 'stone', windows((1.0, 2.4), (4.4, 6.8))),
    Wall(E, (8, 0), (8, 15), 'stone', windows((1.3, 3.7), (5.8, 7.2), (8.2, 9.6), (12.2, 13.6))),
    Wall(E, (0, 15), (8, 15), 'stone', windows((1.2, 3.2), (5.8, 7.0))),
    Wall(E, (0, 0), (0, 15), 'stone', (Opening('door', 3.5, 4.5, 'end', 1),)
         + windows((5.6, 7.0), (8.9, 10.2), (11.6, 13.6))),
    Wall(E, (3.2, 0), (3.2, 5), 'partition', (Opening('door', 3.4, 4.4, 'end', -1),)),
    Wall(E, (0, 5), (8, 5), 'brick', (Opening('double', 1.2, 2.8, side=1), Opening('door', 6.4, 7.4, 'end', 1))),
    Wall(E, (0, 10.6), (8, 10.6), 'partition', (Opening('gap', 1.6, 3.2),)),
    Wall(E, (5, 10.6), (5, 15), 'partition', (Opening('door', 0.8, 1.7, 'start', -1),)),
    Wall(N, (LENGTH, 0), (19.5, 0), 'rail'), Wall(N, (LENGTH, 0), (LENGTH, 8), 'rail'),
    Wall(N, (LENGTH, 8), (FOYER_CORNER, 8), 'rail'),
)

UPPER_FURNITURE = (
    (E, 'stairs-down', 0.35, 0.35, 2.5, 2.6), (E, 'table', 4.4, 2.4, 2.0, 1.2), (E, 'shelf', 7.25, 0.4, 0.45, 4.0),
    (E, 'desk', 1.6, 7.2, 1.9, 0.8), (E, 'desk', 4.6, 7.2, 1.9, 0.8),
    (E, 'desk', 1.6, 9.1, 1.9, 0.8), (E, 'desk', 4.6, 9.1, 1.9, 0.8), (E, 'shelf', 7.25, 7.3, 0.45, 3.0),
    (E, 'shelf', 0.35, 6.0, 0.45, 2.2), (E, 'case', 0.7, 13.7, 1.4, 0.7), (E, 'case', 2.9, 13.7, 1.4, 0.7),
    (E, 'case', 0.45, 11.0, 0.65, 1.2), (E, 'shelf', 7.3, 10.9, 0.45, 3.8), (E, 'shelf', 5.3, 14.25, 1.7, 0.45),
    (N, 'plant', 14.0, 0.6, 0.9, 0.9), (N, 'plant', 14.0, 6.4, 0.9, 0.9), (N, 'bench', 16.0, 6.9, 1.8, 0.45),
    (N, 'plant', 20.1, 6.7, 0.8, 0.8),
)

GROUND_BEACONS = (
    Beacon('press-room', 'Press Room', 1, 11, 'ground-floor', N, (3.2, 4.3), 2.6, -60.5, -59, 0.30),
    Beacon('type-gallery', 'Type Gallery', 1, 12, 'ground-floor', N, (8.8, 2.3), 2.6, -58.0, -59, 0.30),
    Beacon('cloister', 'Cloister', 1, 13, 'ground-floor', N, (10.4, 6.8), 2.4, -61.0, -59, 0.30),
    Beacon('foyer', 'Foyer', 1, 14, 'ground-floor', N, (16.3, 4.6), 2.8, -57.5, -58, 0.25, {'measured_power': -58}),
    Beacon('stairs', 'Stairs', 2, 21, 'ground-floor', E, (1.6, 4.2), 2.5, -62.0, -61, 0.30),
    Beacon('shop', 'Shop', 2, 22, 'ground-floor', E, (5.8, 2.0), 2.5, -60.0, -61, 0.30),
    Beacon('cafe', 'Café', 2, 23, 'ground-floor', E, (4.6, 7.6), 2.6, -61.5, -61, 0.30),
    Beacon('workshop', 'Paper Workshop', 2, 24, 'ground-floor', E, (3.6, 12.6), 2.6, -59.5, -61, 0.35),
)

UPPER_BEACONS = (
    Beacon('landing', 'Landing', 3, 31, 'upper-floor', E, (2.2, 3.9), 2.4, -59.0, -59, 0.30),
    Beacon('map-room', 'Map Room', 3, 32, 'upper-floor', E, (5.9, 2.2), 2.4, -60.5, -59, 0.30),
    Beacon('reading-room-west', 'Reading Room, west', 3, 33, 'upper-floor', E, (2.0, 8.3), 2.7, -57.0, -57, 0.30,
           {'measured_power': '-57'}),
    Beacon('reading-room-east', 'Reading Room, east', 3, 34, 'upper-floor', E, (6.4, 7.6), 2.7, -60.0, -59, 0.30),
    Beacon('manuscripts', 'Manuscripts', 3, 35, 'upper-floor', E, (2.6, 12.9), 2.4, -58.5, -59, 0.30),
)
