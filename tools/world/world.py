"""A private world for the agent: the simulated unit, a real snmpd as AgentX master, the agent.

All of it runs in IPC, PID, mount and network namespaces of its own, as root or, through a user
namespace, as an ordinary user. The agent kills every process of its name when it ends and talks
over message queues with fixed keys, so nothing of it is ever started outside a world. What a world
started ends with it: its holder, process 1 inside, ends once the pipe on its standard input closes.

Paths in the work directory are the same inside and outside.
"""

import os
import re
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import time
from collections import namedtuple
from pathlib import Path

from manager import ROOT, Failure, Manager, SnmpError, Varbind, parse_varbinds  # noqa: F401, for users

SOURCE = Path(__file__).resolve().parents[2]
SYS_UPTIME = ".1.3.6.1.2.1.1.3.0"
ALARM_OBJECT = "0x0403"  # of the sample and of whoever floods

SCALARS = "SNMP_GENERAL_OBJ_TABLE"
CELLS = "SNMP_TABLE_OBJ_TABLE"

# Objects of every unit that a test describes: without an interval the agent sends heartbeats
# without a pause.
QUIET_HEARTBEAT = "0x0ffa unsigned 1 rw 255\n0x0ffb unsigned 1 rw 0\n"
# Seconds for what comes soon, but on a busy machine.
PATIENCE = 90
# No file that a program writes gets larger than this many bytes.
_FILE_LIMIT = 100_000_000

Frame = namedtuple("Frame", "direction bytes")

# The arguments are the work directory, the build directory and the directories to cover with an
# empty one; a covered directory that does not exist is made in a layer over its parent.
_SETUP = """
set -e
work=$1 build=$2
shift 2
ip link set lo up
mount --bind "$build" "$work/build"
for directory; do
  if [ ! -d "$directory" ]; then
    layer=$(mktemp -d "$work/layer.XXXXXX")
    parent=${directory%/*}
    mount -t tmpfs tmpfs "$layer"
    mkdir "$layer/upper" "$layer/work"
    mount -t overlay overlay \
      -o "lowerdir=$parent,upperdir=$layer/upper,workdir=$layer/work" "$parent"
    mkdir "$directory"
  fi
  mount -t tmpfs tmpfs "$directory"
done
echo ready
exec env --ignore-signal=CHLD cat
"""


class WorldError(Failure):
    """The world could not be made, or something expected in it did not come in time."""


def wait_until(condition, timeout=PATIENCE, what="condition"):
    """What `condition` returns, as soon as that is true. Failing managers' commands are false."""
    deadline = time.monotonic() + timeout
    while True:
        try:
            result = condition()
        except SnmpError:
            result = None
        if result:
            return result
        if time.monotonic() > deadline:
            raise WorldError(f"not within {timeout} s: {what}")
        time.sleep(0.02)


def scalar_row(object_id, suffix, *, type=2, access=2, method=0, name="object"):
    """SQL that adds a scalar to a mapping database. `suffix` is the last of the four."""
    return (f"INSERT INTO {SCALARS} VALUES ('{object_id:04X}', '0', '0', '{type:X}', '{access:X}',"
            f" '1', '1', '1', '{suffix}', '{method:X}', '0', '{name}', '0')")


def cell_row(object_id, column=2, row=1, *, node=".10.1", type=2, access=3, method=0):
    """SQL that adds a table cell to a mapping database."""
    return (f"INSERT INTO {CELLS} VALUES ('{object_id:04X}', '0', '{column}', '{type}', '{access}',"
            f" '{node}', '{method:X}', '0', 'cell', '{row}', '1', '0', '0')")


def empty_schema():
    """SQL for the two tables of a mapping database, without rows."""
    columns = ", ".join(f"c{number}" for number in range(13))
    return [f"CREATE TABLE {table} ({columns})" for table in (SCALARS, CELLS)]


class Process:
    """A program inside the world, with its output in a file unless that was directed elsewhere."""

    def __init__(self, popen, output):
        self._popen = popen
        self._output = output

    def output(self):
        return self._output.read_text(errors="replace")

    def running(self):
        return self._popen.poll() is None

    def pid(self):
        """Process id as seen from outside."""
        nsenter = self._popen.pid
        children = Path(f"/proc/{nsenter}/task/{nsenter}/children")
        return int(wait_until(children.read_text, what="a process in the world"))

    def signal(self, number):
        os.kill(self.pid(), number)
        if number == signal.SIGCONT:
            os.kill(self._popen.pid, number)  # nsenter stops when its child does

    def resident(self):
        """Resident memory in KiB."""
        status = Path(f"/proc/{self.pid()}/status").read_text()
        return int(re.search(r"VmRSS:\s*(\d+) kB", status)[1])

    def kill(self):
        if self.running():
            self.signal(signal.SIGKILL)
            os.kill(self._popen.pid, signal.SIGCONT)  # it may have been stopped, and nsenter with it
        self.wait()

    def wait(self, timeout=PATIENCE):
        """Exit status, negative for a signal."""
        return self._popen.wait(timeout)

    def reap(self):
        """Once the world ends. A program that was stopped has stopped its nsenter too, and does not
        leave the world before nsenter has seen its end."""
        def ended():
            if self.running():
                os.kill(self._popen.pid, signal.SIGCONT)
            return not self.running()
        wait_until(ended, 60, "a program's end with its world")


class World(Manager):
    """See the module. Use it as a context manager, or call close()."""

    def __init__(self, build=None, cover=(), network=None, address="127.0.0.1:1161"):
        """`build`: build directory, by default the environment's NORVA_BUILD or build/dev.
        `cover`: directories that are empty and writable inside, such as /home.
        `network`: another world, which outlives this one, to share the network of.
        `address`: where the master listens."""
        build = Path(build or os.environ.get("NORVA_BUILD") or SOURCE / "build/dev").resolve()
        self.directory = Path(tempfile.mkdtemp(prefix="norva-"))
        self.build = self.directory / "build"
        self.socket = self.directory / "master.sock"
        self.database = self.directory / "mapping.db"
        self.objects = self.directory / "unit.objects"
        self.record = self.directory / "frames"
        self.address = address
        self.agent = self.master = self.unit = None
        self._processes = []
        self.environment = dict(
            os.environ, LC_ALL="C", MIBS="", HOME=str(self.directory),
            PATH=os.environ["PATH"] + ":/usr/sbin:/sbin",
            SNMPCONFPATH=str(self.directory / "conf"),
            SNMP_PERSISTENT_DIR=str(self.directory / "persistent"),
            DASUNIT_CONTROL=str(self.directory / "unit.sock"))
        for name in ("build", "conf", "persistent"):
            (self.directory / name).mkdir()
        self.settings()
        shutil.copy(SOURCE / "data/unit.objects", self.objects)
        shutil.copy(build / "data/mapping.db", self.database)
        self._hold(build, cover, network)

    def settings(self, *lines, ping=1):
        """The configuration file of the agent "demo", for its next start: `lines`, and the seconds
        after which a lost master is looked for again."""
        (self.directory / "conf/demo.conf").write_text(
            "\n".join([f"agentxPingInterval {ping}", *lines, ""]))

    def _hold(self, build, cover, network):
        user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
        join_user = ["--user", "--preserve-credentials"] if user else []
        unshare = ["unshare", "--ipc", "--pid", "--mount", "--fork", "--mount-proc"]
        if network:
            unshare = ["nsenter", f"--target={network._holder.pid}", *join_user, "--net", *unshare]
        else:
            unshare += [*user, "--net"]
        self._holder = subprocess.Popen(
            [*unshare, "sh", "-c", _SETUP, "sh", self.directory, build, *cover],
            env=self.environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        if self._holder.stdout.readline() != "ready\n":
            reason = self._holder.communicate()[1].strip()
            self.close()
            raise WorldError("no private namespaces here: " + reason.replace("\n", "; "))
        pid = self._holder.pid
        self.enter = ["nsenter", f"--target={pid}", *join_user, "--ipc", "--mount", "--net",
                      f"--pid=/proc/{pid}/ns/pid_for_children", f"--wdns={self.directory}"]

    def close(self):
        self._holder.stdin.close()
        for process in self._processes:
            process.reap()
        self._holder.wait(60)
        self._holder.stdout.close()
        self._holder.stderr.close()
        shutil.rmtree(self.directory, ignore_errors=True)

    def show_logs(self):
        for log in sorted(self.directory.glob("*.log")):
            print(f"--- {log.name}", *log.read_text(errors="replace").splitlines()[-40:], sep="\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    # Programs inside

    def run(self, *command, timeout=PATIENCE, **options):
        """Runs a command to its end; a CompletedProcess with texts."""
        return subprocess.run([*self.enter, *command], env=self.environment, timeout=timeout,
                              capture_output=True, encoding="latin-1", **options)

    def inside(self, script):
        """The output of a shell script that must not fail."""
        result = self.run("sh", "-ec", script)
        assert result.returncode == 0, result.stderr
        return result.stdout

    def spawn(self, name, command, stdout=None, env=None):
        """Starts a program. Its standard output goes to the file NAME.log or to what is given, its
        standard error to NAME-errors.log."""
        output = self.directory / f"{name}.log"
        with open(output, "wb") as log, open(self.directory / f"{name}-errors.log", "wb") as errors:
            popen = subprocess.Popen([*self.enter, "prlimit", f"--fsize={_FILE_LIMIT}", "--core=0",
                                      *command], stdin=subprocess.DEVNULL,
                                     stdout=stdout or log, stderr=errors,
                                     env={**self.environment, **(env or {})})
        return self.adopt(popen, output)

    def adopt(self, popen, output=None):
        """A program that was started inside by other means: the world's end waits for it."""
        process = Process(popen, output)
        self._processes.append(process)
        return process

    def start_unit(self, objects=None, *args, record=True):
        """The simulated unit, ready. `objects` is text of an object file; default: the sample.
        Without `record` there are no frames(); it grows with every request."""
        if objects is not None:
            self.objects.write_text(QUIET_HEARTBEAT + objects)
        recording = ["--record", self.record] if record else []
        self.unit = self.spawn("unit", [self.build / "tools/dasunit/dasunit", "--objects",
                                        self.objects, *recording, *args])
        self.ctl("--wait", "10", "stats")

    def ctl(self, *words):
        """Sends the unit a command; its answer."""
        result = self.run(self.build / "tools/dasunit/dasunit", "ctl", *map(str, words))
        if result.returncode != 0:
            raise WorldError(f"dasunit ctl {' '.join(map(str, words))}: {result.stderr.strip()}")
        return result.stdout

    def flood(self, count):
        """Posts alarms, text 4 numbered from 1, as fast as the alarm queue takes them; the process
        that does."""
        return self.spawn("flood", [self.build / "tools/dasunit/dasunit", "ctl", "alarm", "raise",
                                    ALARM_OBJECT, "--count", str(count), "--numbered"])

    def hang(self, *oids, count=None):
        """The unit falls silent, for good or for `count` requests, and a manager asks for `oids`:
        that manager, its request being with the unit."""
        self.ctl("stats", "reset")
        self.ctl("fault", "silent", *(["--count", count] if count else []))
        manager = self.spawn("manager", ["snmpget", "-v2c", "-c", "public", "-Onx", "-r0", "-t30",
                                         self.address, *oids])
        wait_until(lambda: "faults 0\n" not in self.ctl("stats"), what="a request to the unit")
        return manager

    def held(self, object_id):
        """What the unit holds: (kind, width, access, value), value an int or a text."""
        _, kind, width, access, value = self.ctl("get", hex(object_id)).split(None, 4)
        value = value.strip()
        if kind != "text":
            return kind, int(width), access, int(value)
        plain = re.sub(r"\\(x..|.)", lambda escape: chr(int(escape[1][1:], 16))
                       if len(escape[1]) > 1 else escape[1], value[1:-1])
        return kind, int(width), access, plain

    def frames(self):
        """Every message so far between agent and unit; direction "rx" is to the unit."""
        self.ctl("sync")
        lines = [line.split() for line in self.record.read_text().splitlines()]
        return [Frame(words[1], bytes.fromhex("".join(words[2:]))) for words in lines]

    def requests(self, before):
        """What the unit was asked for behind the first `before` frames: the frames to it, without
        those for the heartbeat's objects."""
        return [frame.bytes for frame in self.frames()[before:]
                if frame.direction == "rx" and frame.bytes[3] != 0x0F]

    def writes(self, before):
        """Those of them that write."""
        return [frame for frame in self.requests(before) if frame[0] == 0x01]

    def start_master(self, conf="", prefix=()):
        """The master agent, answering. `conf`: more lines for its configuration; `prefix` is a
        command to run it under."""
        path = self.directory / "snmpd.conf"
        path.write_text(f"master agentx\nagentXSocket {self.socket}\n"
                        "rocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\n"
                        f"dontLogTCPWrappersConnects yes\n{conf}\n")
        self.master = self.spawn(
            "snmpd", [*prefix, "snmpd", "-f", "-Lf", self.directory / "snmpd-messages.log", "-C",
                      "-c", path, f"udp:{self.address}"],
            env={"SNMP_PERSISTENT_DIR": str(self.directory / "persistent-master")})
        wait_until(self.master_answers, what="snmpd's own sysUpTime")

    def master_answers(self):
        return self.get(SYS_UPTIME, timeout=1)[0].type == "Timeticks"

    def start_agent(self, args=None, *, database=None, env=None, stdout=None, prefix=(),
                    wait=True):
        """The agent attached to the master, its objects served if `wait`. `args` replaces all of
        its arguments, `database` only the one of -d; `prefix` is a command to run it under."""
        if args is None:
            args = ["-X", "-d", database or self.database, "-x", self.socket, "-n", "demo"]
        self.agent = self.spawn("agent", [*prefix, self.build / "norvaSnmp", *args], stdout, env)
        if wait:
            self.wait_served()

    def serve(self, rows=None, objects=None, **agent):
        """Unit, master and agent, with the sample or with a mapping made of `rows`, SQL."""
        if rows is not None:
            agent["database"] = self.make_database(*empty_schema(), *rows, base=False)
        self.start_unit(objects)
        self.start_master()
        self.start_agent(**agent)

    def wait_served(self, root=ROOT, timeout=PATIENCE):
        """Waits until the master answers for an object below `root`."""
        def served():
            return self.getnext(root, timeout=1)[0].oid.startswith(root + ".")
        wait_until(served, timeout, f"objects of the agent below {root}")

    def agent_output(self):
        return self.agent.output()

    def wait_output(self, text, timeout=PATIENCE, after=0):
        """Waits until the agent has printed `text`, behind the first `after` characters."""
        wait_until(lambda: text in self.agent_output()[after:], timeout, f"'{text}' printed")

    def make_database(self, *sql, base=None):
        """A copy of the mapping database `base` (default: the sample) changed by SQL statements,
        or one made by them alone with `base` False. Returns its path."""
        with tempfile.NamedTemporaryFile(dir=self.directory, suffix=".db", delete=False) as file:
            path = Path(file.name)
        if base is not False:
            shutil.copy(base or self.database, path)
        with sqlite3.connect(path) as database:
            for statement in sql:
                database.execute(statement)
        database.close()
        return path

    def scalars(self):
        """The scalars of the sample database by name: {name: (OID, the row's columns)}."""
        database = sqlite3.connect(self.database)
        rows = database.execute(f"SELECT * FROM {SCALARS}").fetchall()
        database.close()
        return {row[11]: (".".join([ROOT, *row[5:9], "0"]), row) for row in rows}
