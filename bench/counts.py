"""Prints instructions and cache misses that valgrind counted: counts.py DIRECTORY, with a file for each work."""

import pathlib
import sys

directory = pathlib.Path(sys.argv[1])


def counted(work):
    """Instructions and last-level misses, without libcrypto: valgrind lacks the processor's instructions for SHA-256."""
    instructions = misses = 0
    names = {}  # of objects, which a file abbreviates
    is_left_out = is_of_a_call = False
    for line in (directory / work).read_text().splitlines():
        if line.startswith(("ob=", "cob=")):
            number, _, name = line.partition("=")[2].partition(" ")
            names.setdefault(number, name)
            if line.startswith("ob="):
                is_left_out = "libcrypto" in names[number]
        elif line.startswith("calls="):
            is_of_a_call = True  # the next line repeats the costs of the function that is called
        elif line[:1].isdigit() or line[:1] in "+-*":
            if not is_left_out and not is_of_a_call:
                costs = [int(cost) for cost in line.split()[1:]] + [0] * 9
                instructions += costs[0]
                misses += costs[6] + costs[7] + costs[8]
            is_of_a_call = False
    return instructions, misses


print(f"{'work':<28}{'instructions':>14}{'misses':>10}   to {'':<28}{'instr.':>7}{'misses':>7}")
for work, *yards in (line.split() for line in sys.stdin):
    own = counted(work)
    yard = [sum(kind) for kind in zip(*map(counted, yards))]
    ratios = "".join(f"{a / b:>7.2f}" for a, b in zip(own, yard))
    to = " + ".join(yards).replace("yard_rapidjson_", "")
    print(f"{work:<28}{own[0] / 1e6:>12.1f} M{own[1] / 1e3:>8.0f} k   {to:<31}{ratios}")
