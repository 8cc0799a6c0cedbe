"""The files that are packed and sent: 200 log files, 20,000 small ones, one of a gigabyte."""

import random
import time


def log_text(size):
    """Lines as a service's log holds them: a clock that runs, few hosts and modules, numbers that
    vary."""
    chance = random.Random(7)
    pick = chance.choice
    levels = ("INFO ", "INFO ", "INFO ", "DEBUG", "WARN ", "ERROR")
    modules = ("transfer", "engine", "report", "token", "storage.cache")
    objects = ("orders", "devices", "reports", "images")

    def below(limit):
        return int(chance.random() * limit)

    lines, length, clock = [], 0, 0
    while length < size:
        clock += below(20000)
        seconds, microseconds = divmod(clock, 1_000_000)
        line = (time.strftime("2024-03-%d %H:%M:%S", time.gmtime(seconds)) +
                f".{microseconds:06} [node-{below(24):02}] {pick(levels)} {pick(modules)}: ")
        kind = below(3)
        if kind == 0:
            line += (f"request {below(1 << 20)} finished status={200 if below(8) else 404} "
                     f"time={below(2000)}ms bytes={below(1 << 16)} "
                     f"url=/v1/{pick(objects)}/{below(1 << 20)}\n")
        elif kind == 1:
            line += (f"queue length {below(64)}, pending {below(16)}, "
                     f"retry after {below(10) * 100} ms\n")
        else:
            line += (f"heartbeat seq={length // 100} lag={below(900)}us peers={below(5)} "
                     f"zone={pick(objects)}\n")
        lines.append(line)
        length += len(line)
    return "".join(lines).encode()[:size]


def make(root, share):
    """Makes 1/SHARE of about 1.4 GB in `root`."""
    text = log_text((64 << 20) // share)
    log_size = 1340000 // share
    chance = random.Random(11)

    def write(path, size):
        start = chance.randrange(len(text) - size)
        path.write_bytes(text[start:start + size])

    (root / "logs").mkdir(parents=True)
    for number in range(1000, 1200):
        write(root / f"logs/app.{number}.log", log_size)
    for number in range(20000 // share):
        folder = root / f"small/{100 + number // 400}"
        folder.mkdir(parents=True, exist_ok=True)
        write(folder / f"part-{100000 + number}.log", 200 + chance.randrange(6000))
    with open(root / "big.log", "wb") as big:
        for _ in range(16):
            big.write(text)
