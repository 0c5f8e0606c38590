#!/usr/bin/env python3
"""Replays a scripted day, and reads both files with another SQLite client: schema, values, types, times, and what was
uploaded, all worked out by hand."""
import json
import os
import pathlib
import sqlite3
import subprocess
import tempfile
import unittest

import venue
from venue import UUID

T = 1448092800  # 2015-11-21 08:00:00 UTC
NOBODY = 65534
DEVICE = '5761796C-6F6F-4D00-8000-000000000001'


def region(identifier, major=None, minor=None):
    return {'identifier': identifier, 'uuid': UUID, 'major': major, 'minor': minor}


def ranging(t, *minors):
    beacons = [{'uuid': UUID, 'major': 1, 'minor': minor, 'rssi': -60, 'accuracy': 2.0} for minor in minors]
    return {'t': t, 'type': 'ranging', 'region': region('lobby', 1), 'beacons': beacons}


DAY = [
    {'t': T + 0.25, 'type': 'network', 'up': True},
    {'t': T + 1, 'type': 'enter', 'region': {'identifier': 'yard'}},
    {'t': T + 2, 'type': 'exit', 'region': {'identifier': 'yard'}},
    ranging(T + 2.5, 1),  # before any enter: only the status store hears of it
    {'t': T + 3, 'type': 'enter', 'region': region('lobby', 1)},
    {'t': T + 4, 'type': 'enter', 'region': region('lobby', 1)},
    ranging(T + 5, 1, 2),
    ranging(T + 6.5, 1),
    {'t': T + 7, 'type': 'event', 'event_type': 'door', 'details': {'n': 1, 'who': 'staff'}},
    {'t': T + 8, 'type': 'enter', 'region': region('corner', None, 7)},
    {'t': T + 9, 'type': 'exit', 'region': region('corner', None, 7)},
    {'t': T + 10, 'type': 'exit', 'region': region('lobby', 1)},
    {'t': T + 40, 'type': 'network', 'up': False},
    {'t': T + 45, 'type': 'event', 'event_type': 'door', 'details': {'n': 2}},
    {'t': T + 62, 'type': 'network', 'up': True},
    ranging(T + 28800.125, 1, 3),  # the older of the two sessions is still open
    {'t': T + 28900, 'type': 'enter', 'region': region('lobby', 1)},
    {'t': T + 28950.75, 'type': 'network', 'up': True},
]

BEACON_SESSIONS = [  # id, first, last, major, minor, uuid, uuid, uploaded, session
    (1, f'{T + 5}.0', f'{T + 6}.5', 1, 1, UUID, None, None, 2),
    (2, f'{T + 5}.0', None, 1, 2, UUID, None, None, 2),
    (3, f'{T + 28800}.125', None, 1, 1, UUID, None, None, 1),
    (4, f'{T + 28800}.125', None, 1, 3, UUID, None, None, 1),
]
REGION_SESSIONS = [  # id, entered, exited, major, minor, region uuid, uuid, uploaded
    (1, f'{T + 3}.0', None, 1, None, UUID, None, None),
    (2, f'{T + 4}.0', f'{T + 10}.0', 1, None, UUID, None, f'{T + 30}.25'),
    (3, f'{T + 8}.0', None, None, 7, UUID, None, None),  # a minor without a major is never found again
    (4, f'{T + 28900}.0', None, 1, None, UUID, None, None),
]
STATUS = [  # id, first, last, major, minor, beacon uuid, uuid, uploaded: the first two only once, as datetime() has it
    (1, f'{T + 2}.5', f'{T + 28800}.125', 1, 1, UUID, None, f'{T + 90}.25'),
    (2, f'{T + 5}.0', f'{T + 5}.0', 1, 2, UUID, None, f'{T + 90}.25'),
    (3, f'{T + 28800}.125', f'{T + 28800}.125', 1, 3, UUID, None, f'{T + 28830}.25'),
]


def schema(path):
    return {name: sql for name, sql in
            venue.rows(path, "select name, sql from sqlite_master where type = 'table' and name not like 'sqlite_%'")}


def table(name, columns):
    return {name: f'CREATE TABLE {name} ({columns})'}


def seen(minor, text):
    return {'uuid': UUID, 'major': 1, 'minor': minor, 'last_seen': text}


class DayTest(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        root = pathlib.Path(cls.folder.name)
        venue.write_bundle(root / 'bundle', 'http://kit.example/kits/42', 'http://analytics.example/in')
        (root / 'server').mkdir()
        (root / 'server/kit.json').write_text(json.dumps(venue.kit('http://status.example/seen')))
        (root / 'day.jsonl').write_text(''.join(json.dumps(line) + '\n' for line in DAY))
        cls.root = root
        cls.documents = root / 'documents'
        cls.output = cls.replay(cls.documents)
        cls.posts = [line for line in map(json.loads, cls.output.splitlines())
                     if line['event'] == 'request' and line['method'] == 'POST']
        cls.analytics = cls.documents / 'GeofoldAnalytics.sqlite'
        cls.status = cls.documents / 'Pulsekeep.sqlite'

    @classmethod
    def replay(cls, documents):
        return subprocess.run([OPTIONS.command, 'replay', '--venue', cls.root, '--documents', documents, '--events',
                               'all', cls.root / 'day.jsonl'], check=True, stdout=subprocess.PIPE).stdout.decode()

    def test_schema(self):
        self.assertEqual(schema(self.analytics), {
            **table('schema_version', 'version integer'),
            **table('region_sessions', 'id integer primary key autoincrement,entered_at text,exited_at text,'
                    'region_major integer,region_minor integer,region_uuid text,uuid text,uploaded_at text'),
            **table('beacon_sessions', 'id integer primary key autoincrement,first_detected_at text,'
                    'last_detected_at text,beacon_major integer,beacon_minor integer,beacon_uuid text,uuid text,'
                    'uploaded_at text,region_session_id integer'),
            **table('events', 'id integer primary key autoincrement,event_type text,event_details blob,'
                    'uploaded_at text,triggered_at text,uuid text'),
            **table('geo_region_sessions', 'id integer primary key autoincrement,entered_at text,exited_at text,'
                    'latitude real,longitude real,radius real,uuid text,region_id text,uploaded_at text')})
        self.assertEqual(schema(self.status), {
            **table('schema_version', 'version integer'),
            **table('beacon_sessions', 'id integer primary key autoincrement,first_detected_at text,'
                    'last_detected_at text,beacon_major integer,beacon_minor integer,beacon_uuid text,uuid text,'
                    'uploaded_at text')})
        for path in (self.analytics, self.status):
            self.assertEqual(venue.rows(path, 'select * from schema_version'), [(1,)])
            self.assertEqual(venue.rows(path, 'pragma journal_mode'), [('wal',)])

    def test_rows(self):
        """Python's values are of SQLite's own types: a text is a str, an integer an int, a real a float."""
        self.assertEqual(venue.rows(self.analytics, 'select * from region_sessions'), REGION_SESSIONS)
        self.assertEqual(venue.rows(self.analytics, 'select * from beacon_sessions'), BEACON_SESSIONS)
        self.assertEqual(venue.rows(self.analytics, 'select * from geo_region_sessions'), [
            (1, f'{T + 1}.0', f'{T + 2}.0', 52.099998474121094, 13.199999809265137, 20.100000381469727, None, 'yard',
             f'{T + 30}.25')])
        events = venue.rows(self.analytics, 'select * from events')
        self.assertEqual([(row[:2], json.loads(row[2]), row[3:]) for row in events], [
            ((1, 'door'), {'n': 1, 'who': 'staff'}, (f'{T + 30}.25', f'{T + 7}.0', None)),
            ((2, 'door'), {'n': 2}, (f'{T + 90}.25', f'{T + 45}.0', None))])
        self.assertEqual({type(row[2]) for row in events}, {bytes})
        self.assertEqual(venue.rows(self.status, 'select * from beacon_sessions'), STATUS)

    def test_uploads(self):
        session = {'id': 2, 'region_uuid': UUID, 'region_major': 1, 'region_minor': None,
                   'entered_at': '2015-11-21T08:00:04Z', 'exited_at': '2015-11-21T08:00:10Z', 'beacon_sessions': [
                       {'beacon_uuid': UUID, 'beacon_major': 1, 'beacon_minor': 1,
                        'first_detected_at': '2015-11-21T08:00:05Z', 'last_detected_at': '2015-11-21T08:00:06Z'},
                       {'beacon_uuid': UUID, 'beacon_major': 1, 'beacon_minor': 2,
                        'first_detected_at': '2015-11-21T08:00:05Z'}]}
        geo = {'id': 1, 'region_id': 'yard', 'latitude': 52.099998474121094, 'longitude': 13.199999809265137,
               'radius': 20.100000381469727, 'entered_at': '2015-11-21T08:00:01Z', 'exited_at': '2015-11-21T08:00:02Z'}

        def analytics(t, events, sessions, geos):
            kit = {'kit_id': '42', 'region_sessions': sessions, 'geo_region_sessions': geos}
            return (t, 'http://analytics.example/in', {'door': events, 'geofold_kit_events': [kit], 'app_id': DEVICE})

        def status(t, *beacons):
            return (t, 'http://status.example/seen', {'beacon_status_events': list(beacons), 'app_id': DEVICE})

        first = {'n': 1, 'who': 'staff', 'triggered_at': '2015-11-21T08:00:07Z'}
        second = analytics(T + 60.25, [{'n': 2, 'triggered_at': '2015-11-21T08:00:45Z'}], [], [])
        seen_early = [seen(1, '2015-11-21T08:00:06Z'), seen(2, '2015-11-21T08:00:05Z')]
        posts = [(post['t'], post['url'], post['body']) for post in self.posts]
        self.assertEqual(sorted(posts, key=lambda post: post[:2]), [
            analytics(T + 30.25, [first], [session], [geo]),
            second,  # while the network is down, the one and the other
            status(T + 60.25, *seen_early),
            (T + 90.25, *second[1:]),
            status(T + 90.25, *seen_early),
            status(T + 28830.25, seen(3, '2015-11-21T16:00:00Z'))])
        names = {'http://analytics.example/in': ('secret', 'X-GF-AppID', 'X-GF-FrameworkVersion', '1.0.3'),
                 'http://status.example/seen': ('pulse', 'X-PL-AppID', 'X-PL-FrameworkVersion', '1')}
        for post in self.posts:
            token, device, version, number = names[post['url']]
            self.assertEqual(post['headers'], {'AUTHORIZATION': f'Token token="{token}"', device: DEVICE,
                                               version: number, 'Content-Type': 'application/json',
                                               'Accept': 'application/json'})

    def test_the_same_day_again(self):
        again = self.root / 'again'
        self.assertEqual(self.replay(again), self.output)
        for name in ('GeofoldAnalytics.sqlite', 'Pulsekeep.sqlite'):
            self.assertEqual((again / name).read_bytes(), (self.documents / name).read_bytes())

    def test_dump(self):
        def dump(path):
            return subprocess.run([OPTIONS.command, 'dump', path], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        before = self.analytics.read_bytes()
        output = dump(self.documents).stdout.decode()
        self.assertIn('select * from schema_version\n| version |  | \n| 1 |  |\n', output)
        self.assertIn('select * from beacon_sessions order by id desc\n| id | first_detected_at | ', output)
        self.assertIn(f'| 1 | {T + 3}.0 | (null) | 1 | (null) | {UUID} | (null) | (null) |  |\n', output)
        self.assertIn('| 2 | door | {"n":2} | ', output)
        self.assertEqual(self.analytics.read_bytes(), before)
        self.assertEqual(dump(self.root / 'server').returncode, 1)
        (self.root / 'bad').mkdir()
        (self.root / 'bad/Pulsekeep.sqlite').write_bytes(b'x' * 5000)
        bad = dump(self.root / 'bad')
        self.assertEqual(bad.returncode, 1)
        self.assertIn(b'file is not a database', bad.stderr)

    def test_dump_of_a_copy_where_nothing_can_be_written(self):
        """What is in the log is printed, too; as somebody without special rights when the test is run with them."""
        os.chmod(self.root, 0o755)
        for with_log in (True, False):
            copy = self.root / f'copy-{with_log}'
            copy.mkdir()
            live = sqlite3.connect(copy / 'live.sqlite')
            live.executescript('pragma journal_mode = wal; pragma wal_autocheckpoint = 0;'
                               'create table beacon_sessions (id integer primary key, note text);'
                               "insert into beacon_sessions values (1, 'early'); pragma wal_checkpoint;"
                               "insert into beacon_sessions values (2, 'in the log');")
            for suffix in ('', '-wal') if with_log else ('',):
                (copy / ('Pulsekeep.sqlite' + suffix)).write_bytes((copy / ('live.sqlite' + suffix)).read_bytes())
                (copy / ('Pulsekeep.sqlite' + suffix)).chmod(0o444)
            live.close()
            copy.chmod(0o555)
            user = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []} if os.geteuid() == 0 else {}
            printed = subprocess.run([OPTIONS.command, 'dump', copy], capture_output=True, **user)
            copy.chmod(0o755)
            self.assertEqual((printed.returncode, printed.stderr), (0, b''))
            self.assertIn(b'| 1 | early | ', printed.stdout)
            self.assertEqual(b'| 2 | in the log | ' in printed.stdout, with_log)


if __name__ == '__main__':
    OPTIONS = venue.arguments()
    unittest.main(argv=['day_test'])
