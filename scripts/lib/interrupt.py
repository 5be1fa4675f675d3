"""Interrupts scripts/demo and scripts/test, each at five moments: within 5 s all is over, and nothing
is left: no process, mount, file or control group. In namespaces of its own with an empty /tmp; needs
root."""

import os
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

from project import SOURCE, Failure, command_line, finish

LIMIT = 5  # seconds
# A text that is printed, and seconds after it.
DEMO = [("demo", "Building", 1), ("demo", "1. ", 0), ("demo", "2. ", 0.1), ("demo", "6. ", 0),
        ("demo", "10. ", 0)]
TEST = [("test", "== formatting", 1), ("test", "== build, dev", 2), ("test", "== unit tests, dev", 2),
        ("test", "== end-to-end tests", 20), ("test --packages", "== packages", 15)]
# The empty /tmp shows the project all the same.
_ENTER = """
set -e
mount --bind "$1" /mnt
mount -t tmpfs -o mode=1777 tmpfs /tmp
mkdir -p "$1"
mount --bind /mnt "$1"
umount /mnt
cd "$1"
shift
exec env NORVA_INSIDE=1 "$@"
"""


def processes():
    """All but this one, which is number 1."""
    found = []
    for directory in Path("/proc").glob("[0-9]*"):
        try:
            state = (directory / "stat").read_text().rpartition(") ")[2][0]
            words = (directory / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace")
        except OSError:
            continue
        if directory.name != "1" and state not in "ZX":
            found.append(f"{directory.name} {words}")
    return found


def traces():
    """What there is besides processes, a line each."""
    home = Path.home()
    files = [*Path("/tmp").iterdir(), *home.iterdir(), *home.glob(".config/*"),
             *home.glob(".cache/norva/making*"), *Path("/sys/fs/cgroup").glob("**/norva-machine*")]
    files += subprocess.run(["git", "ls-files", "--others", "--exclude-standard"], cwd=SOURCE, text=True,
                            check=True, stdout=subprocess.PIPE).stdout.splitlines()
    mounts = [" ".join(line.split()[3:]) for line in
              Path("/proc/self/mountinfo").read_text().splitlines()]
    return {*map(str, files), *mounts}


def interrupted(number, words, text, seconds):
    before = traces()
    process = subprocess.Popen([SOURCE / "scripts" / words.split()[0], *words.split()[1:]],
                               start_new_session=True, stdin=subprocess.DEVNULL,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    printed = []
    for line in process.stdout:
        printed.append(line)
        if line.startswith(text):
            break
    else:
        raise Failure(f"{words} ended before '{text}':\n{''.join(printed)}")
    rest = threading.Thread(target=lambda: printed.extend(process.stdout))
    rest.start()
    time.sleep(seconds)
    begun = time.monotonic()
    # As a terminal does, to all in its group, or as a service manager, to the script alone.
    os.kill(-process.pid if number % 2 else process.pid, signal.SIGINT)
    try:
        status = process.wait(30)
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)
    took = time.monotonic() - begun
    while processes() and time.monotonic() < begun + LIMIT:
        time.sleep(0.05)
    left = processes() + sorted(traces() - before)
    rest.join(5)
    print(f"{words}, {seconds} s after '{text.strip()}': over after {took:.1f} s, status {status}",
          flush=True)
    torn = words == "demo" and "Traceback" in "".join(printed)
    if left or took > LIMIT or status != 130 or torn:
        raise Failure("left:\n  " + "\n  ".join(left) + f"\nprinted at last:\n{''.join(printed[-30:])}")


def main():
    parser = command_line(__doc__)
    parser.add_argument("what", choices=["demo", "test"], nargs="?", help="only this one")
    options = parser.parse_args()
    if "NORVA_INSIDE" not in os.environ:
        return subprocess.run(
            ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-c",
             _ENTER, "sh", SOURCE, "/usr/bin/python3", "-B", *sys.argv], check=False,
            env={**os.environ, "TMPDIR": "/tmp"}).returncode
    for number, moment in enumerate([*(DEMO if options.what != "test" else []),
                                     *(TEST if options.what != "demo" else [])]):
        interrupted(number, *moment)
    print("passed")
    return 0


finish(main)
