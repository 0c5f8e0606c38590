"""Checks that a venue hangs together. Each check yields one line of text a fault."""
import math
import struct

from .documents import BEACONS, coordinate, files, kit, map_configuration, radio, tour
from .garden import SHEETS
from .geometry import STANDARD_PIXELS_PER_METER, geographic_to_pixel, pixel_to_geographic

MAXIMUM_ENTRIES = 20  # with more, regions are registered for whole UUIDs only
MAXIMUM_DRIFT = 0.01  # standard pixels: 2 mm


def visible_size(configuration):
    """Width and height of what a screen shows of a map, in standard pixels."""
    scale = STANDARD_PIXELS_PER_METER / configuration['pixels_per_meter']
    return (configuration.get('crop_width', configuration['map_pixel_width']) * scale,
            configuration.get('crop_height', configuration['map_pixel_height']) * scale)


def is_visible(configuration, x, y):
    width, height = visible_size(configuration)
    return 0 <= x <= width and 0 <= y <= height


def check_entries():
    maps, entries = map_configuration(), kit()['kit']['ibeacons']
    if len(entries) > MAXIMUM_ENTRIES:
        yield f'{len(entries)} beacon entries, more than {MAXIMUM_ENTRIES}'
    if len({e['identifier'] for e in entries}) < len(entries):
        yield 'an identifier occurs twice'
    if len({(e['uuid'], e['major'], e['minor']) for e in entries}) < len(entries):
        yield 'a beacon occurs twice'
    for entry in entries:
        attributes = entry['attributes']
        if 'map_id' not in attributes:
            continue
        configuration = maps[attributes['map_id']]
        pixel = geographic_to_pixel(configuration, attributes['latitude'], attributes['longitude'])
        if not is_visible(configuration, *pixel):
            yield f'beacon {entry["identifier"]} is outside its map'


def check_projection():
    """The plan, drawn in metres, and the library, which goes through degrees, must agree on every beacon."""
    maps, sheets = map_configuration(), {sheet.map_id: sheet for sheet in SHEETS}
    for beacon in BEACONS:
        sheet, configuration = sheets[beacon.map_id], maps[beacon.map_id]
        latitude, longitude = coordinate(beacon.frame, beacon.position)
        x, y = geographic_to_pixel(configuration, latitude, longitude)
        scale = STANDARD_PIXELS_PER_METER / sheet.pixels_per_meter
        drawn = [v * scale for v in sheet.image_point(beacon.frame, *beacon.position)]
        if math.dist((x, y), drawn) > MAXIMUM_DRIFT:
            yield f'beacon {beacon.identifier} is drawn {math.dist((x, y), drawn):.3f} px from where it is computed'
        back = pixel_to_geographic(configuration, x, y)
        if math.dist(back, (latitude, longitude)) > 1e-11:
            yield f'beacon {beacon.identifier} does not come back from pixels to {latitude} {longitude}'
    for map_id, configuration in maps.items():
        for key, value in configuration.items():
            if '_offset_' in key and abs(struct.unpack('f', struct.pack('f', value))[0] - value) > 1e-3:
                yield f'{map_id}: {key} {value} is too fine for a single-precision number'


def check_spacing():
    for sheet in SHEETS:
        inside = [b for b in BEACONS if b.map_id == sheet.map_id and not sheet.geolocation]
        for beacon in inside:
            here = beacon.frame.to_site(*beacon.position)
            nearest = min(math.dist(here, o.frame.to_site(*o.position)) for o in inside if o is not beacon)
            if not 4.0 <= nearest <= 7.0:
                yield f'beacon {beacon.identifier} is {nearest:.1f} m from its neighbour'


def crosses(a, b, c, d):
    """Whether the way ab meets the wall cd. Standing still meets nothing."""
    side = lambda p, q, r: (q[0] - p[0]) * (r[1] - p[1]) - (q[1] - p[1]) * (r[0] - p[0])
    return math.dist(a, b) > 1e-9 and side(a, b, c) * side(a, b, d) <= 0 and side(c, d, a) * side(c, d, b) <= 0


def check_walk():
    """Nobody walks through walls, and every leg between two maps keeps to the spot or to the stairs."""
    maps, truth, walk = map_configuration(), radio(), tour()
    walls = [(floor['floor'], *(pixel_to_geographic(maps[map_id], *wall[i:i + 2]) for i in (0, 2)))
             for map_id, floor in truth['maps'].items() for wall in floor['walls']]
    previous = None
    for number, step in enumerate(walk['waypoints'], 1):
        name = f'waypoint {number} ({step["map_id"]} {step["x"]} {step["y"]})'
        if not is_visible(maps[step['map_id']], step['x'], step['y']):
            yield f'{name} is outside its map'
        place = pixel_to_geographic(maps[step['map_id']], step['x'], step['y'])
        floor = truth['maps'][step['map_id']]['floor']
        if previous and previous[0] == floor and any(
                wall_floor == floor and crosses(previous[1], place, start, end) for wall_floor, start, end in walls):
            yield f'the way to {name} goes through a wall'
        previous = (floor, place)


def duration():
    """Seconds that the walk takes."""
    maps, walk = map_configuration(), tour()
    total, previous = 0.0, None
    for step in walk['waypoints']:
        place = pixel_to_geographic(maps[step['map_id']], step['x'], step['y'])
        if previous:
            x, y = geographic_to_pixel(maps['garden'], *place)
            u, v = geographic_to_pixel(maps['garden'], *previous)
            total += math.hypot(x - u, y - v) / STANDARD_PIXELS_PER_METER / step.get('speed_m_s', walk['speed_m_s'])
        total += step.get('pause_s', 0)
        previous = place
    return total


def check_files(folder):
    """The files on disk are the generated ones, and no others."""
    expected = files()
    for path, content in expected.items():
        file = folder / path
        if not file.is_file():
            yield f'{path} is missing'
        elif file.read_bytes() != content:
            yield f'{path} differs from what the geometry gives; run make_venue.py'
    for top in ('bundle', 'server'):
        for file in sorted((folder / top).rglob('*')):
            if file.is_file() and file.relative_to(folder).as_posix() not in expected:
                yield f'{file.relative_to(folder).as_posix()} is not generated'


def faults(folder):
    for check in (check_entries, check_projection, check_spacing, check_walk):
        yield from check()
    yield from check_files(folder)
