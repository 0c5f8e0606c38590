"""The files of the venue folder: path to bytes. Nothing here knows a position; it all comes from house and garden."""
import json
import plistlib
import zlib

from . import garden, house, plans
from .geometry import geographic_to_pixel, site_to_geographic
from .tour import TOUR

HOUSE_UUID = '7D3A1C52-94E8-4B0F-A6D1-2E5B8C90F417'
GARDEN_UUID = 'C1F08E36-5B7A-4D29-8E43-90A6D2B7351C'
BEACONS = house.GROUND_BEACONS + house.UPPER_BEACONS + garden.BEACONS
KIT_URL, KIT_TOKEN = 'http://kit.example/api/kits/7', 'sample-kit-token'


def compact(value, indent=0):
    """JSON text with short objects and lists of numbers on one line."""
    flat = json.dumps(value, ensure_ascii=False)
    if not isinstance(value, (dict, list)) or not value:
        return flat
    inner = list(value.values()) if isinstance(value, dict) else value
    limit = 110 if all(not isinstance(v, (dict, list)) for v in inner) else 0
    if len(flat) + indent <= limit:
        return flat
    pad = '\n' + ' ' * (indent + 2)
    if isinstance(value, dict):
        items = [f'{json.dumps(k, ensure_ascii=False)}: {compact(v, indent + 2)}' for k, v in value.items()]
        return '{' + pad + (',' + pad).join(items) + '\n' + ' ' * indent + '}'
    return '[' + pad + (',' + pad).join(compact(v, indent + 2) for v in value) + '\n' + ' ' * indent + ']'


def text(value):
    return (compact(value) + '\n').encode()


def uuid_of(beacon):
    return GARDEN_UUID if beacon.map_id == 'garden' else HOUSE_UUID


def coordinate(frame, point):
    """Latitude and longitude to a tenth of a millimetre."""
    return tuple(round(v, 9) for v in site_to_geographic(*frame.to_site(*point)))


def map_configuration():
    return {sheet.map_id: sheet.configuration() for sheet in garden.SHEETS}


def pixel(configuration, map_id, frame, point):
    """Standard pixels, the way that the library computes them from latitude and longitude."""
    x, y = geographic_to_pixel(configuration[map_id], *coordinate(frame, point))
    return round(x, 2), round(y, 2)


def kit():
    entries = [
        {'identifier': 'house', 'name': 'Quill House', 'uuid': HOUSE_UUID, 'major': None, 'minor': None,
         'attributes': {'venue': 'Quill House', 'measured_power': -59}},
        {'identifier': 'east-wing', 'name': 'East Wing', 'uuid': HOUSE_UUID, 'major': 2, 'minor': None,
         'attributes': {'wing': 'east', 'measured_power': '-61'}},
        {'identifier': 'library', 'name': 'Library', 'uuid': HOUSE_UUID, 'major': 3, 'minor': None,
         'attributes': {'wing': 'east', 'quiet': True}}]
    for beacon in BEACONS:
        latitude, longitude = coordinate(beacon.frame, beacon.position)
        entries.append({'identifier': beacon.identifier, 'name': beacon.name, 'uuid': uuid_of(beacon),
                        'major': beacon.major, 'minor': beacon.minor,
                        'attributes': {'map_id': beacon.map_id, 'latitude': latitude, 'longitude': longitude,
                                       **beacon.attributes}})
    centre = (garden.WIDTH / 2, garden.HEIGHT / 2)
    overlays = [
        {'identifier': 'grounds', 'name': 'Quill House and its garden', 'type': 'circle',
         'center': list(coordinate(house.PROPERTY, centre)), 'radius': 60, 'attributes': {'opens': '10:00'}},
        {'identifier': 'courtyard-outline', 'name': 'Courtyard', 'type': 'polygon',
         'points': [list(coordinate(house.PROPERTY, p)) for p in garden.COURTYARD]}]
    return {'kit': {'id': 7, 'name': 'Quill House', 'status_url': 'http://status.example/api/statuses',
                    'status_token': 'sample-status-token', 'ibeacons': entries, 'map': {'overlays': overlays}}}


def obstacles(configuration, map_id, walls):
    for wall in walls:
        for a, b, loss in wall.obstacles():
            start, end = (pixel(configuration, map_id, wall.frame, wall.at(p)) for p in (a, b))
            yield [*start, *end, loss]


def address(beacon):
    """A made-up random static address, one for each beacon."""
    digest = zlib.crc32(beacon.identifier.encode())
    octets = [digest >> shift & 255 for shift in (26, 18, 10, 2)] + [beacon.major, beacon.minor]
    octets[0] |= 0xC0
    return ':'.join(f'{octet:02X}' for octet in octets)


def radio():
    configuration = map_configuration()
    walls = {'ground-floor': house.GROUND_WALLS, 'upper-floor': house.UPPER_WALLS, 'garden': garden.WALLS}
    maps = {sheet.map_id: {'floor': sheet.floor, 'elevation_m': sheet.elevation,
                           'walls': list(obstacles(configuration, sheet.map_id, walls[sheet.map_id]))}
            for sheet in garden.SHEETS}
    beacons = []
    for beacon in BEACONS:
        x, y = pixel(configuration, beacon.map_id, beacon.frame, beacon.position)
        beacons.append({'uuid': uuid_of(beacon), 'major': beacon.major, 'minor': beacon.minor,
                        'address': address(beacon), 'map_id': beacon.map_id, 'x': x, 'y': y, 'height_m': beacon.height,
                        'power_at_1m_dbm': beacon.real_power, 'advertised_power_dbm': beacon.advertised_power,
                        'advertising_interval_s': beacon.interval})
    return {
        'version': 1,
        'propagation': {'path_loss_exponent': 2.2, 'shadowing_sigma_db': 3.5, 'shadowing_correlation_m': 3.0,
                        'fading_sigma_db': 3.0, 'body_blocking_db': 6.0, 'floor_attenuation_db': 15.0},
        'receiver': {'height_m': 1.1, 'gain_db': -1.0, 'sensitivity_dbm': -97.0, 'frame_loss': 0.15},
        'location_fixes': {'map_ids': ['garden'], 'interval_s': 2.0, 'accuracy_m': 6.0, 'error_sigma_m': 2.5,
                           'error_correlation_s': 20.0},
        'maps': maps, 'beacons': beacons}


def tour():
    configuration, waypoints = map_configuration(), []
    for step in TOUR:
        x, y = pixel(configuration, step.map_id, step.frame, step.position)
        extras = {'pause_s': step.pause, 'speed_m_s': step.speed, 'note': step.note}
        waypoints.append({'map_id': step.map_id, 'x': x, 'y': y, **{k: v for k, v in extras.items() if v}})
    return {'version': 1, 'name': 'A tour of Quill House', 'start': 1749981600, 'speed_m_s': 1.15,
            'waypoints': waypoints}


def property_lists():
    servers = {'GFKitURL': KIT_URL, 'GFAPIToken': KIT_TOKEN, 'GFAnalyticsURL': 'http://analytics.example/events'}
    return {'Geofold.plist': {**servers, 'GFMapName': 'Quill House'},
            'Wayloom.plist': {'WLMapConfigURL': 'http://maps.example/maps/map_config.json', **servers},
            'Info.plist': {'CFBundleName': 'Quill House',
                           'NSLocationAlwaysUsageDescription': 'Shows where you are in the house and its garden.'}}


def files():
    """Every generated file: its path in the venue folder and its bytes."""
    configuration = text(map_configuration())
    result = {'bundle/' + name: plistlib.dumps(content, sort_keys=False) for name, content in property_lists().items()}
    result['bundle/map_config.json'] = result['server/maps/map_config.json'] = configuration
    for sheet in garden.SHEETS:
        picture = plans.draw(sheet).encode()
        result[f'bundle/{sheet.map_id}.svg'] = result[f'server/maps/plans/{sheet.map_id}.svg'] = picture
    result['server/kit.json'] = text(kit())
    result['radio.json'] = text(radio())
    result['walks/tour.json'] = text(tour())
    return result
