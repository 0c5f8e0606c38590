#!/usr/bin/env python3
"""Makes random venues with a recording each, one a seed: walks past beacons whose readings behave like real ones,
broken up by silences that end exactly on, just before and just after every limit, over documents that use all the
liberties a kit or a map document has.

    scenarios.py [--odd] SEED FOLDER            writes FOLDER/venue and FOLDER/recording.jsonl
"""
import argparse
import json
import math
import os
import plistlib
import random
import uuid
from dataclasses import dataclass
from pathlib import Path
from urllib.parse import quote

import model

MICRO = 1_000_000                                     # times are whole microseconds
LIMITS = (5.0, 15.0, 180.0)                           # seconds
GAPS = tuple(limit + step for limit in LIMITS for step in (-1e-6, 0.0, 1e-6)) + (0.5, 1, 2.5, 4, 6, 16, 60, 200)
URLS = {'GFKitURL': 'http://kit.example/api/kits/1', 'GFAPIToken': 'token',
        'GFAnalyticsURL': 'http://analytics.example/events'}


@dataclass
class Transmitter:
    """A beacon on a wall: identity, place in metres from the top left corner of a map, and signal at one metre."""
    identity: tuple
    map_id: str
    place: tuple
    power: int
    estimate: float = 0.0                             # the platform's smoothed distance, metres

    def record(self, rssi, accuracy, lower=False):
        text, major, minor = self.identity
        return {'uuid': text.lower() if lower else text, 'major': major, 'minor': minor, 'rssi': rssi,
                'accuracy': accuracy, 'proximity': 0 if accuracy < 0 else 1 + (accuracy > 0.5) + (accuracy > 3)}


class Scenario:
    def __init__(self, seed, odd=False):
        self.rng = random.Random(seed)
        self.odd = odd
        self.use_own_distance = self.chance(0.5)
        self.unmeasured = self.rng.choice((0.04, 0.04, 0.5))        # share of beacons without a power at one metre
        self.maps = self.make_maps()
        self.configs = {map_id: model.MapConfig(document) for map_id, document in self.maps.items()}
        self.map_path = self.rng.choice(('maps/map_config.json',) * 6 + ('maps/v2/Ü b.json', 'plans/map_config.json'))
        self.server_maps = self.make_server_maps()
        self.transmitters = self.make_transmitters()
        self.kit = {'id': 7, 'name': 'venue', 'ibeacons': self.make_entries()}
        if self.chance(0.2):
            self.kit |= {'status_url': 'http://status.example/api', 'status_token': 'token'}
        self.now = round(self.rng.choice((0, 1, 1.1, 1700000000, 1700000000.1, 1718000000.25)) * MICRO)
        self.dates = self.make_dates()
        self.lines = [{'type': 'header', 'version': 1}] if self.chance(0.7) else []
        self.record()

    def chance(self, share):
        return self.rng.random() < share

    # Documents

    def spelt(self, number, whole=False):
        """The number, now and then as a text or with a tail that its reader drops."""
        if self.chance(0.8):
            return number
        forms = [str(number), f'{number} units', f' {number}']
        if whole:
            tail = '.9' if isinstance(number, int) else ''
            forms += [f'{number}{tail}', json.loads(f'{number}{tail}')]
        if self.odd:
            forms += [f'+{number}', bool(number), None, [number], {'value': number}, '', 'none', f'{number}e0']
        return self.rng.choice(forms)

    def make_maps(self):
        base = self.rng.choice((0.0, 50.1, -33.9, 60.0, 78.2)), self.rng.choice((0.0, 8.6, -122.4, 179.9))
        maps = {}
        names = ('lobby', 'floor-1', 'floor-2', 'annex', 'Übergang', 'a b')
        for map_id in self.rng.sample(names, self.rng.randint(1, 4)):
            scale = self.rng.choice((5, 10, 20, 12.5, 37.7, 2))
            width, height = (round(self.rng.uniform(15, 60), self.rng.choice((0, 0, 1, 2))) * scale for _ in 'wh')
            corner = self.rng.choice(((0, 0), (width, height), (width, height), (width / 2, height / 3),
                                      (-scale, height + scale)))
            document = {
                'name': map_id, 'file_path': map_id + '.svg',
                'latitude': base[0] + self.rng.choice((0, self.rng.uniform(-2e-4, 2e-4))),
                'longitude': base[1] + self.rng.choice((0, self.rng.uniform(-2e-4, 2e-4))),
                'rotation_degrees': self.rng.choice((0, 90, -90, 180, 30, self.rng.uniform(-360, 360))),
                'pixels_per_meter': scale, 'map_pixel_width': width, 'map_pixel_height': height,
                'map_corner_offset_x': corner[0], 'map_corner_offset_y': corner[1],
                'overlay_pixel_offset_x': 0, 'overlay_pixel_offset_y': 0, 'hide_map': self.chance(0.1)}
            document = {key: self.spelt(value) if isinstance(value, (int, float)) and not isinstance(value, bool)
                        else value for key, value in document.items()}
            document['geolocation_enabled'] = self.rng.choice(
                (True, True, True, False, 1, 0, 'true', 'YES', '1', 'no', '0', ' 01', 'false')
                + (0.5, None) * self.odd)
            for key in tuple(document):
                if self.chance(0.02):
                    del document[key]
            maps[map_id] = document
        if self.odd and self.chance(0.3):
            maps['nothing'] = self.rng.choice((None, 'text', [], 5))
        return maps

    def make_server_maps(self):
        """The text of the server's document, or None: other geometry for some of the maps, new ones, fewer, none."""
        if self.chance(0.2):
            return None
        if self.chance(0.15):
            return self.rng.choice(('', '{}', '{"lobby": {}', '[]', '{"lobby": 7}', 'gone'))
        document = dict(self.rng.sample(list(self.maps.items()), self.rng.randint(1, len(self.maps))))
        for map_id, value in document.items():
            if isinstance(value, dict) and self.chance(0.7):
                document[map_id] = value | {'rotation_degrees': self.rng.uniform(-180, 180),
                                            'map_corner_offset_x': self.rng.uniform(0, 300)}
        if self.chance(0.3):
            document['attic'] = next(iter(self.maps.values()))
        return json.dumps(document)

    def make_dates(self):
        """Of the built-in and of the server's document, nanoseconds: close to one another, and around the recording
        or long before or after it."""
        first = self.now * 1000
        base = max(model.SECOND, self.rng.choice((first, first + 60 * model.SECOND, 1600000000 * model.SECOND,
                                                  1790000000 * model.SECOND))) // model.SECOND * model.SECOND
        steps = (0, 1, 400000000, 999999999, model.SECOND, 90 * model.SECOND)
        return base + self.rng.choice(steps), base + self.rng.choice(steps + steps[-1:] * 4)

    def make_transmitters(self):
        found = {}
        uuids = [str(uuid.UUID(int=self.rng.getrandbits(128))).upper() for _ in range(self.rng.randint(1, 3))]
        count = self.rng.choice((1, 2, 4, 8, 12, 25, 40))
        for map_id, config in self.configs.items():
            for _ in range(math.ceil(count / len(self.configs))):
                identity = (self.rng.choice(uuids), self.rng.choice((0, 1, 2, 65535)), self.rng.randint(0, 9))
                place = tuple(self.rng.uniform(0, max(side, 100) / model.STANDARD_SCALE) for side in config.size)
                found.setdefault(identity, Transmitter(identity, map_id, place, self.rng.choice((-59, -65, -48))))
        return list(found.values())

    def attributes(self, transmitter):
        latitude, longitude = locate(self.configs[transmitter.map_id], transmitter.place)
        known = {'measured_power': self.spelt(transmitter.power, whole=True), 'map_id': transmitter.map_id,
                 'latitude': self.spelt(latitude), 'longitude': self.spelt(longitude), 'note': 'wall'}
        if self.chance(0.04):
            known['measured_power'] = self.rng.choice(
                (0, 12, '0', 'strong', -1, '-59.9', -59.9, '-6e1') + (True, None) * self.odd)
        if self.chance(0.05):
            known['map_id'] = self.rng.choice(('attic', '') + ((None, 5, []) if self.odd else ()))
        for key in tuple(known):
            if self.chance(self.unmeasured if key == 'measured_power' else 0.04):
                del known[key]
        return known

    def make_entries(self):
        """Exact entries for most transmitters, shared ones for some UUIDs and majors, which supply or override part
        of the attributes, entries that match the same beacons twice, and some that match nothing."""
        entries = []
        for transmitter in self.transmitters:
            text, major, minor = transmitter.identity
            tiers = [(major, minor)] if self.chance(0.9) else []
            tiers += [(major, None)] * self.chance(0.25) + [(major, minor)] * self.chance(0.1)
            tiers += [(None, self.rng.choice((None, minor + 1)))] * self.chance(0.15)
            supplied = self.attributes(transmitter)
            for entry_major, entry_minor in tiers:
                other = self.attributes(self.rng.choice(self.transmitters))
                kept = {key: value for key, value in supplied.items() if self.chance(0.9)}
                strange = {key: value for key, value in other.items() if self.chance(0.15)}
                attributes = self.rng.choice((kept, supplied, kept | strange))
                entries.append(self.entry(text, entry_major, entry_minor, attributes))
        for entry in self.rng.sample(entries, len(entries) // 8):
            bad = {'uuid': self.rng.choice(('', 'lobby', entry['uuid'][:-1], '0' + entry['uuid'], None)
                                           + (entry['uuid'].replace('-', ''),) * self.odd)}
            entries.append(entry | {'attributes': {'map_id': 'nowhere'}} | bad)
        if self.chance(0.5):
            self.rng.shuffle(entries)
        return entries

    def entry(self, text, major, minor, attributes):
        entry = {'identifier': f'beacon-{self.rng.randrange(1000)}', 'name': 'door',
                 'uuid': text.lower() if self.chance(0.2) else text, 'attributes': attributes}
        for key, value in (('major', major), ('minor', minor)):
            if value != 0 or self.chance(0.5):                      # one left out reads as 0
                entry[key] = None if value is None else self.spelt(value, whole=True)
        if self.chance(0.05):
            entry['attributes'] = None
        if self.chance(0.1):
            entry[self.rng.choice(('identifier', 'name'))] = None
        if self.chance(0.1):
            del entry[self.rng.choice(('identifier', 'name', 'attributes'))]
        return entry

    # Recording

    def record(self):
        phases = (self.walk, self.walk, self.standing, self.gap, self.silence, self.fixes, self.aging_fix, self.noise,
                  self.update_maps)
        self.walk()
        for _ in range(self.rng.randint(3, 9)):
            self.rng.choice(phases)()

    def line(self, kind, **members):
        self.lines.append({'t': self.now / MICRO, 'type': kind, **members})

    def wait(self, seconds):
        self.now += round(seconds * MICRO)

    def steps(self, count):
        """A beat a ranging: every second as a rule, or one of the uneven ways in which rangings do arrive."""
        beat = self.rng.choice((lambda: 1, lambda: 1, lambda: 1, lambda: 0.5, lambda: self.rng.choice(GAPS[:3]) / 5,
                                lambda: self.rng.uniform(0.5, 2), lambda: self.rng.choice((1, 1, 1, 4, 5, 0))))
        for _ in range(count):
            yield
            self.wait(beat())

    def walk(self):
        """From beacon to beacon at a walking pace."""
        stops = [self.rng.choice(self.transmitters) for _ in range(self.rng.randint(2, 4))]
        here, target = stops[0].place, stops.pop()
        digits = self.rng.choice((0, 1, 2, 6))
        for _ in self.steps(self.rng.randint(10, 40)):
            here = tuple(a + max(-1.2, min(1.2, b - a)) for a, b in zip(here, target.place))
            if math.dist(here, target.place) < 1 and stops:
                target = stops.pop()
            self.hear(target.map_id, here, digits)

    def standing(self):
        """Between two beacons that report the same values, to and fro."""
        pair = [self.rng.choice(self.transmitters) for _ in range(2)]
        change, palette = self.rng.choice((0, 0, 1, -5)), self.rng.choice(((1.0, 1.5, 2.0, 3.0), (1.1,)))
        for _ in self.steps(self.rng.randint(5, 20)):
            values = self.rng.choices(palette, k=2)
            self.range([self.reading(beacon, beacon.power + change, value)
                        for beacon, value in zip(pair, values) if self.chance(0.9)])

    def gap(self):
        self.wait(self.rng.choice(GAPS))

    def silence(self):
        for _ in self.steps(self.rng.randint(1, 12)):
            self.range([])

    def fixes(self):
        for _ in self.steps(self.rng.randint(1, 5)):
            self.fix()

    def aging_fix(self):
        """Nothing but one fix, looked at around its last moment."""
        stamp = self.fix(self.rng.choice((0, 0.25, 14.5)))
        for age in sorted(self.rng.choices(GAPS[6:9] + (30, 179), k=4)):
            self.now = max(self.now, stamp + round(age * MICRO))
            self.range([])

    def noise(self):
        """Lines that move no position."""
        self.line('weather', sky='grey')
        self.line('authorization', status=3)
        self.line('truth', map_id='lobby', x=1, y=2)
        self.line('event', event_type='door', details={'n': 1})
        region = self.region(self.rng.choice(self.transmitters).identity[0])
        self.line(self.rng.choice(('enter', 'exit')), region=region)

    def update_maps(self):
        is_up = self.chance(0.7)
        self.line('network', up=is_up)
        self.line('update_maps')
        if self.chance(0.5):
            self.line('network', up=True)

    def fix(self, age=None):
        if age is None:
            age = self.rng.choice((0, 0.4, 3, 14, 14.999999, 15, 15.000001, -14.999999, -15, 200))
        stamp = self.now - round(age * MICRO)
        config = self.rng.choice(list(self.configs.values()))
        inside = tuple(self.rng.uniform(-0.1, 1.1) * side / model.STANDARD_SCALE for side in config.size)
        edge = (config.size[0] + self.rng.choice((-1.5, -0.5, 0.5, 1.5))) / model.STANDARD_SCALE, inside[1]
        place = self.rng.choice(((config.latitude, config.longitude), locate(config, edge), locate(config, inside)))
        self.line('location', latitude=place[0], longitude=place[1], timestamp=stamp / MICRO,
                  accuracy=self.rng.choice((5, 12.5, 25, 50, 50.000001, 65, 0.09, 0, -1)))
        if self.odd and self.chance(0.2):
            del self.lines[-1]['timestamp']
        return stamp

    def hear(self, map_id, here, digits):
        """What a device at a place hears: louder and surer what is near, little through a floor."""
        heard = []
        for beacon in self.transmitters:
            metres = max(0.1, math.dist(here, beacon.place) + 12 * (beacon.map_id != map_id))
            if self.chance(min(1.0, 25 / metres ** 2)):
                rssi = round(beacon.power - 20 * math.log10(metres) + self.rng.gauss(0, 4))
                measured = metres * self.rng.lognormvariate(0, 0.3)
                beacon.estimate = measured if beacon.estimate == 0 else 0.6 * beacon.estimate + 0.4 * measured
                heard.append(self.reading(beacon, rssi, round(beacon.estimate, digits)))
        self.rng.shuffle(heard)
        if heard and self.chance(0.05):                             # the same beacon twice in one ranging
            heard.append(dict(self.rng.choice(heard), rssi=-50, accuracy=0.9))
        if self.chance(0.1):
            stranger = Transmitter((self.rng.choice(self.transmitters).identity[0], 9, 9), map_id, here, -59)
            heard.insert(0, self.reading(stranger, -40, 0.2))
        self.range(heard)
        if self.chance(0.1):
            self.fix()

    def reading(self, beacon, rssi, accuracy):
        if self.chance(0.05):
            rssi, accuracy = self.rng.choice(((0, -1), (0, accuracy), (rssi, -1), (rssi, 0), (5, 0.5), (127, -1)))
        return beacon.record(rssi, accuracy, lower=self.chance(0.1))

    def range(self, heard):
        """One ranging for each UUID, now and then only for those with something to tell."""
        for text in sorted({transmitter.identity[0] for transmitter in self.transmitters}):
            beacons = [record for record in heard if record['uuid'].upper() == text]
            if beacons or not heard or self.chance(0.5):
                self.line('ranging', region=self.region(text), beacons=beacons)
                if self.chance(0.05):                               # and again for a narrower region
                    major = self.rng.choice((0, 1))
                    self.line('ranging', region=self.region(text) | {'identifier': 'narrow', 'major': major},
                              beacons=[record for record in beacons if record['major'] == major])

    def region(self, text):
        if self.odd and self.chance(0.1):
            text = 'FFFFFFFF-0000-4000-8000-000000000000'
        return {'identifier': 'region-' + text[:4], 'uuid': text, 'major': None, 'minor': None}

    # Files

    def write(self, folder):
        bundle, server = Path(folder) / 'venue' / 'bundle', Path(folder) / 'venue' / 'server'
        for directory in (bundle, server):
            directory.mkdir(parents=True)
        (bundle / 'map_config.json').write_text(json.dumps(self.maps, indent=1), encoding='utf-8')
        os.utime(bundle / 'map_config.json', ns=(self.dates[0],) * 2)
        if self.server_maps is not None:
            path = server / self.map_path
            path.parent.mkdir(parents=True)
            path.write_text(self.server_maps, encoding='utf-8')
            os.utime(path, ns=(self.dates[1],) * 2)
        (server / 'kit.json').write_text(json.dumps({'kit': self.kit}, indent=1), encoding='utf-8')
        for name, content in (('Geofold', URLS), ('Info', {'NSLocationAlwaysUsageDescription': 'Shows where you are.'}),
                              ('Wayloom', URLS | {'WLMapConfigURL': 'http://maps.example/' + quote(self.map_path)})):
            (bundle / (name + '.plist')).write_bytes(plistlib.dumps(content))
        with open(Path(folder) / 'recording.jsonl', 'w', encoding='utf-8') as recording:
            recording.writelines(json.dumps(line) + '\n' for line in self.lines)


def locate(config, place):
    """The coordinate of a place given in metres from a map's top left corner."""
    right, down = (metres - offset / model.STANDARD_SCALE if math.isfinite(offset) else metres
                   for metres, offset in zip(place, config.corner))
    east, north = model.rotate(right, -down, -config.rotation)
    return (config.latitude + north / model.latitude_length(config.latitude),
            config.longitude + east / model.longitude_length(config.latitude))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--odd', action='store_true', help='with documents for which more than one reading is fair')
    parser.add_argument('seed', type=int)
    parser.add_argument('folder')
    options = parser.parse_args()
    scenario = Scenario(options.seed, options.odd)
    scenario.write(options.folder)
    print('--use-own-distance' if scenario.use_own_distance else '')


if __name__ == '__main__':
    main()
