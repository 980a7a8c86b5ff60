"""One run of a command, measured by bench/measure.c."""

import os
import statistics
import subprocess
from dataclasses import dataclass

BUILD = os.environ.get("KOVA_BENCH_BUILD", "")
RESULTS = BUILD + "/results"


@dataclass
class Cost:
    wall: float          # seconds
    cpu: float           # seconds, children included
    peak: float          # MiB of the largest process
    requests: int = 0    # that the CA saw


def run(command, log, env=None, allowed=(0,)):
    """What the command cost. Its output goes to the file `log`, which is shown when it fails."""
    result = log + ".cost"
    with open(log, "wb") as out:
        subprocess.run([BUILD + "/bench/measure", result, *command], check=True, stdout=out,
                       stderr=out, stdin=subprocess.DEVNULL, env={**os.environ, **(env or {})})
    with open(result, encoding="ascii") as line:
        wall, cpu, peak, status = line.read().split()
    if int(status) not in allowed:
        with open(log, encoding="utf-8", errors="replace") as out:
            raise SystemExit(f"{' '.join(command)}: exit status {status}\n{out.read()[-4000:]}")
    return Cost(float(wall), float(cpu), float(peak))


def median(costs):
    return Cost(*(statistics.median(getattr(cost, name) for cost in costs)
                  for name in ("wall", "cpu", "peak", "requests")))


def table(path, header, rows):
    """Prints the rows and writes them to a file of the results, tab-separated, for the plots."""
    widths = [max(len(str(row[i])) for row in [header, *rows]) for i in range(len(header))]
    for row in [header, *rows]:
        print("  ".join(str(cell).ljust(width) if i == 0 else str(cell).rjust(width)
                        for i, (cell, width) in enumerate(zip(row, widths))))
    with open(f"{RESULTS}/{path}", "w", encoding="utf-8") as out:
        out.write("".join("\t".join(map(str, row)) + "\n" for row in [["#" + header[0],
                                                                      *header[1:]], *rows]))
