#!/usr/bin/python3
"""How the renewal jobs of a fleet spread over the minutes: random machine ids, each given the moment
that the program itself derives from it, and the busiest minute against the even share. Then what a
CA's outage of a whole day does to the day after it.

usage: fleet.py [HOSTS...]     (default 1000 100000 10000000)
"""

import os
import subprocess
import sys

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SEED = 20260101
DAY = 24 * 60
# At ten million hosts chance leaves no more than this.
BAR_HOSTS, WEEKLY_BAR, DAILY_BAR = 10_000_000, 1.15, 1.06


def build():
    subprocess.run(["/bin/bash", "-c", "source bench/prepare.sh"], cwd=TOP, check=True)


def draw(hosts):
    """For each minute of the week: hosts, due on one day, due on the next."""
    lines = subprocess.run([TOP + "/build/bench/bench/fleet", str(hosts), str(SEED)], check=True,
                           stdout=subprocess.PIPE, text=True).stdout.splitlines()
    return [tuple(map(int, line.split())) for line in lines]


def by_minute_of_day(weekly):
    return [sum(weekly[minute::DAY]) for minute in range(DAY)]


def busiest(counts):
    """Of the busiest minute: the count, and its ratio to the even share."""
    return max(counts), max(counts) * len(counts) / sum(counts)


def row(cells):
    print("  ".join(str(cell).rjust(width) for cell, width in zip(cells, (9, 22, 10, 10, 8, 6))))


def show(hosts, what, counts, bar=None):
    top, ratio = busiest(counts)
    judged = "" if bar is None or hosts < BAR_HOSTS else f"{'yes' if ratio <= bar else 'NO'}"
    row([hosts, what, top, f"{sum(counts) / len(counts):.1f}", f"{ratio:.3f}", judged])


def main(sizes):
    build()
    row(["hosts", "what runs", "busiest", "even", "ratio", "good"])
    for hosts in sizes:
        minutes = draw(hosts)
        weekly = [entry[0] for entry in minutes]
        show(hosts, "weekly jobs", weekly, WEEKLY_BAR)
        show(hosts, "daily jobs", by_minute_of_day(weekly), DAILY_BAR)
        today = by_minute_of_day([entry[1] for entry in minutes])
        after = by_minute_of_day([entry[1] + entry[2] for entry in minutes])
        if sum(today):
            # Each failed one comes back at its own minute, beside those of that day.
            show(hosts, "renewals, any day", today)
            show(hosts, "day after an outage", after)


if __name__ == "__main__":
    arguments = sys.argv[1:] or ["1000", "100000", "10000000"]
    if not all(text.isdigit() and int(text) > 0 for text in arguments):
        sys.exit(__doc__)
    main([int(text) for text in arguments])
