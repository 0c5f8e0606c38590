"""The grounds of Quill House in metres of the PROPERTY frame: walls, paths, plants, courtyard and outdoor beacons."""
from .geometry import Sheet
from .house import (DEPTH, EAST_WING, FOYER_CORNER, NORTH_WING, PROPERTY, STOREY, Beacon, Opening, Wall)

WIDTH, HEIGHT = 62.0, 46.0


def on_property(frame, x, y):
    return PROPERTY.from_site(*frame.to_site(x, y))


COURT_WEST = (14.6, 29.0)
COURT_EAST = on_property(EAST_WING, 0, 17.6)
COURTYARD = (on_property(NORTH_WING, 0, DEPTH), on_property(NORTH_WING, FOYER_CORNER, DEPTH),
             on_property(EAST_WING, 0, 15), COURT_EAST, COURT_WEST)
FOUNTAIN = (25.6, 22.6)
PAVILION = (34.5, 37.6)

WALLS = (
    Wall(PROPERTY, (0, 0), (WIDTH, 0), 'garden-wall'), Wall(PROPERTY, (0, 0), (0, HEIGHT), 'garden-wall'),
    Wall(PROPERTY, (WIDTH, 0), (WIDTH, HEIGHT), 'garden-wall'),
    Wall(PROPERTY, (0, HEIGHT), (WIDTH, HEIGHT), 'garden-wall', (Opening('gap', 8.6, 12.4),)),
    Wall(PROPERTY, COURTYARD[0], COURT_WEST, 'garden-wall'),
    Wall(PROPERTY, COURTYARD[2], COURT_EAST, 'garden-wall'),
    Wall(PROPERTY, COURT_WEST, COURT_EAST, 'garden-wall', (Opening('gap', 9.4, 12.4),)),
)

GARDEN_PATH = ((10.5, 46.8), (10.4, 42.0), (12.6, 37.2), (18.5, 34.6), (24.0, 33.6), (25.6, 31.2), (25.4, 27.5))
PAVILION_PATH = ((22.0, 34.2), (27.5, 35.6), (34.5, 37.6))
ORCHARD_PATH = ((34.5, 37.6), (42.0, 36.0), (50.5, 30.5), (53.2, 20.0), (51.0, 11.5))
SUNDIAL = (51.0, 10.6)
POND = ((14.5, 40.2), (18.0, 38.4), (22.6, 39.0), (25.2, 41.0), (22.4, 43.0), (17.6, 42.8))
TREES = ((19.2, 24.6, 2.3), (4.0, 5.0, 2.4), (9.5, 9.5, 2.0), (4.6, 14.0, 2.2), (9.0, 20.0, 1.9), (4.2, 26.0, 2.4),
         (10.6, 30.6, 1.8), (29.0, 43.0, 1.7), (4.4, 41.0, 2.1), (42.5, 42.2, 1.9), (52.0, 3.6, 1.9), (20.0, 3.4, 1.8),
         (37.5, 4.5, 2.0))
ORCHARD = tuple((x, y, 1.25) for y in (14.5, 19.0, 23.5) for x in (56.0, 59.3)) + tuple(
    (x, y, 1.25) for y in (32.5, 36.5, 40.5) for x in (50.0, 54.0, 58.0))
BEDS = tuple((1.5, y, 4.0, 1.1) for y in (29.6, 31.3, 33.0, 34.7))
BENCHES = ((23.0, 20.4, 1.8, 0.5), (21.6, 27.8, 1.8, 0.5), (20.6, 36.6, 1.8, 0.5))
CAFE_TABLES = ((36.4, 24.6), (34.6, 26.6), (37.0, 27.4))

BEACONS = (
    Beacon('courtyard', 'Courtyard', 9, 1, 'garden', PROPERTY, FOUNTAIN, 1.6, -55.5, -56, 0.5,
           {'measured_power': '-56'}),
    Beacon('pavilion', 'Garden Pavilion', 9, 2, 'garden', PROPERTY, PAVILION, 2.4, -57.0, -56, 0.5,
           {'measured_power': '-56'}),
)

SHEETS = (
    Sheet('ground-floor', 'Quill House, ground floor', NORTH_WING, left=-2.0, top=-4.6, width=36.0, height=24.0,
          reference=(0.0, 0.0), overlay_origin=(0.0, 0.0), pixels_per_meter=25, floor=0, elevation=0.0,
          crop_height=21.0),
    Sheet('upper-floor', 'Quill House, upper floor', EAST_WING, left=-9.5, top=-2.25, width=20.0, height=20.0,
          reference=(1.6, 2.5), overlay_origin=(0.0, 0.0), pixels_per_meter=32, floor=1, elevation=STOREY),
    Sheet('garden', 'Quill House, garden and courtyard', PROPERTY, left=-3.0, top=-3.0, width=68.0, height=52.0,
          reference=(10.5, 46.0), overlay_origin=on_property(NORTH_WING, 0.0, 0.0), pixels_per_meter=12, floor=0,
          elevation=0.0, geolocation=True),
)
