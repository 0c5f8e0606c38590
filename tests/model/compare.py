#!/usr/bin/env python3
"""Replays random scenarios with the `wayloom` command and with the model, and compares the positions line by line.

    compare.py [--first SEED] [--count N] [--odd] [--all] [--keep FOLDER] WAYLOOM

Ends at the first scenario that differs, which it keeps; with --all it goes on and keeps each.  The exit status is 0
when nothing differed, 1 when something did, 2 when WAYLOOM could not be started.
"""
import argparse
import json
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

import model
from scenarios import Scenario

TOLERANCE = 1e-6            # absolute up to 1, relative above
TIME_LIMIT = 60             # seconds for one recording


def same(ours, theirs):
    numbers = [type(value) in (int, float) for value in (ours, theirs)]
    if all(numbers):
        return abs(ours - theirs) <= TOLERANCE * max(1.0, abs(ours), abs(theirs))
    return not any(numbers) and ours == theirs


def same_line(ours, theirs):
    return (isinstance(theirs, dict) and ours.keys() == theirs.keys() and ours['t'] == theirs['t']
            and all(same(ours[key], theirs[key]) for key in ours))


def printed_by(command):
    """The lines printed, and what was wrong with the run, if anything."""
    try:
        run = subprocess.run(command, capture_output=True, encoding='utf-8', timeout=TIME_LIMIT)
    except subprocess.TimeoutExpired:
        return [], f'no end after {TIME_LIMIT} s'
    lines = []
    for text in run.stdout.splitlines():
        try:
            lines.append(json.loads(text))
        except ValueError:
            return lines, f'not JSON: {text!r}'
    return lines, f'exit status {run.returncode}: {run.stderr[-2000:]}' if run.returncode else ''


def difference(expected, printed, trouble):
    """What to tell about the first difference; empty when there is none."""
    for number, (ours, theirs) in enumerate(zip(expected, printed), start=1):
        if not same_line(ours, theirs):
            return f'output line {number}\n  model:   {json.dumps(ours)}\n  wayloom: {json.dumps(theirs)}'
    if len(expected) != len(printed):
        return f'{len(expected)} lines expected, {len(printed)} printed; {trouble}'
    return trouble


def try_seed(seed, options, totals):
    """True when both agree on the scenario of this seed."""
    folder = Path(tempfile.mkdtemp(prefix=f'wayloom-scenario-{seed}-', dir=options.keep))
    scenario = Scenario(seed, options.odd)
    scenario.write(folder)
    venue, recording = folder / 'venue', folder / 'recording.jsonl'
    with open(recording, encoding='utf-8') as lines:
        expected = list(model.replay(venue, lines, scenario.use_own_distance))
    command = [options.wayloom, 'replay', '--venue', venue, recording]
    command[4:4] = ['--use-own-distance'] * scenario.use_own_distance
    found = difference(expected, *printed_by([str(word) for word in command]))
    totals['lines'] += len(expected)
    totals['positions'] += sum(line['map_id'] is not None for line in expected)
    if found:
        print(f'seed {seed}: {found}\n  again: {" ".join(map(str, command))}')
    else:
        shutil.rmtree(folder)
    return not found


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--first', type=int, default=0, metavar='SEED')
    parser.add_argument('--count', type=int, default=100, metavar='N')
    parser.add_argument('--odd', action='store_true', help='documents for which more than one reading is fair')
    parser.add_argument('--all', action='store_true', help='go on after a difference')
    parser.add_argument('--keep', metavar='FOLDER', help='where to work and to keep what differs')
    parser.add_argument('wayloom')
    options = parser.parse_args()
    totals = {'lines': 0, 'positions': 0}
    differing = tried = 0
    for seed in range(options.first, options.first + options.count):
        try:
            differing += not try_seed(seed, options, totals)
        except OSError as error:
            print(f'{options.wayloom}: {error}')
            return 2
        tried += 1
        if differing and not options.all:
            break
    print(f'{tried} scenarios, {totals["lines"]} lines, {totals["positions"]} with a position; {differing} differ')
    return 1 if differing else 0


if __name__ == '__main__':
    sys.exit(main())
