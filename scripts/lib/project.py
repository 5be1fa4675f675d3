"""What the scripts share: the project's modules, options, building, and an end that leaves nothing."""

import argparse
import ctypes
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(SOURCE / "tools/world"), str(SOURCE / "bench")]

from world import Failure  # noqa: E402

_PR_SET_CHILD_SUBREAPER = 36
_installing = _interrupted = False


def command_line(description):
    """A parser of the script's options."""
    return argparse.ArgumentParser(prog=f"scripts/{Path(sys.argv[0]).stem}", description=description,
                                   formatter_class=argparse.RawDescriptionHelpFormatter)


def run(*command, **options):
    """The output of a command that must not fail, both streams."""
    result = subprocess.run(command, cwd=SOURCE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, check=False, **options)
    if result.returncode != 0:
        raise Failure(f"{' '.join(map(str, command))}\n{result.stdout[-5000:]}")
    return result.stdout


def install(*purposes):
    """Installs the packages that these purposes of scripts/deps need. Once dpkg is at work it is
    not interrupted: what would end this script does so afterwards."""
    global _installing
    _installing = True
    status = subprocess.run([SOURCE / "scripts/deps", *purposes], check=False).returncode
    _installing = False
    if _interrupted:
        raise KeyboardInterrupt
    if status != 0:
        raise Failure(f"scripts/deps {' '.join(purposes)}: status {status}")


def build(preset, *targets, quiet=True):
    """Builds a preset, or these targets of it; its directory. Unless `quiet`, tells how far it is:
    on a terminal each second, else each ten."""
    run("cmake", "--preset", preset)
    command = ["cmake", "--build", "--preset", preset, *(["--target", *targets] if targets else [])]
    process = subprocess.Popen(command, cwd=SOURCE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               text=True)
    log = []
    begun = shown = time.monotonic()
    terminal = sys.stdout.isatty()
    for line in process.stdout:
        log.append(line)
        step = re.match(r"\[(\d+/\d+)\]", line)
        if step and not quiet and time.monotonic() - shown > (1 if terminal else 10):
            shown = time.monotonic()
            print(f"   {step[1].replace('/', ' of ')}, {shown - begun:.0f} s",
                  end="\r" if terminal else "\n", flush=True)
    if process.wait() != 0:
        raise Failure(f"{' '.join(command)}\n{''.join(log)[-5000:]}")
    if not quiet:
        print(f"   built in {time.monotonic() - begun:.0f} s", flush=True)
    return SOURCE / "build" / preset


def finish(work, patience=2):
    """Does a script's work and ends with its status, or with what has failed. Whatever it started
    ends with it, and its temporary files are gone: also after Ctrl-C and SIGTERM, which give the
    work `patience` seconds to end things in their order before all its processes are killed."""
    def interrupted(*_):
        global _interrupted
        _interrupted = True
        _ignore_signals()
        for pid in list((_descendants if _installing else _children)(os.getpid())):
            _signal(-pid if _leads_group(pid) else pid, signal.SIGINT)
        if _installing:
            return
        threading.Thread(target=_end_all, args=[patience], daemon=True).start()
        raise KeyboardInterrupt
    for number in _ENDING:
        if number != signal.SIGHUP or signal.getsignal(number) != signal.SIG_IGN:  # nohup
            signal.signal(number, interrupted)
    sys.stdout.reconfigure(line_buffering=True)
    # What loses its parent becomes a child of this process, and so is found.
    ctypes.CDLL(None).prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    # Also of this process, which has looked the directory up by then.
    temporary = tempfile.tempdir = os.environ["TMPDIR"] = tempfile.mkdtemp(prefix="norva-")
    try:
        status = work()
    except (Failure, AssertionError, subprocess.TimeoutExpired) as failure:
        status = f"{failure}\nfailed"
    except KeyboardInterrupt:
        status = 130
        _end_all(patience)
    finally:
        _ignore_signals()
        _kill_all()
        shutil.rmtree(temporary, ignore_errors=True)
    sys.exit(status)


_ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def _ignore_signals():
    for number in _ENDING:
        signal.signal(number, signal.SIG_IGN)


def _children(pid):
    for task in Path(f"/proc/{pid}/task").glob("*/children"):
        try:
            yield from map(int, task.read_text().split())
        except OSError:  # it has ended
            pass


def _descendants(pid):
    for child in _children(pid):
        yield child
        yield from _descendants(child)


def _signal(pid, number):
    try:
        os.kill(pid, number)
    except OSError:  # it has ended, or is root's by sudo
        pass


def _leads_group(pid):
    try:
        return os.getpgid(pid) == pid
    except OSError:  # it has ended
        return False


def _end_all(patience):
    """Gives what runs so many seconds to end by itself, then kills it."""
    end = time.monotonic() + patience
    while _running() and time.monotonic() < end:
        time.sleep(0.02)
        _reap()
    _kill_all()


def _running():
    return [pid for pid in _descendants(os.getpid()) if _state(pid) not in "XZ"]


def _kill_all():
    """Kills all that this process has started, directly or not, until nothing of it runs."""
    for _ in range(100):
        running = _running()
        if not running:
            return
        for pid in running:
            _signal(pid, signal.SIGKILL)
        time.sleep(0.02)
        _reap()


def _reap():
    """A namespace ends only when somebody has seen the end of all that was in it."""
    for pid in _children(os.getpid()):
        if _state(pid) == "Z":
            try:
                os.waitpid(pid, os.WNOHANG)
            except ChildProcessError:  # its own thread was faster
                pass


def _state(pid):
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2][0]
    except OSError:
        return "X"
