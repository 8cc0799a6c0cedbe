"""Instructions and allocations of the operations, which are the same on a busy machine."""

import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

import servers

# callgrind takes each turn of `rep stosb` for an instruction, 4096 of them for a buffer that the
# processor clears in some 60 cycles. With these settings the C library clears and copies by loops
# over vectors, for every candidate, and the count means something again.
PLAIN = ("glibc.cpu.x86_rep_stosb_threshold=1073741824:"
         "glibc.cpu.x86_rep_movsb_threshold=1073741824")


def of_requests(build, rounds):
    """What one request or document takes, by operation and by whose it is: medians of the rounds.

    Instructions are those in user space, by callgrind.
    """
    with servers.discarding(build, 5) as port, tempfile.TemporaryDirectory() as work:
        try:
            text = servers.run(
                ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={work}/profile",
                 build / "bin/LumRequestCost", port, rounds], stderr=subprocess.PIPE,
                env={**os.environ, "GLIBC_TUNABLES": PLAIN})
        except subprocess.CalledProcessError as failed:
            sys.exit(f"bench: LumRequestCost failed: {failed.stderr}")
        instructions = {}
        for profile in pathlib.Path(work).glob("profile.*"):
            match = re.search(r"^desc: Trigger: Client Request: (\S+ \S+)$.*^summary: (\d+)",
                              profile.read_text(), re.M | re.S)
            if match:
                instructions.setdefault(match[1], []).append(int(match[2]))
    allocations = {}
    for line in text.splitlines():
        name, count = line.rsplit(" ", 1)
        allocations.setdefault(name, []).append(int(count))
    found = {}
    for name, counted in allocations.items():
        operation, whose = name.split()
        found.setdefault(operation, {})[whose] = {
            "instructions": statistics.median_low(instructions[name]),
            "allocations": statistics.median_low(counted)}
    return found
