"""Measures the agent beside the floor, a minimal subagent (bench/floor.cpp), and prints a table; what
it means stands in bench/README.md. Everything runs on one processor, in private namespaces, with a
real snmpd. Builds what it needs.

The contestants take turns, a slice of each case at a time, for as many rounds as are asked for. What
is compared is the processor time of all programs of a contestant per request, which the neighbours of
a busy machine change less than the time on the clock."""

import os
import shutil
import statistics
import subprocess

from project import SOURCE, Failure, build, command_line, finish, install, run

from contestant import CASES, Contestant

BUILD = SOURCE / "build/dev"


def build_commit(ref):
    """The agent of another commit, built in build/bench/COMMIT."""
    commit = run("git", "rev-parse", "--short=12", "--verify", f"{ref}^{{commit}}").strip()
    directory = SOURCE / "build/bench" / commit
    tree = directory / "source"
    if not (directory / "norvaSnmp").exists():
        run("git", "worktree", "prune")
        shutil.rmtree(directory, ignore_errors=True)
        run("git", "worktree", "add", "--force", "--detach", tree, commit)
        try:
            run("cmake", "-S", tree, "-B", directory, "-G", "Ninja", "-DNORVA_TOOLS=OFF",
                "-DNORVA_TESTS=OFF", "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_COMPILER=g++")
            run("cmake", "--build", directory, "--target", "norvaSnmp")
        finally:
            run("git", "worktree", "remove", "--force", tree)
    return directory / "norvaSnmp"


def median(values):
    """The median and its standard error, from the distance between the quartiles."""
    if len(values) < 3:
        return statistics.median(values), 0
    low, middle, high = statistics.quantiles(values, n=4)
    return middle, 0.93 * (high - low) / len(values) ** 0.5


def rates(contestants, rounds, slice_ms):
    """{case: {contestant: [(requests per second on the clock, µs of processor a request)]}}"""
    results = {case: {c.name: [] for c in contestants} for case in CASES}
    for number in range(rounds):
        for case in CASES:
            turn = number % len(contestants)
            for contestant in contestants[turn:] + contestants[:turn]:
                count, wall, cpu = contestant.slice(case, slice_ms)
                results[case][contestant.name].append((count / wall, cpu / count * 1e6))
        for contestant in contestants:
            contestant.forget_trace()
    return results


def print_rates(results, names):
    floors, others = names[:2], names[2:]
    print("\nSpeed against the floor, 1.00: as fast as it (processor time; median of the rounds ±"
          "\nits standard error). The second floor is the noise.\n")
    print(f"{'case':12}{'floor':>16}{'second floor':>15}", *[f"{name:>17}" for name in others])
    for case, by_name in results.items():
        rate = statistics.median(rate for rate, _ in by_name[floors[0]])
        cost, _ = median([cost for _, cost in by_name[floors[0]]])
        cells = []
        for name in names[1:]:
            base = floors[:1] if name == floors[1] else floors
            ratio = [statistics.mean(by_name[floor][i][1] for floor in base) / measured[1]
                     for i, measured in enumerate(by_name[name])]
            cells.append("{:.3f} ± {:.3f}".format(*median(ratio)))
        print(f"{case:12}{rate:7.0f}/s{cost:5.0f} µs{cells[0]:>15}",
              *[f"{cell:>17}" for cell in cells[1:]])
    print("\nOn the clock, a second:")
    for case, by_name in results.items():
        print(f"{case:12}" + "".join(
            f"{name:>18} {statistics.median(rate for rate, _ in by_name[name]):6.0f}"
            for name in names[1:]))


def print_start_and_memory(programs):
    print("\nStart to first answer (the agent sleeps 1 s in between), resident memory")
    for what, database in (("sample", None), ("10,000 cells", "cells")):
        for name, program in programs.items():
            with Contestant(name, program, BUILD, mapping=database or "sample") as contestant:
                print(f"  {name:18}{what:14}{contestant.started:6.2f} s"
                      f"{contestant.resident() / 1024:8.1f} MB")


def print_growth(contestant, count):
    """A million GETs: what the memory is before the last nine tenths of them and after."""
    done = contestant.requests("get-eight", count // 10)
    before = contestant.resident()
    done += contestant.requests("get-eight", count - done)
    grown = contestant.resident() - before
    print(f"\nGrowth over {done:,} GETs: {grown} KiB")
    if grown > 512:
        raise Failure("memory has grown")


def print_instructions(programs):
    print("\nInstructions of the subagent a request, outside the kernel\n")
    print(f"{'case':12}", *[f"{name:>18}" for name in programs])
    contestants = [Contestant(name, program, BUILD, counting=True)
                   for name, program in programs.items()]
    try:
        for case in CASES:
            counts = [contestant.instructions(case, 300) for contestant in contestants]
            print(f"{case:12}", *[f"{count:18,}" for count in counts], flush=True)
    finally:
        for contestant in contestants:
            contestant.close()


def measure(options, agents):
    """`agents`: programs by name."""
    contestants = []
    try:
        for name in ("floor", "second floor"):
            contestants.append(Contestant(name, "floor", BUILD))
        for name, program in agents.items():
            contestants.append(Contestant(name, program, BUILD))
            contestants.append(Contestant(f"{name}, untraced", program, BUILD, trace=False))
        if not options.quick:
            contestants.append(Contestant("six calls", "six calls", BUILD))
            contestants.append(Contestant("agent, /dev/null", agents["agent"], BUILD,
                                          output=subprocess.DEVNULL))
        results = rates(contestants, options.rounds, options.slice)
        print_rates(results, [contestant.name for contestant in contestants])
        if not options.quick:
            print_growth(contestants[-1], 1_000_000)
    finally:
        for contestant in contestants:
            contestant.close()


def main():
    parser = command_line(__doc__)
    parser.add_argument("--quick", action="store_true",
                        help="each case once or twice: whether all of it works")
    parser.add_argument("--compare", metavar="REF", help="the agent of another commit too")
    parser.add_argument("--instructions", action="store_true",
                        help="count instructions instead (valgrind): small steps, no noise")
    parser.add_argument("--rounds", type=int, help="default 100, quick 2")
    parser.add_argument("--slice", type=int, default=20, metavar="MS", help="default 20")
    parser.add_argument("--cpu", type=int, default=max(os.sched_getaffinity(0)),
                        help="processor, default the last one")
    options = parser.parse_args()
    install("bench")
    options.rounds = options.rounds or (2 if options.quick else 100)
    build("dev")
    agents = {"agent": BUILD / "norvaSnmp"}
    if options.compare:
        agents[options.compare] = build_commit(options.compare)
    os.sched_setaffinity(0, {options.cpu})  # of everything that is started from here on
    if options.instructions:
        print_instructions({"floor": "floor", "six calls": "six calls", **agents})
        return
    measure(options, agents)
    print_start_and_memory({"floor": "floor", **agents})


finish(main)
