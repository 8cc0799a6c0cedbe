#!/usr/bin/env python3
"""The simulation in cases whose outcome follows from a formula."""

import math
import pathlib
import random
import statistics
import sys
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from simulate import Pool, Scenario, binomial, figures, part_of, per_second, simulate  # noqa: E402

NEVER = (1e9, 1e9)


def rate(scenario, values, first, last):
    """The mean number in a second between two moments."""
    return sum(values[round(first / scenario.step):round(last / scenario.step)]) / (last - first)


class Chance(unittest.TestCase):
    def test_binomial_has_its_mean_and_its_variance(self):
        generator = random.Random(3)
        for count, share in ((20, 0.1), (1000, 0.01), (1000, 0.4), (50, 0.9), (10**7, 0.001)):
            drawn = [binomial(generator, count, share) for _ in range(4000)]
            mean, variance = count * share, count * share * (1 - share)
            self.assertAlmostEqual(statistics.mean(drawn), mean, delta=5 * math.sqrt(variance / 4000))
            self.assertAlmostEqual(statistics.variance(drawn), variance, delta=0.15 * variance)

    def test_binomial_of_nothing_and_of_certainty(self):
        generator = random.Random(3)
        self.assertEqual(binomial(generator, 0, 0.5), 0)
        self.assertEqual(binomial(generator, 9, 0), 0)
        self.assertEqual(binomial(generator, 9, 1), 9)

    def test_a_pool_gives_back_what_it_was_given_evenly(self):
        pool = Pool(random.Random(1), 500)
        pool.add(100000, 100, 200)
        taken = [pool.take(step) for step in range(500)]
        self.assertEqual(sum(taken[100:300]), 100000)
        self.assertEqual(sum(taken), 100000)
        for number in taken[100:300]:  # 500 each, and six deviations
            self.assertAlmostEqual(number, 500, delta=135)

    def test_a_part_is_taken_from_every_kind_in_proportion(self):
        counts = {0: 600, 1: 300, 5: 100}
        self.assertEqual(part_of(counts, 100), {0: 60, 1: 30, 5: 10})
        self.assertEqual(counts, {0: 540, 1: 270, 5: 90})


class Steady(unittest.TestCase):
    def test_jittered_devices_come_evenly(self):
        s = Scenario(devices=60000, capacity=5000, outage=NEVER, seconds=600)
        series = simulate(s)
        self.assertAlmostEqual(rate(s, series["begun"], 300, 600), 60000 / 60, delta=10)
        # The peak of a Poisson process: some deviations above its mean, no more.
        peak = per_second(s, series["begun"], 300)
        self.assertLess(peak, 1000 + 6 * math.sqrt(1000))
        self.assertGreater(peak, 1000 + 2 * math.sqrt(1000))

    def test_devices_on_the_minute_come_within_the_spread(self):
        s = Scenario(devices=60000, schedule="fixed", spread=2, capacity=1e6, outage=NEVER,
                     seconds=300)
        series = simulate(s)
        self.assertAlmostEqual(per_second(s, series["begun"]), 60000 / 2, delta=900)
        self.assertEqual(sum(series["begun"]), 5 * 60000)

    def test_ports_wait_for_a_minute_each(self):
        s = Scenario(devices=60000, capacity=5000, outage=NEVER, seconds=900)
        found = figures(s, simulate(s))
        self.assertAlmostEqual(found["time_wait"], 60 * 1000, delta=3000)

    def test_a_server_without_room_keeps_the_ports(self):
        s = Scenario(devices=3000, again="fixed", first=1, room=0, outage=NEVER, seconds=300)
        found = figures(s, simulate(s))
        self.assertEqual(found["time_wait"], 0)
        self.assertAlmostEqual(found["time_wait_server"], 60 * 3000 / (1 + s.refusal), delta=3000)

    def test_every_request_is_done_or_has_failed_or_is_at_the_server(self):
        for again in ("at-once", "fixed", "backoff"):
            for schedule in ("fixed", "jittered"):
                s = Scenario(devices=5000, again=again, schedule=schedule, capacity=400, room=1000,
                             outage=(60, 200), seconds=895, longest=30)
                series = simulate(s)
                self.assertEqual(series["failed"][-1], 0)  # calm again
                self.assertEqual(sum(series["begun"]),
                                 sum(series["done"]) + sum(series["failed"]) + series["queued"][-1])
                self.assertGreaterEqual(min(series["troubled"]), 0)
                self.assertLessEqual(max(series["troubled"]), 5000)


class Outage(unittest.TestCase):
    # All are troubled within the first interval, and what follows is their waits' rate.
    def outage(self, **more):
        s = Scenario(devices=20000, capacity=1e5, outage=(120, 1320), seconds=1500, **more)
        return s, simulate(s)

    def test_a_fixed_wait_is_a_rate(self):
        s, series = self.outage(again="fixed", first=10)
        self.assertAlmostEqual(rate(s, series["begun"], 600, 1300), 20000 / (10 + s.refusal),
                               delta=25)

    def test_full_jitter_halves_the_bound(self):
        s, series = self.outage(again="backoff", first=1, longest=64)
        mean = (64 + s.step) / 2 + s.refusal
        self.assertAlmostEqual(rate(s, series["begun"], 800, 1300), 20000 / mean, delta=12)

    def test_at_once_is_limited_by_the_refusal_alone(self):
        s, series = self.outage(again="at-once")
        self.assertAlmostEqual(rate(s, series["begun"], 600, 1300), 20000 / (s.refusal + s.step),
                               delta=20000 * 0.01)


class Return(unittest.TestCase):
    def test_a_backlog_goes_at_the_speed_that_is_left(self):
        # Served in the order of arrival, without a time limit that is reached.
        s = Scenario(devices=30000, again="at-once", capacity=1000, limit=1e4, outage=(120, 600),
                     seconds=900)
        found = figures(s, simulate(s))
        # Those served report again at half an interval at the least, and wait behind the others.
        self.assertAlmostEqual(found["gone"], 30000 / 1000, delta=1.5)

    def test_time_outs_that_make_more_load_never_end(self):
        # Four seconds serve 400 of 3000: the others have gone when their turn comes, and are back.
        s = Scenario(devices=3000, again="at-once", capacity=100, outage=(60, 90), seconds=600)
        found = figures(s, simulate(s))
        self.assertIsNone(found["gone"])
        self.assertGreater(found["vain"], 0.8)

    def test_a_server_that_refuses_in_time_recovers(self):
        s = Scenario(devices=3000, again="backoff", capacity=100, room=300, outage=(60, 90),
                     seconds=1200)
        self.assertIsNotNone(figures(s, simulate(s))["gone"])

    def test_a_server_that_sees_who_has_gone_recovers(self):
        s = Scenario(devices=3000, again="at-once", capacity=100, outage=(60, 260), seconds=600,
                     wasted=0)
        self.assertAlmostEqual(figures(s, simulate(s))["gone"], 3000 / 100, delta=1.5)


class Seed(unittest.TestCase):
    def test_a_seed_repeats_itself(self):
        one, same, other = (simulate(Scenario(seed=seed, seconds=900, outage=(100, 300)))
                            for seed in (5, 5, 6))
        self.assertEqual(one, same)
        self.assertNotEqual(one["begun"], other["begun"])


if __name__ == "__main__":
    unittest.main()
