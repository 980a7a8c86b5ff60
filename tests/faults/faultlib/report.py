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
    lines = [f"{broken['scenario']} {broken['point']} {broken['fault']} at {broken['call']} "
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
        result["broken"].sort(key=lambda broken: (broken["point"], broken["fault"]))
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

    def may_break(self, scenario, point, fault):
        """Whether an entry speaks of that fault at this listed call."""
        at = {"scenario": scenario, "fault": fault, **point}
        return any(_is_at(entry, at) for entry in self._entries)

    def _allows(self, broken, flaw):
        for number, entry in enumerate(self._entries):
            if _is_at(entry, broken) and re.search(entry["flaw"], flaw):
                self._met.add(number)
                return True
        return False

    def unmet(self, scenarios, kind):
        """Entries of these scenarios that nothing broke; `kind` is "kill", "error" or "signal"."""
        return [entry for number, entry in enumerate(self._entries)
                if number not in self._met and _kind(entry["fault"]) == kind
                and entry["scenario"] in scenarios]


def _kind(fault):
    if fault in ("kill", "error", "signal"):
        return fault
    return "signal" if fault.startswith("SIG") else "error"


def _is_at(entry, broken):
    """The same fault at the same call on the same file; "error" is any error."""
    return (entry["scenario"] == broken["scenario"] and entry["call"] == broken["call"]
            and entry["fault"] in (broken["fault"], _kind(broken["fault"]))
            and any(re.search(entry["path"], path) for path in broken["paths"]))
