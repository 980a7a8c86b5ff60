"""Tables and JSON of a sweep, and its comparison with the points that are known to break."""

import json
import re


def table(results):
    """One line per scenario: points tried, held, broken."""
    lines = [f"{'scenario':<22}{'calls':>7}{'tried':>7}{'held':>7}{'broken':>8}"]
    for name, result in results.items():
        broken = len(result["broken"])
        lines.append(f"{name:<22}{result['calls']:>7}{result['tried']:>7}"
                     f"{result['tried'] - broken:>7}{broken:>8}")
    tried = sum(result["tried"] for result in results.values())
    broken = sum(len(result["broken"]) for result in results.values())
    lines.append(f"{'all':<22}{'':>7}{tried:>7}{tried - broken:>7}{broken:>8}")
    return "\n".join(lines)


def describe(broken):
    """A broken point in a few lines."""
    what = "killed" if broken["error"] is None else broken["error"]
    lines = [f"{broken['scenario']} {broken['point']} {what} before {broken['call']} "
             f"({broken['program']}) {' '.join(broken['paths'])}"]
    return "\n".join(lines + [f"    {flaw}" for flaw in broken["flaws"]])


def merge(shards):
    """The results of shards that tried different points of the same scenarios."""
    merged = {}
    for shard in shards:
        for name, result in shard.items():
            into = merged.setdefault(name, {"calls": result["calls"], "tried": 0, "broken": []})
            into["tried"] += result["tried"]
            into["broken"] += result["broken"]
    for result in merged.values():
        result["broken"].sort(key=lambda broken: (broken["point"], broken["error"] or ""))
    return merged


class Allowed:
    """The points that may break, each with its reason (allowed.json)."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            self._entries = json.load(file)
        self._met = set()

    def covers(self, broken):
        """Whether every flaw of the point is one that an entry allows there."""
        return all(self._allows(broken, flaw) for flaw in broken["flaws"])

    def _allows(self, broken, flaw):
        for number, entry in enumerate(self._entries):
            if _is_at(entry, broken) and re.search(entry["flaw"], flaw):
                self._met.add(number)
                return True
        return False

    def unmet(self, scenarios, errors):
        """Entries of these scenarios that nothing broke."""
        return [entry for number, entry in enumerate(self._entries)
                if number not in self._met and (entry["error"] is not None) == errors
                and entry["scenario"] in scenarios]


def _is_at(entry, broken):
    """The same fault at the same call on the same file."""
    error = broken["error"]
    return (entry["scenario"] == broken["scenario"] and entry["call"] == broken["call"]
            and (entry["error"] is None) == (error is None)
            and entry["error"] in (None, "*", error)
            and any(re.search(entry["path"], path) for path in broken["paths"]))
