"""What the tests of the stores share: a venue to run on, a server that keeps what it gets, rows of a file."""
import argparse
import http.server
import json
import pathlib
import sqlite3
import threading

UUID = '5A0E1C9E-0000-4B7E-8000-000000000001'


def arguments():
    parser = argparse.ArgumentParser()
    parser.add_argument('--command', required=True)
    parser.add_argument('--driver', required=True)
    return parser.parse_args()


def property_list(values):
    members = ''.join(f'<key>{key}</key><string>{value}</string>' for key, value in values.items())
    return f'<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>{members}</dict></plist>'


def write_bundle(folder, kit_url, analytics_url):
    folder = pathlib.Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    (folder / 'Info.plist').write_text(property_list({'NSLocationAlwaysUsageDescription': 'to test'}))
    settings = {'GFKitURL': kit_url, 'GFAPIToken': 'secret', 'GFAnalyticsURL': analytics_url}
    (folder / 'Geofold.plist').write_text(property_list(settings))
    (folder / 'Wayloom.plist').write_text(property_list(settings))
    (folder / 'map_config.json').write_text('{}')


def kit(status_url):
    def beacon(identifier, major, minor):
        return {'identifier': identifier, 'name': identifier, 'uuid': UUID, 'major': major, 'minor': minor}
    return {'kit': {'id': 42, 'name': 'k', 'status_url': status_url, 'status_token': 'pulse',
                    'ibeacons': [beacon('lobby', 1, None), beacon('house', None, None), beacon('corner', None, 7)],
                    'map': {'overlays': [{'type': 'circle', 'identifier': 'yard', 'name': 'Yard',
                                          'center': [52.1, 13.2], 'radius': 20.1}]}}}


def rows(path, query):
    connection = sqlite3.connect(f'file:{path}?mode=ro', uri=True)
    try:
        return connection.execute(query).fetchall()
    finally:
        connection.close()


class Server:
    """Serves the kit, and keeps every document posted."""

    def __init__(self):
        self.posts = []
        server = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = 'HTTP/1.1'

            def do_GET(self):
                self.answer(json.dumps(kit(server.url + '/status')).encode())

            def do_POST(self):
                body = self.rfile.read(int(self.headers['Content-Length']))
                server.posts.append((self.path, json.loads(body)))
                self.answer(b'')

            def answer(self, body):
                self.send_response(200)
                self.send_header('Content-Length', str(len(body)))
                self.end_headers()
                try:
                    self.wfile.write(body)
                except OSError:
                    self.close_connection = True

            def log_message(self, *_):
                pass

        class Threads(http.server.ThreadingHTTPServer):
            daemon_threads = True

            def handle_error(self, *_):
                """Clients are killed in the middle of requests."""

        self.http = Threads(('127.0.0.1', 0), Handler)
        self.url = f'http://127.0.0.1:{self.http.server_port}'
        threading.Thread(target=self.http.serve_forever, daemon=True).start()
