"""Cases worked out by hand, so that the model is not only compared with what it is meant to check."""
import json
import math
import os
import plistlib
import tempfile
import unittest
from pathlib import Path

import model

UUID = '5A0E1C5E-0000-4000-8000-00000000ABCD'
METRE = 1 / 110574.307                                  # degrees of latitude at the equator


def entry(major, minor, **attributes):
    return {'uuid': UUID, 'major': major, 'minor': minor, 'attributes': attributes}


def placed(minor, map_id='lobby', **attributes):
    """A beacon as many metres north of the map's reference point as its minor number."""
    return entry(1, minor, map_id=map_id, latitude=minor * METRE, longitude=0, **attributes)


def heard(minor, accuracy, rssi=-60):
    return {'uuid': UUID.lower(), 'major': 1, 'minor': minor, 'rssi': rssi, 'accuracy': accuracy}


class Walk:
    """A recording over one unrotated map whose reference point is 50 pixels right of and 500 below its corner."""

    def __init__(self, *entries, own_distance=False, **map_members):
        lobby = {'latitude': 0, 'longitude': 0, 'pixels_per_meter': 20, 'map_corner_offset_x': 200,
                 'map_corner_offset_y': '2000 px', 'map_pixel_width': 400, 'map_pixel_height': 4000,
                 'geolocation_enabled': 'YES'}
        self.kit = {'kit': {'ibeacons': entries}}
        self.maps = {'lobby': lobby | map_members, 'annex': lobby}
        self.own_distance = own_distance
        self.lines = []

    def ranging(self, t, *beacons):
        region = {'identifier': 'hall', 'uuid': UUID, 'major': None, 'minor': None}
        self.lines.append(json.dumps({'t': t, 'type': 'ranging', 'region': region, 'beacons': beacons}))
        return self

    def fix(self, t, timestamp, accuracy=12.5, longitude=0.0):
        self.lines.append(json.dumps({'t': t, 'type': 'location', 'latitude': 0.0, 'longitude': longitude,
                                      'accuracy': accuracy, 'timestamp': timestamp}))
        return self

    def locations(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, content in (('bundle/map_config.json', self.maps), ('server/kit.json', self.kit)):
                (Path(folder) / name).parent.mkdir()
                (Path(folder) / name).write_text(json.dumps(content))
            return list(model.replay(folder, self.lines, self.own_distance))

    def metres(self):
        """Metres north of the reference point, line by line."""
        return [None if line['map_id'] is None else round((500 - line['y']) / 5, 6) for line in self.locations()]


class ElectionTest(unittest.TestCase):
    def test_winner_is_held_for_more_than_five_seconds_and_published_one_line_late(self):
        walk = Walk(placed(3), placed(7)).ranging(0, heard(3, 2.0))
        for t in (2, 5, 5.000001, 6):
            walk.ranging(t, heard(3, 2.0), heard(7, 1.0))
        self.assertEqual(walk.metres(), [None, 3, 3, 3, 7])

    def test_candidate_keeps_its_better_value_until_it_expires(self):
        walk = Walk(placed(3), placed(7)).ranging(0, heard(3, 1.0))
        for t in (1, 2, 3, 4, 5, 5.5, 6, 7):
            walk.ranging(t, heard(3, 3.0), heard(7, 2.0))
        self.assertEqual(walk.metres(), [None] + [3] * 6 + [7, 7])   # publishing at 5.5 lets the old candidate expire
        self.assertEqual(walk.locations()[-1]['uncertainty_m'], 4.0)

    def test_ties_and_unknown_distances(self):
        self.assertEqual(Walk(placed(3), placed(7)).ranging(0, heard(7, 1.0), heard(3, 1.0)).ranging(1).metres()[1], 7)
        for accuracy in (0, -1):
            self.assertEqual(Walk(placed(3)).ranging(0, heard(3, accuracy)).ranging(1).metres()[1], None)
        self.assertEqual(Walk(entry(1, 3, latitude=1)).ranging(0, heard(3, 1.0)).ranging(1).metres()[1], None)

    def test_unseen_winner_is_refreshed_while_tracked_then_expires(self):
        walk = Walk(placed(3)).ranging(0, heard(3, 1.0)).ranging(4.999999).ranging(9.999999).ranging(10)
        self.assertEqual(walk.metres(), [None, 3, 3, None])
        walk = Walk(placed(3)).ranging(0, heard(3, 1.0)).ranging(5).ranging(5.000001)
        self.assertEqual(walk.metres(), [None, 3, None])

    def test_own_distance_decides_but_not_the_uncertainty(self):
        walk = Walk(placed(3, measured_power='-59.9'), placed(7), own_distance=True)
        walk.ranging(0, heard(3, 30.0, rssi=-70), heard(7, 7.5)).ranging(1)
        self.assertEqual(walk.locations()[1] | {'x': 0, 'y': 0},
                         {'t': 1.0, 'event': 'location', 'map_id': 'lobby', 'x': 0, 'y': 0,
                          'uncertainty_m': 60.0, 'uncertainty_px': 250})
        self.assertEqual(walk.metres()[1], 3)
        walk = Walk(placed(3, measured_power=0), placed(7), own_distance=True)
        self.assertEqual(walk.ranging(0, heard(3, 0.1), heard(7, 90.0)).ranging(1).metres()[1], 7)

    def test_path_loss(self):
        self.assertAlmostEqual(model.path_loss_distance(-70.0, -59), 7.376, places=3)
        self.assertAlmostEqual(model.path_loss_distance(-59.0, -59), 1.154823, places=9)
        self.assertAlmostEqual(model.path_loss_distance(-59.0, -60), (59 / 60) ** 10, places=9)
        self.assertEqual(model.path_loss_distance(0.0, -59), -1.0)
        self.assertEqual(model.path_loss_distance(-70.0, 0), math.inf)

    def test_samples_travel_from_object_to_object_and_leave_after_five_seconds(self):
        tracker = model.Tracker()
        for second, rssi in ((0, -60), (4, -70), (5, 0), (6, 0)):
            beacon = model.Beacon((UUID, 1, 3), rssi, 1.0, {})
            tracker.merge([beacon], second * model.SECOND)
            self.assertEqual(beacon.average, {0: -60, 4: -65, 5: -65, 6: -70}[second])


class KitTest(unittest.TestCase):
    def attributes(self, *entries, major=1, minor=3):
        return model.Kit({'ibeacons': entries}).attributes_of(UUID, major, minor)

    def test_specific_entries_overwrite_shared_ones_wherever_they_stand(self):
        entries = entry(1, 3, a=3), entry(1, None, a=2, b=2), entry(None, 99, a=1, b=1, c=1), entry(2, 3, d=1)
        self.assertEqual(self.attributes(*entries), {'a': 3, 'b': 2, 'c': 1})
        self.assertEqual(self.attributes(*entries, minor=4), {'a': 2, 'b': 2, 'c': 1})
        self.assertEqual(self.attributes(*entries, major=5), {'a': 1, 'b': 1, 'c': 1})

    def test_last_of_equals_numbers_in_texts_and_strange_entries(self):
        self.assertEqual(self.attributes(entry(1, 3, a=1), entry('1', 3.9, b=2)), {'b': 2})
        self.assertEqual(self.attributes({'uuid': UUID, 'major': 0, 'attributes': {'a': 1}}, major=0, minor=0), {'a': 1})
        self.assertEqual(self.attributes(entry(1, 3, a=1) | {'uuid': 'door'}, entry(1, 3) | {'attributes': None}), {})


class PositionTest(unittest.TestCase):
    def test_lengths_and_rotation(self):
        self.assertAlmostEqual(model.longitude_length(0), 111319.49, places=2)
        self.assertAlmostEqual(model.latitude_length(0), 110574.307, places=6)
        self.assertAlmostEqual(model.latitude_length(60), 111412.2775, places=6)
        for value, expected in zip(model.rotate(1, 0, 90), (0, -1)):
            self.assertAlmostEqual(value, expected)

    def test_pixels_and_uncertainty(self):
        line = Walk(placed(10)).ranging(0, heard(10, 1.25)).ranging(1).locations()[1]
        self.assertAlmostEqual(line['x'], 50)
        self.assertAlmostEqual(line['y'], 450)
        self.assertEqual((line['uncertainty_m'], line['uncertainty_px']), (2.5, 12))
        line = Walk(placed(10, map_id='attic')).ranging(0, heard(10, 1.25)).ranging(1).locations()[1]
        self.assertEqual((line['map_id'], line['x'], line['y'], line['uncertainty_px']), ('attic', 0, 0, 0))

    def test_map_numbers(self):
        config = model.MapConfig({'pixels_per_meter': '10', 'map_pixel_width': 1001.9, 'map_corner_offset_x': 0.1})
        self.assertEqual(config.size[0], 500)
        self.assertEqual(config.corner[0], 0.10000000149011612 * 5 / 10)
        self.assertEqual([model.bool_value(value) for value in ('true', ' -01', '0', 'no', 2, None)],
                         [True, True, False, False, True, False])

    def test_fixes(self):
        self.assertEqual(Walk().fix(100, 85.000001).metres(), [0])
        self.assertEqual(Walk().fix(100, 85).fix(100, 115).fix(100, 100, accuracy=0).metres(), [None] * 3)
        self.assertEqual(Walk(placed(3)).fix(100, 100).ranging(279.9).ranging(280).metres(), [0, 0, None])
        edge = Walk(map_pixel_width=200).fix(1, 1)
        self.assertEqual(edge.locations()[0]['map_id'], 'lobby')
        self.assertEqual(Walk(map_pixel_width=199).fix(1, 1).locations()[0]['map_id'], 'annex')
        self.assertEqual(Walk(geolocation_enabled=False).fix(1, 1).locations()[0]['map_id'], 'annex')
        self.assertEqual(Walk().fix(1, 1, longitude=1.0).locations(), [{'t': 1.0, 'event': 'location', 'map_id': None}])


class MapUpdateTest(unittest.TestCase):
    """The server's map is the built-in one moved by 100 standard pixels."""

    def offsets(self, *lines, built_in=1000.0, server=1000.0, content=None, path='/maps/map%20config.json'):
        offset = 'map_corner_offset_x'
        moved = {'lobby': {'pixels_per_meter': 5, offset: 100, 'map_pixel_width': 500, 'map_pixel_height': 500,
                           'geolocation_enabled': True}}
        files = {'bundle/map_config.json': (json.dumps({'lobby': moved['lobby'] | {offset: 0}}), built_in),
                 'server/maps/map config.json': (json.dumps(moved) if content is None else content, server)}
        with tempfile.TemporaryDirectory() as folder:
            for name, (text, date) in files.items():
                file = Path(folder) / name
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text)
                os.utime(file, (date, date))
            settings = plistlib.dumps({'WLMapConfigURL': 'http://maps.example' + path})
            (Path(folder) / 'bundle' / 'Wayloom.plist').write_bytes(settings)
            fix = {'type': 'location', 'latitude': 0, 'longitude': 0, 'accuracy': 1}
            texts = [json.dumps({'t': t} | (fix if members is None else members)) for t, members in lines]
            return [round(line['x']) for line in model.replay(folder, texts)]

    def test_newer_document_counts_from_the_start(self):
        first = (2000, None)
        self.assertEqual(self.offsets(first), [0])
        self.assertEqual(self.offsets(first, server=1001.0), [100])
        self.assertEqual(self.offsets(first, built_in=1000.9, server=1000.95), [0])
        self.assertEqual(self.offsets(first, built_in=1000.9, server=1001.0), [100])
        self.assertEqual(self.offsets(first, server=1001.0, path='/plans/map%20config.json'), [0])
        for useless in ('', '{', '{}', '[{}]', '{"lobby": 1}'):
            self.assertEqual(self.offsets(first, server=1001.0, content=useless), [0], useless)

    def test_later_updates_compare_with_the_last(self):
        update, down = {'type': 'update_maps'}, {'type': 'network', 'up': False}
        dates = {'built_in': 3000.0, 'server': 2500.0}                # not newer than the built-in one
        self.assertEqual(self.offsets((2400, None), (2400, update), (2400, None), **dates), [0, 100])
        self.assertEqual(self.offsets((2500, None), (2501, update), (2501, None), **dates), [0, 0])
        self.assertEqual(self.offsets((2400, down), (2400, update), (2400, None), **dates), [0])
        self.assertEqual(self.offsets((0.9, None), (1, update), (1, None), **dates), [0, 0])    # 0 is never


if __name__ == '__main__':
    unittest.main()
