#!/usr/bin/env python3
"""Spoils a running host's files from outside: it must keep running, say so, and record again afterwards."""
import atexit
import os
import pathlib
import sqlite3
import subprocess
import tempfile
import time

import venue

ANALYTICS = 'GeofoldAnalytics.sqlite'
NOBODY = 65534


class Host:
    """The driver, running; as somebody without special rights when a test is run with them."""

    def __init__(self, options, folder, name, prepare=None):
        self.documents = pathlib.Path(folder, name)
        self.documents.mkdir()
        self.log = pathlib.Path(folder, name + '.log')
        bundle = pathlib.Path(folder, 'bundle')
        if prepare:
            prepare(self.documents)
        self.own(True)
        user = {'user': NOBODY, 'group': NOBODY, 'extra_groups': []} if os.geteuid() == 0 else {}
        self.process = subprocess.Popen([options.driver, bundle, self.documents, '1000000'], stdout=subprocess.DEVNULL,
                                        stderr=self.log.open('wb'), **user)
        atexit.register(self.kill)

    def own(self, writable):
        for path in [self.documents, *self.documents.rglob('*')]:
            path.chmod((0o755 if path.is_dir() else 0o644) if writable else (0o555 if path.is_dir() else 0o444))
            if os.geteuid() == 0:
                os.chown(path, NOBODY, NOBODY)

    def events(self):
        try:
            return venue.rows(self.documents / ANALYTICS, 'select count(*) from events')[0][0]
        except sqlite3.Error:
            return 0

    def records(self, within=45.0):
        before, end = self.events(), time.monotonic() + within
        while time.monotonic() < end:
            assert self.process.poll() is None, 'the host ended'
            if self.events() > before + 5:
                return True
            time.sleep(0.05)
        return False

    def says(self, *texts, within=30.0):
        """Whether it says one of them, sooner or later."""
        end = time.monotonic() + within
        while time.monotonic() < end:
            if any(text in self.log.read_text() for text in texts):
                return True
            time.sleep(0.05)
        return False

    def kill(self):
        self.process.kill()
        self.process.wait()

    def end(self):
        assert self.process.poll() is None, 'the host ended'
        self.kill()
        lines = self.log.read_text().splitlines()
        assert len(lines) < 100, f'{len(lines)} log lines: it says the same again and again'


def locked(host):
    assert host.records()
    stranger = sqlite3.connect(host.documents / ANALYTICS, isolation_level=None)
    stranger.execute('begin immediate')
    time.sleep(0.5)
    before = host.events()
    time.sleep(0.3)
    assert host.events() == before
    stranger.execute('rollback')
    stranger.close()
    assert host.records()
    assert host.says('database is locked') and host.says('can be used again')


def no_database(host):
    assert host.says('Woah, SQL failed!') and host.says('file is not a database')
    (host.documents / ANALYTICS).unlink()
    assert host.records()


def read_only(host):
    """From the start: a descriptor that was opened for writing stays so."""
    assert host.says('readonly database', 'unable to open'), host.log.read_text()
    host.own(True)
    assert host.records()


def make_read_only(documents):
    connection = sqlite3.connect(documents / ANALYTICS)
    connection.execute('create table other (x)')
    connection.commit()
    connection.close()


def removed(host):
    assert host.records()
    (host.documents / ANALYTICS).unlink()
    assert host.records()
    assert host.says('has been removed or replaced')


def main():
    options = venue.arguments()
    server = venue.Server()
    with tempfile.TemporaryDirectory() as folder:
        os.chmod(folder, 0o755)
        venue.write_bundle(pathlib.Path(folder, 'bundle'), server.url + '/kits/42', server.url + '/analytics')
        hosts = {
            locked: Host(options, folder, 'locked'),
            removed: Host(options, folder, 'removed'),
            no_database: Host(options, folder, 'no-database',
                              lambda documents: (documents / ANALYTICS).write_bytes(b'x' * 5000)),
        }
        for check, host in hosts.items():
            check(host)
            host.end()
            print(check.__name__, 'is survived')
        host = Host(options, folder, 'read-only', lambda documents: (make_read_only(documents)))
        host.own(False)
        read_only(host)
        host.end()
        print('read_only is survived')


if __name__ == '__main__':
    main()
