"""Tries scripts/demo as a newcomer would, on a fresh Debian 12 of the fewest packages: what it
installs, how long it takes, that a second one from a fresh clone works, and that the machine, booted
under systemd, listens nowhere where it did not before. Needs root and the network."""

import os
import subprocess
import tempfile
import time
from pathlib import Path

from project import SOURCE, Failure, command_line, finish, install, run

from machine import Machine, Unavailable, debootstrap

# The argument is the root; then a command, run in it. The network is this machine's.
_ENTER = """
set -e
mount --make-rprivate /
mount --bind "$1" "$1"
cd "$1"
shift
mount -t proc proc proc
mount --rbind /dev dev
pivot_root . mnt
umount -l mnt
exec env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"
"""


def inside(root, *command):
    """The output of a command in the root, printed as it comes."""
    process = subprocess.Popen(
        ["unshare", "--mount", "--pid", "--ipc", "--fork", "--kill-child", "sh", "-c", _ENTER, "sh",
         root, *command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    lines = []
    for line in process.stdout:
        print("  |", line, end="", flush=True)
        lines.append(line)
    if process.wait() != 0:
        raise Failure(f"{' '.join(command)}: status {process.returncode}")
    return "".join(lines)


def packages(root):
    return set(run("dpkg-query", "--admindir", f"{root}/var/lib/dpkg", "-W", "-f",
                   "${Package}\n").split())


def megabytes(directory):
    left_out = [f"--exclude={directory}/{part}" for part in ("root", "var/cache", "var/lib/apt")]
    return int(run("du", "-smx", *left_out, directory).split()[0])


def clone(root):
    """The working tree without what is built, as git would have it."""
    run("rm", "-rf", f"{root}/root/norva")
    os.makedirs(f"{root}/root/norva")
    files = run("git", "ls-files", "-z", "--cached", "--others", "--exclude-standard")
    run("tar", "-c", "--null", "-T", "-", "-f", f"{root}/root/tar", input=files)
    run("tar", "-x", "-f", f"{root}/root/tar", "-C", f"{root}/root/norva", "--no-same-owner")


def demo(root, *options):
    """Seconds of a demonstration from a fresh clone."""
    clone(root)
    begun = time.monotonic()
    inside(root, "/root/norva/scripts/demo", *options)
    return time.monotonic() - begun


def boot(root):
    """What listens after a boot: a line each."""
    inside(root, "apt-get", "install", "-qqy", "--no-install-recommends", "systemd", "systemd-sysv")
    with Machine(Path(tempfile.mkdtemp()), root) as machine:
        return machine.shell("ss --no-header --listening --tcp --udp --numeric --processes")


def main():
    parser = command_line(__doc__)
    parser.add_argument("--monitor", action="store_true", help="scripts/demo --monitor")
    options = parser.parse_args()
    install("trial")
    words = ["--monitor"] if options.monitor else []
    root = Path(tempfile.mkdtemp()) / "root"
    try:
        debootstrap(root, "--variant=minbase")
        (root / "etc/resolv.conf").write_text(Path("/etc/resolv.conf").read_text())
        before, size = packages(root), megabytes(root)
        first = demo(root, *words)
        print(f"{len(packages(root) - before)} packages, {megabytes(root) - size} MB on the disk, "
              f"{first:.0f} s in all")
        print(f"once more from a fresh clone: {demo(root, *words):.0f} s")
        listening = boot(root)
    except Unavailable as reason:
        print(f"SKIPPED: {reason}")
        return 0
    if listening:
        raise Failure(f"listens after a boot:\n{listening}")
    print("booted: nothing listens")
    return 0


finish(main)
