#!/usr/bin/env python3
"""What a fleet of devices does to its back end: steady reports, an outage, the return.

  bench/fleet/simulate.py DEVICES [--schedule fixed|jittered] [--again at-once|fixed|backoff]
                          [--NAME VALUE ...]

Prints one scenario; the names and what they mean by default are those of Scenario below. Time goes
in steps, and devices of one kind are counted, not followed: ten million cost what a thousand cost.
Where chance decides, counts are drawn (binomially) from a generator with a seed.

Each device is in one of these states:
  idle      its next report is due at a known moment, or evenly spread over a time
  queued    its request is at the server, which serves in the order of arrival
  waiting   its request failed, and it waits for the next try
A request that is not served when its time limit is up has failed. The server does not know: it
spends `wasted` of a request's cost on it when its turn comes. What the server has no room for is
refused at once, and so is everything during the outage.
"""

import collections
import dataclasses
import json
import math
import random
import sys

TIME_WAIT = 60  # seconds that Linux keeps a port of a connection that its side closed


@dataclasses.dataclass
class Scenario:
    devices: int = 1000
    schedule: str = "jittered"
    again: str = "backoff"
    interval: float = 60  # seconds from one report of a device to the next
    spread: float = 1  # fixed schedule: seconds within which all report, clocks being right
    first: float = 1  # the fixed wait, or the bound of the first one
    longest: float = 300  # the bound of a wait
    limit: float = 4  # seconds that a request may take
    capacity: float = 100  # requests that the server handles in a second
    room: float = math.inf  # requests that wait at the server, and more are refused
    wasted: float = 1  # cost of a request whose client has gone, in requests
    refusal: float = 0.25  # seconds that a refused request takes
    outage: tuple = (600, 4200)  # seconds of its beginning and its end
    seconds: float = 6000  # of all
    step: float = 0.25
    seed: int = 1


def binomial(generator, count, share):
    """How many of `count` things happen that have the probability `share` each."""
    if share <= 0 or count == 0:
        return 0
    if share >= 1:
        return count
    if share > 0.5:
        return count - binomial(generator, count, 1 - share)
    if count * share > 30:
        deviation = math.sqrt(count * share * (1 - share))
        return min(count, max(0, round(generator.gauss(count * share, deviation))))
    found, at = 0, 0  # from one that happens to the next
    while True:
        at += math.floor(math.log(1 - generator.random()) / math.log1p(-share)) + 1
        if at > count:
            return found
        found += 1


class Pool:
    """Devices whose moments are evenly spread over steps to come."""

    def __init__(self, generator, steps):
        self.generator = generator
        self.change = [0.0] * (steps + 1)  # of how many are expected in a step
        self.density = 0.0
        self.expected = 0.0  # in all steps to come
        self.count = 0

    def add(self, count, first, width):
        if count == 0:
            return
        if first < len(self.change):
            self.change[first] += count / width
        if first + width < len(self.change):
            self.change[first + width] -= count / width
        self.expected += count
        self.count += count

    def take(self, step):
        """Those whose moment is in `step`; each step is taken once, in order."""
        self.density += self.change[step]
        if self.count == 0:
            self.density = 0.0 if abs(self.density) < 1e-6 else self.density
            self.expected -= self.density
            return 0
        rest = self.expected - self.density
        share = 1 if rest < 1e-3 else self.density / self.expected
        taken = binomial(self.generator, self.count, share)
        self.count -= taken
        self.expected = rest
        return taken


class Request:
    """Requests that arrived in one step, by the number of failures before them."""

    __slots__ = ("counts", "queued")

    def __init__(self, counts):
        self.counts = counts
        self.queued = sum(counts.values())


def part_of(counts, number):
    """Takes `number` out of `counts`, from every kind in proportion."""
    whole = sum(counts.values())
    taken = {}
    for kind in list(counts):
        one = min(counts[kind], -(-counts[kind] * number // whole)) if whole else 0
        one = min(one, number - sum(taken.values()))
        taken[kind] = one
        counts[kind] -= one
    return taken


def simulate(scenario):
    """Runs a scenario.

    Lists with a number for each step: begun, done, failed, recovered (done after a failure),
    queued (at the end of the step), troubled (devices whose last request failed), closed (by
    clients: done, and those whose time was up) and turned (away by a server that is full)."""
    s = scenario
    generator = random.Random(s.seed)
    steps = round(s.seconds / s.step)

    def in_steps(seconds):
        return max(1, round(seconds / s.step))

    limit = in_steps(s.limit)
    interval = in_steps(s.interval)
    spread = in_steps(s.spread)
    stages = 1
    while s.again == "backoff" and s.first * 2 ** (stages - 1) < s.longest:
        stages += 1
    idle = [Pool(generator, steps), Pool(generator, steps)]  # fixed: even and odd intervals
    waiting = [Pool(generator, steps) for _ in range(stages)]
    arriving = collections.defaultdict(collections.Counter)  # at exact steps
    failing = collections.defaultdict(collections.Counter)
    queue = collections.deque()
    ends = {}  # the step in which a request's time is up
    held = 0
    budget = 0.0
    troubled = 0
    series = {name: [0] * steps for name in ("begun", "done", "failed", "recovered", "queued",
                                             "troubled", "closed", "turned")}

    if s.schedule == "fixed":
        idle[0].add(s.devices, 0, spread)
    else:
        idle[0].add(s.devices, 0, interval)

    for step in range(steps):
        # Who begins a request: by the number of failures in a row, none first.
        begun = arriving.pop(step, collections.Counter())
        begun[0] += idle[0].take(step) + idle[1].take(step)
        for stage, pool in enumerate(waiting):
            begun[stage + 1] += pool.take(step)
        total = sum(begun.values())
        series["begun"][step] = total

        down = s.outage[0] <= step * s.step < s.outage[1]
        if down and held:
            for request in queue:  # connections break with the server
                failing[step].update(request.counts)
                request.counts.clear()
            queue.clear()
            held = 0
        room = 0 if down else max(0, s.room - held)
        if total > room:
            refused = part_of(begun, total - room)
            failing[step + in_steps(s.refusal)].update(refused)
            series["turned"][step] = 0 if down else total - room
            total = room
        if total:
            request = Request(dict(begun))
            queue.append(request)
            held += request.queued
            ends[step + limit] = request

        # Those whose time is up. The server still has their requests.
        late = ends.pop(step, None)
        if late is not None:
            failing[step].update(late.counts)
            series["closed"][step] = sum(late.counts.values())
            late.counts.clear()

        # What the server gets done.
        done = collections.Counter()
        budget += 0 if down else s.capacity * s.step
        while queue:
            request = queue[0]
            cost = 1 if request.counts else s.wasted
            number = request.queued if cost == 0 else min(request.queued, int(budget / cost))
            budget -= number * cost
            request.queued -= number
            held -= number
            if request.counts:
                done.update(part_of(request.counts, number))
            if request.queued:
                break
            queue.popleft()
        budget = min(budget, 1) if not queue else budget

        recovered = sum(count for stage, count in done.items() if stage)
        whole = sum(done.values())
        if s.schedule == "fixed":
            coming = step // interval + 1
            idle[coming % 2].add(whole, coming * interval, spread)
        else:
            idle[0].add(whole, step + max(1, interval // 2), interval)

        failed = failing.pop(step, collections.Counter())
        for stage, count in failed.items():
            troubled += count if stage == 0 else 0
            if s.again == "backoff":
                bound = min(s.longest, s.first * 2 ** stage)
                waiting[min(stage, stages - 1)].add(count, step + 1, in_steps(bound))
            else:
                wait = s.first if s.again == "fixed" else s.step
                arriving[step + in_steps(wait)][1] += count
        troubled -= recovered
        series["done"][step] = whole
        series["closed"][step] += whole
        series["failed"][step] = sum(failed.values())
        series["recovered"][step] = recovered
        series["queued"][step] = held
        series["troubled"][step] = troubled
    return series


def per_second(scenario, values, first=0, last=None):
    """The largest sum of the values of one second."""
    window = max(1, round(1 / scenario.step))
    end = len(values) if last is None else round(last / scenario.step)
    chosen = values[round(first / scenario.step):end]
    most = current = sum(chosen[:window])
    for new, old in zip(chosen[window:], chosen):
        current += new - old
        most = max(most, current)
    return most


def waiting_ports(scenario, closed):
    """The most sockets in TIME_WAIT on the side that closes so many in each step."""
    window = round(TIME_WAIT / scenario.step)
    sums = [0]
    for number in closed:
        sums.append(sums[-1] + number)
    return max((b - a for a, b in zip(sums, sums[window:])), default=sums[-1])


def figures(scenario, series):
    """What stands in the tables; None for a backlog that does not go."""
    s = scenario
    back = round(s.outage[1] / s.step)
    gone = None
    allowed = s.devices / 1000
    for step in range(len(series["troubled"]) - 1, back - 1, -1):
        if series["troubled"][step] > allowed:
            break
        gone = (step - back) * s.step
    if gone is not None and back * s.step + gone > s.seconds - 2 * s.interval:
        gone = None  # it comes back in every interval
    settled = round(min(s.outage[0], s.seconds) / 2 / s.step)  # the first reports are long past
    after = sum(series["begun"][back:])
    done = sum(series["done"][back:])
    return {
        "steady": per_second(s, series["begun"], settled * s.step, s.outage[0]),
        "outage": per_second(s, series["begun"], *s.outage),
        "return": per_second(s, series["begun"], s.outage[1]),
        "held": max(series["queued"]),
        "time_wait": waiting_ports(s, series["closed"][settled:]),
        "time_wait_server": waiting_ports(s, series["turned"][settled:]),
        "gone": gone,
        "vain": 1 - done / after if after else 0,
    }


def main():
    words = sys.argv[1:]
    if not words or words[0].startswith("-"):
        sys.exit(__doc__)
    kinds = {field.name: field.type for field in dataclasses.fields(Scenario)}
    given = {"devices": int(words[0])}
    for name, value in zip(words[1::2], words[2::2]):
        name = name.lstrip("-")
        if name == "outage":
            given[name] = tuple(float(part) for part in value.split(","))
        else:
            given[name] = kinds[name](value)
    scenario = Scenario(**given)
    print(json.dumps(figures(scenario, simulate(scenario)), indent=2))


if __name__ == "__main__":
    main()
