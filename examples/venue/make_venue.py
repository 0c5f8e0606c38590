#!/usr/bin/env python3
"""Makes the sample venue: plans, kit, map configuration, radio world and walk, all from one geometry in metres.

    make_venue.py           writes every file beside this script; a rerun writes the same bytes
    make_venue.py --check   writes nothing; says what is inconsistent or out of date, and fails when anything is

The geometry is in generator/house.py, generator/garden.py and generator/tour.py. Needs nothing but Python 3."""
import argparse
import sys
from pathlib import Path

sys.dont_write_bytecode = True

from generator import check, documents  # noqa: E402 (must follow the line above)

FOLDER = Path(__file__).resolve().parent


def write():
    for path, content in documents.files().items():
        file = FOLDER / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)
    print(f'{len(documents.files())} files, {len(documents.BEACONS)} beacons, a walk of {check.duration():.0f} s')


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--check', action='store_true', help='verify only')
    if not parser.parse_args().check:
        write()
    faults = list(check.faults(FOLDER))
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == '__main__':
    sys.exit(main())
