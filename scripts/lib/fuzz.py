"""Builds the fuzz targets (tests/fuzz) and runs them, two at a time, from their seeds and from what
earlier runs have found worth keeping (build/fuzz/corpus).

Prints how often each was executed. The status is 0 only if nothing was found; the input of a
finding is saved in build/fuzz/findings and its report printed. Once more with it:

    build/fuzz/fuzz/fuzz_TARGET build/fuzz/findings/TARGET-crash-...
"""

import os
import re
import shutil
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor

from project import SOURCE, build, command_line, finish, install

BUILD = SOURCE / "build/fuzz"
SEEDS = SOURCE / "tests/fuzz/corpus"


def run(target, options):
    """(what is to be printed, whether nothing was found)."""
    corpus, findings = BUILD / "corpus" / target, BUILD / "findings"
    for directory in (corpus, findings):
        directory.mkdir(parents=True, exist_ok=True)
    command = [BUILD / "fuzz" / f"fuzz_{target}", "-close_fd_mask=1", "-print_final_stats=1",
               "-timeout=20", "-rss_limit_mb=1500", "-max_len=1200",
               "-entropic_scale_per_exec_time=1",  # rather many small inputs than a few large ones
               f"-artifact_prefix={findings}/{target}-"]
    if options.runs is not None:
        command.append(f"-runs={options.runs}")
    if options.seconds is not None:
        command.append(f"-max_total_time={options.seconds}")
    symbolizer = shutil.which("llvm-symbolizer-14") or shutil.which("llvm-symbolizer") or ""
    environment = {**os.environ, "ASAN_SYMBOLIZER_PATH": symbolizer,
                   # Freed memory stays in the processor's cache. Where it was allocated, the run
                   # by hand tells that is named above.
                   "ASAN_OPTIONS": "quarantine_size_mb=1:thread_local_quarantine_size_kb=64:"
                                   "malloc_context_size=0",
                   "UBSAN_OPTIONS": "print_stacktrace=1"}
    log = BUILD / f"{target}.log"
    begun = time.monotonic()
    with open(log, "w") as output:
        status = subprocess.run([*command, corpus, SEEDS / target], env=environment,
                                stdout=output, stderr=subprocess.STDOUT).returncode
    text = log.read_text(errors="replace")
    executions = re.search(r"stat::number_of_executed_units:\s*(\d+)", text)
    line = (f"{target}: {executions[1] if executions else 'unknown'} executions, "
            f"{time.monotonic() - begun:.0f} s")
    if status == 0 and executions:
        return line, True
    saved = re.findall(r"Test unit written to (\S+)", text)
    return (f"{text[-8000:]}\n{line}, FOUND, status {status}: "
            f"{' '.join(saved) or log}"), False


def main():
    targets = sorted(directory.name for directory in SEEDS.iterdir())
    parser = command_line(__doc__)
    parser.add_argument("--seconds", type=int, help="of each target, default 10 without --runs")
    parser.add_argument("--runs", type=int, help="executions of each target")
    parser.add_argument("--jobs", type=int, default=2, help="targets at a time, default 2")
    parser.add_argument("targets", nargs="*", metavar="TARGET",
                        help=f"default all: {', '.join(targets)}")
    options = parser.parse_args()
    for target in options.targets:
        if target not in targets:
            parser.error(f"no target '{target}'")
    if options.seconds is None and options.runs is None:
        options.seconds = 10
    install("fuzz")
    build("fuzz")
    clean = True
    with ThreadPoolExecutor(options.jobs) as pool:
        for text, passed in pool.map(lambda target: run(target, options),
                                     options.targets or targets):
            print(text, flush=True)
            clean = clean and passed
    print("nothing found" if clean else "failed")
    return 0 if clean else 1


finish(main)
