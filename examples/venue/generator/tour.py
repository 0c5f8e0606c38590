"""The walk: through the garden and the courtyard into the house, over both floors, and out again."""
from dataclasses import dataclass

from .garden import FOUNTAIN
from .geometry import Frame
from .house import DEPTH, EAST_WING, NORTH_WING, PROPERTY


@dataclass(frozen=True)
class Step:
    map_id: str
    frame: Frame
    position: tuple
    pause: float = 0.0  # seconds
    note: str = ''
    speed: float = 0.0  # metres a second on the way here; 0 is the walk's own


def garden(x, y, *rest, **more):
    return Step('garden', PROPERTY, (x, y), *rest, **more)


def north(x, y, *rest, **more):
    return Step('ground-floor', NORTH_WING, (x, y), *rest, **more)


def east(x, y, *rest, **more):
    return Step('ground-floor', EAST_WING, (x, y), *rest, **more)


def upper(x, y, *rest, **more):
    return Step('upper-floor', EAST_WING, (x, y), *rest, **more)


DOOR = (17.9, DEPTH)
STAIRS = 0.5  # metres a second

OUTSIDE_DOOR = Step('garden', NORTH_WING, DOOR, note='front door, outside')
INSIDE_DOOR = north(*DOOR, note='front door, inside')

TOUR = (
    garden(10.5, 45.0, 6, 'inside the garden gate'), garden(10.4, 41.5), garden(12.6, 37.2), garden(18.5, 34.6),
    garden(25.5, 35.0), garden(32.8, 37.1, 10, 'pavilion'), garden(25.6, 33.4), garden(25.5, 29.0, 0, 'courtyard gate'),
    garden(FOUNTAIN[0] + 1.2, FOUNTAIN[1] + 2.4, 10, 'fountain'), OUTSIDE_DOOR, INSIDE_DOOR,
    north(16.6, 5.2, 12, 'ticket desk'), north(13.5, 6.5), north(10.4, 6.6, 6, 'cloister'), north(8.8, 6.1),
    north(8.8, 2.8, 15, 'type gallery'), north(8.8, 6.1), north(6.5, 6.55), north(3.4, 5.7, 18, 'press room'),
    north(6.5, 6.55), north(13.5, 6.5), north(18.0, 5.3), east(0.0, 6.7), east(3.2, 8.0, 18, 'café'), east(1.85, 9.4),
    east(1.85, 10.0), east(3.0, 12.9, 15, 'paper workshop'), east(1.85, 10.0), east(1.85, 8.6), east(0.0, 6.7),
    east(-1.2, 5.2), east(0.0, 3.7), east(2.27, 3.6, 0, 'foot of the stairs'), east(2.27, 0.8, speed=STAIRS),
    upper(0.92, 0.8, speed=STAIRS), upper(0.92, 3.3, 0, 'head of the stairs', STAIRS), upper(2.0, 4.2), upper(2.0, 5.0),
    upper(2.2, 6.5), upper(4.05, 6.7), upper(4.05, 8.5, 22, 'reading room'), upper(4.05, 10.2), upper(2.4, 10.6),
    upper(2.6, 12.4, 15, 'manuscripts'), upper(2.4, 10.6), upper(4.05, 10.2), upper(4.05, 6.6), upper(6.9, 6.2),
    upper(6.9, 5.0), upper(5.4, 4.2, 15, 'map room'), upper(3.2, 3.9), upper(0.92, 3.5), upper(0.92, 0.8, speed=STAIRS),
    east(2.27, 0.8, speed=STAIRS), east(2.27, 3.5, 0, 'foot of the stairs', STAIRS), east(3.2, 3.7),
    east(4.7, 2.6, 12, 'shop'), east(3.2, 3.7), east(0.0, 3.7), north(18.0, 5.6), INSIDE_DOOR, OUTSIDE_DOOR,
    garden(28.6, 24.6), garden(25.5, 29.0, 0, 'courtyard gate'), garden(24.0, 33.6), garden(18.5, 34.6),
    garden(12.6, 37.2), garden(10.4, 41.5), garden(10.5, 45.0, 5, 'garden gate'),
)
