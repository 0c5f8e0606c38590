#!/usr/bin/env python3
"""A second implementation of the positions that `wayloom replay` prints, to check the first one against.

It shares no code with the library and is written for reading, not for speed: a fault has to be made twice to go
unseen.  It covers kit matching, tracking, election, projection, the fallback on platform fixes, and updates of the map
configuration.  Map images, advertisements, uploads and whatever else never moves a position are left out, and so is what
an earlier run left behind.

    model.py [--use-own-distance] VENUE RECORDING          (a RECORDING of "-" reads standard input)
"""
import argparse
import json
import math
import plistlib
import re
import struct
import sys
from dataclasses import dataclass, field
from decimal import Decimal
from pathlib import Path
from urllib.parse import unquote, urlsplit

SECOND = 1_000_000_000          # dates and ages are whole nanoseconds, so that every limit is compared exactly
STANDARD_SCALE = 5.0            # standard pixels a metre
HOLD = EXPIRY = 5 * SECOND      # dwell of a winner; life of a candidate, a winner or a tracked beacon unseen
SAMPLE_WINDOW = 5 * SECOND
RADIANS = 0.017453292519943295
UNCERTAINTY_LIMIT = 50.0        # metres


# Numbers in documents -------------------------------------------------------------------------------------------
# A number, a truth value and a text that begins with a number are all accepted; anything else reads as zero.

def double_value(value):
    if isinstance(value, str):
        match = re.match(r'\s*([+-]?(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?)', value)
        return float(match[1]) if match else 0.0
    return float(value) if isinstance(value, (bool, int, float)) else 0.0


def integer_value(value):
    if isinstance(value, str):
        match = re.match(r'\s*([+-]?[0-9]+)', value)
        return int(match[1]) if match else 0
    return int(value) if isinstance(value, (bool, int, float)) else 0


def is_number(value):
    """Whether there is a number to read: one, or a text that begins with one."""
    if isinstance(value, str):
        return re.match(r'\s*[+-]?\.?[0-9]', value) is not None
    return isinstance(value, (int, float)) and not isinstance(value, bool)


def float_value(value):
    """The nearest single-precision number."""
    try:
        return struct.unpack('f', struct.pack('f', double_value(value)))[0]
    except OverflowError:
        return math.copysign(math.inf, double_value(value))


def bool_value(value):
    """A text is true when Y, y, T, t or a digit from 1 to 9 follows its sign and zeros."""
    if isinstance(value, str):
        return re.match(r'\s*[+-]?0*[YyTt1-9]', value) is not None
    return double_value(value) != 0.0


def divide(a, b):
    """a / b as the processor does it: by zero gives an infinity, 0 / 0 no number."""
    if b != 0.0:
        return a / b
    return math.nan if a == 0.0 or math.isnan(a) else math.copysign(math.inf, a) * math.copysign(1.0, b)


def nanoseconds(t):
    return int((Decimal(t) * SECOND).to_integral_value())


def parse_uuid(text):
    """A comparable identifier, or None for anything but the canonical text form in either case."""
    canonical = r'[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}'
    return text.upper() if isinstance(text, str) and re.fullmatch(canonical, text) else None


# Kit ------------------------------------------------------------------------------------------------------------

class Kit:
    """Finds a beacon's attributes.  Null is any major or minor; one left out altogether reads as 0."""

    def __init__(self, document):
        self.entries = [(parse_uuid(entry.get('uuid')), entry) for entry in document.get('ibeacons') or []]

    def attributes_of(self, uuid, major, minor):
        tiers = [{}, {}, {}]            # by UUID alone, by major, exact; of equals the last entry counts
        for entry_uuid, entry in self.entries:
            any_major = entry.get('major', 0) is None
            any_minor = entry.get('minor', 0) is None
            if entry_uuid is None or entry_uuid != uuid:
                continue
            if any_major:
                tier = 0
            elif integer_value(entry.get('major')) != major:
                continue
            elif any_minor:
                tier = 1
            elif integer_value(entry.get('minor')) == minor:
                tier = 2
            else:
                continue
            tiers[tier] = entry.get('attributes')
        merged = {}
        for attributes in tiers:
            merged.update(attributes if isinstance(attributes, dict) else {})
        return merged


    def knows(self, region):
        """Whether an entry names the region's UUID and, when it has a major, could match one of its beacons."""
        named = [entry for uuid, entry in self.entries if uuid and uuid == parse_uuid(region['uuid'])]
        if region['major'] is None:
            return bool(named)

        def fits(entry, key):
            value = entry.get(key, 0)
            return value is None or region[key] is None and 0 <= integer_value(value) < 65536 or \
                integer_value(value) == region[key]
        return any(entry.get('major', 0) is None or fits(entry, 'major') and fits(entry, 'minor') for entry in named)


# Beacons and the election ---------------------------------------------------------------------------------------

@dataclass(eq=False)
class Beacon:
    """One beacon as one ranging reported it.  Later rangings make new objects; this one never changes again."""
    identity: tuple                     # UUID, major, minor
    rssi: float
    accuracy: float
    attributes: dict
    last_detected: int = 0
    samples: list = field(default_factory=list)
    average: float = 0.0

    @property
    def map_id(self):
        """The map the beacon stands on; None without a text for it."""
        value = self.attributes.get('map_id')
        return value if isinstance(value, str) else None

    @property
    def distance(self):
        """Metres from the averaged signal and the power at one metre, or -1."""
        power = self.attributes.get('measured_power')
        return path_loss_distance(self.average, integer_value(power)) if is_number(power) else -1.0

    def take_over(self, previous, now):
        self.samples = list(previous.samples) if previous else []
        self.last_detected = now
        if self.rssi < 0:
            self.samples.append((now, self.rssi))
        self.samples = [(date, rssi) for date, rssi in self.samples if now - date <= SAMPLE_WINDOW]
        self.average = sum(rssi for _, rssi in self.samples) / len(self.samples) if self.samples else 0.0


def path_loss_distance(rssi, power):
    if rssi == 0.0:
        return -1.0
    ratio = divide(rssi, float(power))
    try:
        return ratio ** 10.0 if ratio < 1.0 else 2.922026 * ratio ** 6.672908 - 1.767203
    except OverflowError:
        return math.inf


@dataclass
class Fix:
    latitude: float
    longitude: float
    accuracy: float
    timestamp: int

    def age(self, now):
        """Whole seconds, fractions dropped, whichever side of now the fix lies on."""
        return abs(self.timestamp - now) // SECOND


class Tracker:
    def __init__(self, use_own_distance=False):
        self.use_own_distance = use_own_distance
        self.tracked = {}
        self.winner = self.candidate = self.fix = None
        self.elected_at = self.winner_seen_at = self.candidate_chosen_at = None

    def merge(self, ranged, now):
        """Takes in one ranging.  Ties go to the beacon met first: those ranged now as delivered, then the others."""
        merged = {}
        for beacon in ranged:
            beacon.take_over(self.tracked.get(beacon.identity), now)
            merged[beacon.identity] = beacon
        for identity, beacon in self.tracked.items():
            if identity not in merged and now - beacon.last_detected < EXPIRY:
                merged[identity] = beacon
        self.tracked = merged
        self._walk(now)
        self._elect(now)
        self.expire(now)

    def _value(self, beacon):
        own = beacon.distance if self.use_own_distance else -1.0
        return own if own >= 0.0 else beacon.accuracy

    def _walk(self, now):
        for beacon in self.tracked.values():
            if beacon.map_id is None:
                continue
            value = self._value(beacon)
            if value > 0.0 and (self.candidate is None or self._value(self.candidate) > value):
                self.candidate, self.candidate_chosen_at = beacon, now
            if self.winner and beacon.identity == self.winner.identity:
                self.winner_seen_at = now

    def _elect(self, now):
        if self.candidate and (self.winner is None or now - self.elected_at > HOLD):
            self.winner, self.elected_at, self.winner_seen_at = self.candidate, now, now

    def expire(self, now):
        if self.winner_seen_at is not None and now - self.winner_seen_at > EXPIRY:
            self.winner = self.winner_seen_at = None
        if self.candidate_chosen_at is not None and now - self.candidate_chosen_at > EXPIRY:
            self.candidate = self.candidate_chosen_at = None

    def offer_fix(self, fix, now):
        if fix.age(now) < 15 and fix.accuracy > 0.0:
            self.fix = fix


# Maps -----------------------------------------------------------------------------------------------------------

class MapConfig:
    def __init__(self, document, scale=STANDARD_SCALE):
        document = document if isinstance(document, dict) else {}

        def double(key):
            return double_value(document.get(key))

        self.scale = scale
        self.latitude, self.longitude = double('latitude'), double('longitude')
        self.rotation = double('rotation_degrees')
        self.geolocation = bool_value(document.get('geolocation_enabled'))
        per_meter = double('pixels_per_meter')
        self.corner = tuple(divide(float_value(document.get('map_corner_offset_' + axis)) * STANDARD_SCALE, per_meter)
                            for axis in 'xy')
        self.size = tuple(whole(divide(whole(double('map_pixel_' + side)) * STANDARD_SCALE, per_meter))
                          for side in ('width', 'height'))

    def place(self, latitude, longitude):
        """Standard pixels of a coordinate, on the map or off it."""
        east = (longitude - self.longitude) * longitude_length(self.latitude)
        north = (latitude - self.latitude) * latitude_length(self.latitude)
        right, up = rotate(east, north, self.rotation)
        return right * self.scale + self.corner[0], -(up * self.scale) + self.corner[1]

    def holds(self, point):
        return all(0.0 <= value <= limit for value, limit in zip(point, self.size))


def whole(value):
    return math.trunc(value) if math.isfinite(value) else 0


def longitude_length(latitude):
    """Metres in a degree of longitude, by the reduced latitude on the WGS 84 ellipsoid."""
    return 6378137.0 * math.cos(math.atan(6356752.3142 / 6378137.0 * math.tan(latitude * RADIANS))) * RADIANS


def latitude_length(latitude):
    """Metres in a degree of latitude."""
    angle = latitude * RADIANS
    return 111132.954 - 559.822 * math.cos(2.0 * angle) + 1.175 * math.cos(4.0 * angle)


def rotate(x, y, degrees):
    """Turns the axes clockwise where y points north."""
    cos, sin = math.cos(degrees * RADIANS), math.sin(degrees * RADIANS)
    return x * cos + y * sin, -x * sin + y * cos


UNKNOWN_MAP = MapConfig({'pixels_per_meter': 1}, scale=0.0)         # every value that places a point is zero


def position(tracker, maps, now):
    """The members that a location line has besides its time; only a null map id when there is no position."""
    tracker.expire(now)
    beacon, fix = tracker.winner, tracker.fix
    if beacon:
        config = maps.get(beacon.map_id, UNKNOWN_MAP)
        point = config.place(double_value(beacon.attributes.get('latitude')),
                             double_value(beacon.attributes.get('longitude')))
        return described(beacon.map_id, point, beacon.accuracy * 2.0, config.scale)
    if fix and fix.age(now) < 180:
        for map_id, config in maps.items():
            point = config.place(fix.latitude, fix.longitude)
            if config.geolocation and config.holds(point):
                return described(map_id, point, fix.accuracy, config.scale)
    return {'map_id': None}


def described(map_id, point, radius, scale):
    x, y, radius_shown = (value if math.isfinite(value) else None for value in (*point, radius))
    pixels = whole(scale) * 50.0 if radius > UNCERTAINTY_LIMIT else radius * scale
    return {'map_id': map_id, 'x': x, 'y': y, 'uncertainty_m': radius_shown, 'uncertainty_px': whole(pixels)}


# Replay ---------------------------------------------------------------------------------------------------------

def read_json(path, default):
    return json.loads(path.read_text(encoding='utf-8')) if path.exists() else default


def parse_maps(path):
    """The maps of a document by id, in its order; none when there is no usable document."""
    try:
        document = json.loads(path.read_text(encoding='utf-8'))
    except (OSError, ValueError):
        return {}
    members = document.items() if isinstance(document, dict) else ()
    return {map_id: MapConfig(value) for map_id, value in members if isinstance(value, dict)}


def whole_seconds_of_date(path):
    return path.stat().st_mtime_ns // SECOND


class Maps:
    """The loaded maps.  A server's document replaces them when it is dated later than the last update ended, in whole
    seconds; before the first update, later than the built-in document."""

    def __init__(self, venue):
        self.built_in = Path(venue) / 'bundle' / 'map_config.json'
        self.on_server = self._file_on_server(Path(venue))
        self.loaded = parse_maps(self.built_in)
        self.last_update = 0

    @staticmethod
    def _file_on_server(venue):
        """Where the venue's server has the document; None when it has none, or nobody knows its address."""
        settings = venue / 'bundle' / 'Wayloom.plist'
        url = plistlib.loads(settings.read_bytes()).get('WLMapConfigURL', '') if settings.exists() else ''
        steps = [step for step in unquote(urlsplit(url).path).split('/') if step]
        path = venue.joinpath('server', *steps)
        known = len(steps) > 1 and steps[0] == 'maps' and not {'.', '..'} & set(steps)
        return path if known and path.is_file() else None

    def update(self, now):
        """Ends at once, as the server answers at once; images don't matter."""
        if self.on_server is None:
            return
        built_in_date = whole_seconds_of_date(self.built_in) if self.built_in.exists() else 0
        maps = self.loaded
        if (self.last_update or built_in_date) < whole_seconds_of_date(self.on_server):
            maps = parse_maps(self.on_server)
        if maps:                                        # an update without maps never ends
            self.loaded, self.last_update = maps, now // SECOND


def ranged_beacon(kit, record):
    identity = parse_uuid(record['uuid']), int(record['major']), int(record['minor'])
    return Beacon(identity, float(record['rssi']), float(record['accuracy']), kit.attributes_of(*identity))


def replay(venue, lines, use_own_distance=False):
    """Yields the location line of every ranging and fix.

    A ranging is merged only after its own line: the position published with it is that of the moment before.  One of a
    region that the kit doesn't know counts for nothing: the last position stands.  Maps are updated before the first
    line, and where a line says so while the network is up.
    """
    kit = Kit(read_json(Path(venue) / 'server' / 'kit.json', {}).get('kit') or {})
    maps = Maps(venue)
    tracker = Tracker(use_own_distance)
    network_is_up, begun = True, False
    published = {'map_id': None}
    for line in lines:
        record = json.loads(line, parse_float=Decimal)
        if 't' not in record:
            continue
        now = nanoseconds(record['t'])
        if not begun or (record['type'] == 'update_maps' and network_is_up):
            maps.update(now)
        begun = True
        if record['type'] == 'network':
            network_is_up = record['up']
        if record['type'] not in ('ranging', 'location'):
            continue
        if record['type'] == 'location':
            stamp = nanoseconds(record.get('timestamp', record['t']))
            tracker.offer_fix(Fix(*(float(record[key]) for key in ('latitude', 'longitude', 'accuracy')), stamp), now)
        counts = record['type'] == 'location' or kit.knows(record['region'])
        if counts:
            published = position(tracker, maps.loaded, now)
        yield {'t': float(record['t']), 'event': 'location', **published}
        if counts and record['type'] == 'ranging':
            tracker.merge([ranged_beacon(kit, beacon) for beacon in record['beacons']], now)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--use-own-distance', action='store_true')
    parser.add_argument('venue')
    parser.add_argument('recording')
    options = parser.parse_args()
    lines = sys.stdin if options.recording == '-' else open(options.recording, encoding='utf-8')
    with lines:
        for location in replay(options.venue, lines, options.use_own_distance):
            print(json.dumps(location))


if __name__ == '__main__':
    main()
