#!/usr/bin/env python3
"""Kills a host at random moments while it records and uploads; nothing that it had acknowledged may be missing then.

    kill_test.py --command build/release/wayloom --driver build/release/tests/storage/wayloom_store_driver --kills 200
"""
import json
import pathlib
import random
import subprocess
import sys
import tempfile
import time

import venue

ANALYTICS = 'GeofoldAnalytics.sqlite'
STATUS = 'Pulsekeep.sqlite'


def integrity(documents):
    for name in (ANALYTICS, STATUS):
        if (documents / name).exists():
            assert venue.rows(documents / name, 'pragma integrity_check') == [('ok',)], name


def has_tables(documents):
    path = documents / ANALYTICS
    return path.exists() and venue.rows(path, "select count(*) from sqlite_master where name = 'events'")[0][0] == 1


def closed_sessions(documents):
    return venue.rows(documents / ANALYTICS, 'select count(*) from region_sessions where exited_at is not null')[0][0]


def recorded_cycles(documents):
    details = venue.rows(documents / ANALYTICS, "select event_details from events order by id")
    return [json.loads(bytes(detail))['number'] for detail, in details]


def run_and_kill(options, bundle, documents, delay):
    """The numbers of the cycles that the host acknowledged before it was killed."""
    host = subprocess.Popen([options.driver, bundle, documents, '1000000'], stdout=subprocess.PIPE,
                            stderr=subprocess.DEVNULL)
    killed_early = delay < 0.02
    if not killed_early:
        host.stdout.readline()
    time.sleep(delay)
    host.kill()
    output = host.stdout.read().decode().split('\n')
    host.wait()
    return [int(line) for line in output[:-1] if line.isdigit()]


def check_round(documents, before, closed_before, acknowledged):
    integrity(documents)
    if not has_tables(documents):
        assert not acknowledged
        return
    cycles = recorded_cycles(documents)[before:]
    assert cycles[:len(acknowledged)] == acknowledged, 'acknowledged events are missing'
    assert cycles == list(range(1, len(cycles) + 1)), 'events are missing in between'
    # One closed session of each cycle, with its five beacons; only the last cycle may have been cut off.
    assert closed_sessions(documents) >= closed_before + len(acknowledged), 'acknowledged sessions are missing'
    beacons = venue.rows(documents / ANALYTICS, 'select count(*) from (select count(b.id) as seen from '
                         'region_sessions as s left join beacon_sessions as b on b.region_session_id = s.id '
                         'where s.exited_at is not null group by s.id) where seen != 5')
    assert beacons == [(0,)], 'beacons are missing'


def check_uploads(options, bundle, documents, server):
    """The next run uploads what is due, and what counts as uploaded has been received."""
    server.faults = 0
    subprocess.run([options.driver, bundle, documents, '0'], check=True, stdout=subprocess.DEVNULL, timeout=60,
                   stderr=subprocess.DEVNULL)
    integrity(documents)
    due = venue.rows(documents / ANALYTICS, 'select count(*) from region_sessions where exited_at is not null and '
                     'uploaded_at is null') + venue.rows(documents / ANALYTICS, 'select count(*) from events where '
                                                         'uploaded_at is null')
    assert due == [(0,), (0,)], due
    received_sessions = set()
    received_events = 0
    for path, document in server.posts:
        if path != '/analytics':
            continue
        received_sessions.update(s['id'] for s in document['geofold_kit_events'][0]['region_sessions'])
        received_events += len(document.get('cycle', []))
    uploaded = {row for row, in venue.rows(documents / ANALYTICS,
                                           'select id from region_sessions where uploaded_at is not null')}
    assert uploaded <= received_sessions, 'marked as uploaded, but never received'
    assert received_events >= len(recorded_cycles(documents))
    return len(received_sessions), received_events


def main():
    options = venue.arguments(kills=20, seed=1, longest=0.4)
    chance = random.Random(options.seed)
    server = venue.Server(faults=0.4, seed=options.seed)
    with tempfile.TemporaryDirectory() as folder:
        bundle, documents = pathlib.Path(folder, 'bundle'), pathlib.Path(folder, 'documents')
        venue.write_bundle(bundle, server.url + '/kits/42', server.url + '/analytics')
        acknowledged = 0
        for _ in range(options.kills):
            begun = has_tables(documents)
            before, closed = (len(recorded_cycles(documents)), closed_sessions(documents)) if begun else (0, 0)
            cycles = run_and_kill(options, bundle, documents, chance.uniform(0, options.longest))
            check_round(documents, before, closed, cycles)
            acknowledged += len(cycles)
        posts = len(server.posts)
        sessions, events = check_uploads(options, bundle, documents, server)
        print(f'{options.kills} kills, {acknowledged} acknowledged sessions, all there; {posts} posts before the last '
              f'run, {sessions} sessions and {events} events received (some twice), nothing due')
        assert acknowledged > 0


if __name__ == '__main__':
    sys.exit(main())
