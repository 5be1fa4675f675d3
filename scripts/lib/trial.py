"""Tries Debian packages on a fresh Debian 12 in which systemd runs, see
tools/world/machine.py: installed, used as an administrator and a manager would, upgraded with
edited configuration, removed, installed again, purged; then, on another one, the monitoring. The
last line is the result.

The first time it makes the root of that machine, in ~/.cache/norva. Where there can be none, all is
skipped, with the reason.
"""

import os
import re
import shutil
import subprocess
import tempfile
import time
import traceback
from pathlib import Path

from project import SOURCE, Failure, command_line, finish, install
from trial_monitoring import MonitoringTrial

from machine import Machine, Unavailable, make_root
from world import wait_until

PACKAGES = ["norvasnmp", "norvasnmp-tools"]
SERVICES = ["norvasnmp.service", "dasunit.service"]
NEXT = "99"  # version of the upgrade
ROUNDS = int(os.environ.get("NORVA_ROUNDS", "3"))  # starts of a service behind the agent's
EXPOSURE = 5  # most that `systemd-analyze security` may find, in tenths
AUTH, PRIV = "an auth phrase", "a priv phrase"
# The administrator's own files.
SETTINGS, SNIPPET = "/etc/snmp/norvasnmp.local.conf", "/etc/snmp/snmpd.conf.d/norvasnmp-local.conf"
SOCKET = "/run/agentx/master"
UP_TIME = ".1.3.6.1.2.1.1.3.0"
BASE = ".1.3.6.1.4.1.53412.8.2.2.3.3.1.1.0"

# What no package answers for: the records of apt, dpkg and systemd, copies of the lists of users.
_FOREIGN = re.compile(
    r"/(home|mnt|var/(cache|log|lib/(apt|dpkg|systemd/(random-seed|timers|catalog)))|"
    r"etc/\.pwd\.lock|etc/(passwd|group|shadow|gshadow)-)(/| |$)")
_LISTING = """
find / -xdev \\( -path /proc -o -path /sys -o -path /dev -o -path /run -o -path /tmp \\) -prune \
  -o -printf '%p %M %u:%g\\n'
find /etc -type f ! -name '*-' -exec sha256sum {} +
"""


class Trial:
    """The machine with the packages. A check is one method that shows by assertions."""

    LOGS = ["norvasnmp", "dasunit", "snmpd"]

    def __init__(self, machine):
        self.machine = machine
        self.shell = machine.shell
        self.shell("useradd --create-home user")
        self.before = self.listing()

    def listing(self):
        lines = self.shell(_LISTING).splitlines()
        return {line for line in lines if not _FOREIGN.match(line[line.index("/"):])}

    def done(self, command, **options):
        """Runs a command that must not fail; its output."""
        result = self.machine.run("sh", "-c", f"exec 2>&1\n{command}", **options)
        assert result.returncode == 0, f"{command}: {result.stdout.strip()[-600:]}"
        return result.stdout

    def apt(self, *words):
        """Without a terminal, and without a word about whose configuration counts."""
        return self.done("apt-get --yes --quiet " + " ".join(words))

    def state(self, service):
        """Its properties, by name."""
        properties = "ActiveState,Result,UnitFileState,MainPID,NRestarts"
        lines = self.shell(f"systemctl show --property={properties} {service}").splitlines()
        return dict(line.split("=", 1) for line in lines)

    def unit(self, *words):
        return self.done("DASUNIT_CONTROL=/run/dasunit/control dasunit ctl " + " ".join(words))

    def manager(self, tool, *words, user="norva", level="authPriv", auth=AUTH, privacy=PRIV,
                context="", patience=15):
        """What an ordinary user's command prints, with names."""
        return self.shell(
            f"{tool} -v3 -u {user} -l {level} -a SHA-256 -A '{auth}' -x AES -X '{privacy}' -r0 "
            f"{context} -t{patience} -m NORVA-MIB:NORVA-NOTIFY-MIB -OQs 127.0.0.1 {' '.join(words)}",
            user="user")

    def wait_served(self):
        wait_until(lambda: "= Harbour" in self.manager("snmpget", "siteName.0"), 30,
                   "the unit's objects seen by a manager")

    def received(self):
        """Text 4 of each alarm that the receiver got."""
        return re.findall(rf"{re.escape(BASE)}\.4 = STRING: \"(.*?)\"",
                          self.shell("cat /tmp/received"))

    def wait_received(self, text):
        wait_until(lambda: text in self.received(), 20, f"the alarm '{text}' received")

    # The checks, in their order

    def installed(self):
        """apt installs both; nothing starts without a mapping, and nothing failed."""
        self.apt("install", "/mnt/*_*.deb")
        agent, unit = [self.state(service) for service in SERVICES]
        assert (agent["UnitFileState"], agent["ActiveState"]) == ("enabled", "inactive"), agent
        assert (unit["UnitFileState"], unit["ActiveState"]) == ("disabled", "inactive"), unit
        assert self.shell("systemctl is-system-running") == "running\n"
        assert self.shell(f"stat -c '%a %U:%G' {SNIPPET}") == "640 root:Debian-snmp\n"

    def units_verified(self):
        """systemd has nothing to say about the units, and finds them as closed as they can be."""
        for service in SERVICES:
            assert self.done(f"systemd-analyze verify --man=no {service}") == ""
            report = self.done(f"systemd-analyze security --threshold={EXPOSURE} {service}")
            print("  ", re.search(r"Overall .*: [\d.]+ \w+", report)[0])

    def started(self):
        """What norvaSnmp(8) tells to do before the first start, a receiver, and the services."""
        self.done(f"""set -e
            systemctl stop snmpd
            printf 'createUser %s SHA-256 "{AUTH}" AES "{PRIV}"\\n' norva norvaconfig \
              >> /var/lib/snmp/snmpd.conf
            echo 'trap2sink 127.0.0.1:1162 public' >> {SNIPPET}
            echo 'norvaBacklog 500' > {SETTINGS}
            printf '%s\\n' 'authCommunity log public' > /tmp/receiver.conf
            systemd-run --quiet --unit=receiver env MIBS= SNMP_PERSISTENT_DIR=/tmp snmptrapd -f \
              -C -c /tmp/receiver.conf -On -Lf /tmp/received udp:127.0.0.1:1162
            systemctl start snmpd
            cp /usr/share/norvasnmp/sample/mapping.db /etc/norvasnmp/
            systemctl start {" ".join(SERVICES)}""")
        self.done("mkdir -p ~/.snmp/mibs && norvamap mib /etc/norvasnmp/mapping.db "
                  "--names /usr/share/norvasnmp/sample/names.yaml > ~/.snmp/mibs/NORVA-MIB.txt",
                  user="user")
        self.wait_served()
        users = self.done("ps -o comm=,user:20= -C norvaSnmp,dasunit,snmpd").split()
        assert dict(zip(users[::2], users[1::2])) == {
            "norvaSnmp": "_norvasnmp", "dasunit": "_dasunit", "snmpd": "Debian-snmp"}, users

    def polled_by_name(self):
        """An ordinary user, SNMPv3 authPriv; the MIB modules are found by both readers of them."""
        self.unit("set 0x0301 78")
        answer = self.manager("snmpget", "boardTemperature.0")
        assert answer.startswith("boardTemperature.0 = 78"), answer
        walked = self.manager("snmpwalk", "norvaMIB").splitlines()
        assert len(walked) > 400 and not any("No " in line for line in walked), walked[-3:]
        for module in ("NORVA-NOTIFY-MIB", "NORVA-AGENT-MIB"):
            assert self.shell(f"smilint -l 3 {module}") == ""

    def completed(self):
        """What bash completes, by the files that it finds by itself."""
        for line, expected in (("dasunit ctl ala", "alarm"), ("dasunit ctl alarm ", "raise clear"),
                               ("norvamap l", "list"), ("norvamap mib --n", "--names"),
                               ("norvamap exporter --a", "--access")):
            words = " ".join(f"'{word}'" for word in line.split(" "))
            script = (f". /usr/share/bash-completion/bash_completion; COMP_WORDS=({words}); "
                      f"COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); COMP_LINE='{line}' "
                      f"COMP_POINT={len(line)}; "
                      f"_completion_loader $COMP_WORDS; _$COMP_WORDS; echo ${{COMPREPLY[@]}}")
            answer = self.machine.run("bash", "-c", script)
            assert answer.stdout == f"{expected}\n", (line, answer.stdout, answer.stderr)

    def others_refused(self):
        """Everybody else, at every door."""
        for options in ({"level": "authNoPriv"}, {"level": "noAuthNoPriv"}, {"user": "nobody"},
                        {"auth": "another phrase"}, {"privacy": "another phrase"},
                        {"context": "-n DAS_NORVA"}):
            answer = self.manager("snmpget", "siteName.0", patience=2, **options)
            assert "siteName.0 =" not in answer, (options, answer)
        for version in ("1", "2c"):
            self.shell(f"snmpset -v{version} -c public -r0 -t2 -m NORVA-MIB 127.0.0.1 "
                       "fanSpeedSetpoint.0 i 2500", user="user")
        assert self.unit("get 0x030a").split()[-1] == "2800"
        community = self.shell("snmpwalk -v2c -c public -On 127.0.0.1 .1.3.6.1.4.1", user="user")
        assert "53412" not in community, community
        assert self.shell(f"test -S {SOCKET} && echo seen", user="user") == "seen\n"
        assert self.machine.run("test", "-w", SOCKET, user="user").returncode == 1
        assert self.machine.run("test", "-w", SOCKET, user="_norvasnmp").returncode == 0

    def alarm_received(self):
        self.unit("alarm raise 0x0403 --device-id 8 --text4 first")
        self.wait_received("first")

    def written(self):
        """An accepted SET changes the unit, a refused one nothing; who polls is refused."""
        assert "noAccess" in self.manager("snmpset", "fanSpeedSetpoint.0 i 2600")
        for words, expected in (("fanSpeedSetpoint.0 i 2500", "fanSpeedSetpoint.0 = 2500"),
                                ("fanSpeedSetpoint.0 i 70000", "wrongValue"),
                                ("boardTemperature.0 i 1", "notWritable")):
            answer = self.manager("snmpset", words, user="norvaconfig")
            assert expected in answer, (words, answer)
        assert self.unit("get 0x030a").split()[-1] == "2500"

    def journal_quiet(self):
        """A walk prints nothing; the line of the refused SET is the last one."""
        def lines():
            time.sleep(0.5)  # what the agent prints leaves within a tenth of it
            return self.done("journalctl --sync; journalctl --quiet --output=cat --unit=norvasnmp")
        wait_until(lambda: "refused: wrongValue" in lines(), 10, "the refused SET in the journal")
        before = lines()
        self.manager("snmpwalk", "norvaMIB")
        assert lines() == before

    def stopped_alone(self):
        """The stop ends this service only, cleanly and soon; what comes meanwhile is not lost."""
        self.done("install -m 755 /bin/sleep /tmp/norvaSnmp")
        for user in ("user", "root", "_dasunit"):
            self.done(f"systemd-run --quiet --unit=decoy-{user} --property=User={user} "
                      "/tmp/norvaSnmp 600")
        began = time.monotonic()
        self.done("systemctl stop norvasnmp")
        assert time.monotonic() - began < 6
        state = self.state("norvasnmp")
        assert (state["ActiveState"], state["Result"]) == ("inactive", "success"), state
        decoys = self.done("ps -o user:20= -C norvaSnmp | sort").split()
        assert decoys == ["_dasunit", "root", "user"], decoys
        assert self.done("systemctl is-active dasunit snmpd").split() == ["active"] * 2
        self.unit("alarm raise 0x0403 --text4 meanwhile")
        self.done("systemctl start norvasnmp")
        self.wait_received("meanwhile")

    def restarted(self):
        """By systemd after a kill; by itself attached again after snmpd's restart."""
        killed = self.state("norvasnmp")["MainPID"]
        self.done(f"kill -9 {killed}")
        wait_until(lambda: self.state("norvasnmp")["MainPID"] not in ("0", killed), 10,
                   "the service started again")
        self.wait_served()
        self.done("systemctl restart snmpd")
        self.wait_served()

    def status(self, text):
        """Waits until the service says so."""
        shown = "systemctl show --property=StatusText --value norvasnmp"
        wait_until(lambda: self.shell(shown).startswith(text), 30, f"the status '{text}'")

    def told(self):
        """Who is started behind the service finds managers served; the service says how it is, and
        holds up nobody who waits for its start."""
        self.status("serving ")
        ask = (f"snmpget -v3 -u norva -l authPriv -a SHA-256 -A '{AUTH}' -x AES -X '{PRIV}' -r0 -t20 "
               "-Oqv 127.0.0.1 .1.3.6.1.4.1.53412.8.2.2.4.1.1.1.6.0 .1.3.6.1.4.1.53412.8.2.2.9.1.0")
        self.done("cat > /run/systemd/system/asker.service <<END\n[Unit]\nWants=norvasnmp.service\n"
                  "After=norvasnmp.service\n[Service]\nType=oneshot\n"
                  f"ExecStart=sh -c \"{ask} | tee /tmp/answer\"\nEND\nsystemctl daemon-reload")
        for _ in range(ROUNDS):
            self.done("systemctl stop norvasnmp; systemctl start asker")
            answer = self.shell("cat /tmp/answer")
            assert answer and "No Such" not in answer, answer
        self.unit("fault silent")
        self.manager("snmpget", "siteName.0")
        self.status("the unit is silent; serving ")
        self.unit("fault none")
        self.wait_served()
        self.status("serving ")
        self.done("systemctl stop dasunit norvasnmp")
        began = time.monotonic()
        self.done("systemctl start norvasnmp")
        assert 9 < time.monotonic() - began < 30
        self.status("waiting for the unit: ")
        self.done("systemctl start dasunit")
        self.status("serving ")
        self.done("systemctl stop snmpd")
        self.status("no master agent at /run/agentx/master")
        self.done("cp /etc/hostname /etc/norvasnmp/mapping.db; systemctl restart norvasnmp")
        self.status("nothing to serve: no object found in the mapping database /etc/norvasnmp/mapping")
        self.done("cp /usr/share/norvasnmp/sample/mapping.db /etc/norvasnmp/; systemctl start snmpd; "
                  "systemctl restart norvasnmp")
        self.wait_served()

    def upgraded(self):
        """To a version with other configuration files: what is the administrator's stays."""
        old = self.state("norvasnmp")["MainPID"]
        self.apt("install", "/mnt/next/*.deb")
        assert self.done("dpkg-query -W -f '${Version}\\n' norvasnmp") == f"{NEXT}\n"
        self.edited()
        assert "# next\n" in self.done("cat /etc/snmp/norvasnmp.conf")
        assert self.state("norvasnmp")["MainPID"] not in ("0", old)
        self.wait_served()

    def edited(self):
        assert "norvaBacklog 500\n" in self.done(f"cat {SETTINGS}")
        assert "1162" in self.done(f"cat {SNIPPET}")

    def removed(self):
        """Programs and services go, the configuration stays, and what that means is said."""
        said = self.apt("remove", *PACKAGES)
        assert "snmpd still lets in the users" in said, said
        processes = self.shell("pgrep -u _norvasnmp,_dasunit -a")
        assert "/usr/" not in processes, processes
        assert self.machine.run("test", "-e", "/usr/sbin/norvaSnmp").returncode == 1

    def reinstalled(self):
        self.apt("install", "/mnt/*_*.deb")
        self.edited()
        self.done("systemctl start dasunit")
        self.wait_served()

    def purged(self):
        """Nobody gets in any more, without further ado; what it leaves of the users it says."""
        self.done("systemctl stop decoy-user decoy-root decoy-_dasunit receiver; "
                  "rm /etc/norvasnmp/mapping.db")
        assert self.manager("snmpget", UP_TIME).count(" = ") == 1
        self.forget()

    def forget(self):
        """The purge, and the commands that it prints."""
        said = self.apt("purge", *PACKAGES)
        assert self.machine.run("test", "-e", SOCKET).returncode == 1
        answer = self.manager("snmpget", UP_TIME, patience=2)
        assert " = " not in answer, answer
        self.done("\n".join(re.findall("^    (.*)", said, re.M)))
        assert '"norva' not in self.done("cat /var/lib/snmp/snmpd.conf"), said

    def package_tests(self):
        """Those of the packages themselves, on a machine that has nothing of them."""
        self.apt("install", "/mnt/*_*.deb")
        print(self.done("/mnt/tests/service", timeout=120).replace("\n", "; "))
        self.done("rm /etc/norvasnmp/mapping.db")
        self.forget()

    def left_nothing(self):
        after = self.listing()
        assert after == self.before, sorted(after ^ self.before)
        assert self.shell("systemctl --failed --quiet") == ""

    CHECKS = [installed, units_verified, started, polled_by_name, completed, others_refused,
              alarm_received, written, journal_quiet, stopped_alone, restarted, told, upgraded, removed,
              reinstalled, purged, package_tests, left_nothing]


def make_next(package, directory):
    """The package as of a later version, with a line more in each configuration file."""
    tree = directory / "tree"
    subprocess.run(["dpkg-deb", "-R", package, tree], check=True)
    control = tree / "DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*", f"Version: {NEXT}", control.read_text(), flags=re.M))
    for file in (tree / "DEBIAN/conffiles").read_text().split():
        with open(f"{tree}{file}", "a") as conffile:
            conffile.write("# next\n")
    subprocess.run(["dpkg-deb", "-b", "-Znone", "--root-owner-group", tree, directory], check=True,
                   stdout=subprocess.DEVNULL)
    shutil.rmtree(tree)


def run(trial):
    """Runs the checks up to the first that fails; the others build on it. (passed, failed)"""
    for number, check in enumerate(trial.CHECKS):
        print(f"{check.__name__.replace('_', ' ')}", flush=True)
        try:
            check(trial)
        except (AssertionError, Failure, subprocess.TimeoutExpired):
            print("FAILED:", traceback.format_exc())
            print(trial.shell("journalctl --no-pager --lines=40 -u " + " -u ".join(trial.LOGS)))
            return number, len(trial.CHECKS) - number
    return len(trial.CHECKS), 0


def make_only():
    try:
        print(make_root())
    except Unavailable as reason:
        return f"scripts/trial: {reason}"
    return 0


def main():
    parser = command_line(__doc__)
    parser.add_argument("--root", action="store_true", help="only makes the root, if there is none")
    parser.add_argument("--only", choices=["Trial", "MonitoringTrial"], help="one of the two")
    parser.add_argument("packages", type=Path, nargs="?", default=SOURCE / "build/packages",
                        help="their directory, default build/packages")
    options = parser.parse_args()
    install("trial")
    if options.root:
        return make_only()
    packages = [sorted(options.packages.glob(f"{name}_*.deb")) for name in PACKAGES]
    if not all(len(found) == 1 for found in packages):
        raise Failure("build the packages first, by scripts/package")
    passed = failed = skipped = 0
    with tempfile.TemporaryDirectory() as directory:
        share = Path(directory)
        (share / "next").mkdir()
        for found in packages:
            shutil.copy(found[0], share)
        make_next(packages[0][0], share / "next")
        shutil.copy(SOURCE / "scripts/lib/trap_sender.py", share)
        shutil.copytree(SOURCE / "debian/tests", share / "tests")
        try:
            for trial in (Trial, MonitoringTrial):
                if options.only in (None, trial.__name__):
                    with Machine(share) as machine:
                        passed, failed = (sum(pair) for pair in zip((passed, failed), run(trial(machine))))
        except Unavailable as reason:
            print(f"SKIPPED: {reason}")
            skipped = 1
    print(f"{passed} passed, {failed} failed" + (f", {skipped} skipped" if skipped else ""))
    return failed != 0


finish(main)
