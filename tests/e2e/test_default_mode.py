"""The default mode: the agent launches snmpd with the shipped configuration and watches it."""

import os
import re
import signal
import time
from pathlib import Path

import pytest

from conftest import wait_started
from default_world import LOG, MIB_SOURCE, PROGRAM, TRANSPORT, DefaultWorld
from world import wait_until

MIB_DIRECTORY = "/home/snmp/share/snmp"
LOG_LIMIT = 102400
KILL = "killall -9 snmpd"
FINDING = "duplicate registration: MIB modules one and other\n"

ALARM = ".1.3.6.1.4.1.53412.8.2.2.3.3.1.1.0.96"
SINKS = ("SNMP v2c, community public", "SNMP v3, user norva")


class Unit(DefaultWorld):
    def launch(self):
        begin = time.monotonic()
        super().launch()
        wait_started(self)
        assert time.monotonic() > begin + 5, "the master has time to start"

    def terminate(self):
        """The agent ends, its master stays."""
        [master] = self.masters()
        self.agent.signal(signal.SIGTERM)
        assert self.agent.wait() == -signal.SIGKILL
        assert "get SIGNUM!\n" in self.agent_output()
        assert self.commands()[-1] == "killall -9 norvaSnmp"
        assert self.masters() == [master] and self.master_answers()
        return master


@pytest.fixture(scope="module")
def unit():
    """Served in the default mode; a stale snmpd ran at its port before. With the receiver that the
    shipped configuration sends to."""
    with Unit() as world:
        world.start_master()
        world.ctl("set", "0x0ffa", 10)
        world.launch()
        receiver = world.directory / "receiver.conf"
        receiver.write_text(
            'createUser -e 0x80001f8804646173 norva SHA-256 "change-this-auth-phrase"'
            ' AES "change-this-priv-phrase"\nauthUser log norva priv\nauthCommunity log public\n')
        world.receiver = world.spawn("receiver", [
            "snmptrapd", "-f", "-X", "-Lo", "-On", "-C", "-c", receiver, "-F", "%P %v\\n",
            "udp:127.0.0.1:162"])
        wait_until(lambda: "NET-SNMP" in world.receiver.output(), what="the receiver")
        yield world
        world.show_logs()


def assert_notified(world, text):
    """An alarm arrives once at each sink of the shipped configuration."""
    def lines():
        return [line for line in world.receiver.output().splitlines() if text in line]
    world.ctl("alarm", "raise", "0x0403", "--text4", text)
    wait_until(lambda: len(lines()) >= len(SINKS), what="notifications")
    assert [sum(sink in line and ALARM in line for line in lines()) for sink in SINKS] == [1, 1]


def assert_environment_kept(world):
    """MIBS, which the agent sets for itself, does not reach the master."""
    [master] = world.masters()
    environment = world.inside(f"tr '\\0' '\\n' < /proc/{master}/environ").splitlines()
    assert {"PATH", "MIBS"} & {entry.partition("=")[0] for entry in environment} == {"PATH"}


def test_first_start(unit):
    """Directories, texts, command line; the stale master is gone."""
    assert unit.master.wait() == -signal.SIGKILL
    command = f"{PROGRAM} -x {TRANSPORT} -f -Le -c {unit.conf} UDP:1161 -Lf {LOG}"
    unit.wait_output("\ninit_snmp end....\n")
    output = unit.agent_output()
    assert output.startswith(
        f"\ndbFath={unit.database}\ntransport={TRANSPORT}\nagentXName=null:name\n startSnmpd....\n"
        f"cmd->{command} &\nwating for snmpd\nnetsnmp_ds_set_boolean in MASTER_AGENT....\n")
    assert output.index("\ninitTableObj ") < output.index("\ninit_snmp end....\n")
    assert "init_agent rc" not in output and "before initsnmp_subagent" not in output
    assert unit.commands() == [f"mkdir -p {MIB_DIRECTORY}", f"cp -r {MIB_SOURCE} {MIB_DIRECTORY}",
                               "mkdir /etc/snmp", KILL]
    assert unit.path(f"{MIB_DIRECTORY}/mibs/FIRST-MIB").exists()
    assert unit.path("/etc/snmp").is_dir()
    [master] = unit.masters()
    assert unit.inside(f"tr '\\0' ' ' < /proc/{master}/cmdline") == command + " "
    assert_environment_kept(unit)
    # The launched master does not keep the agent's output open.
    assert unit.inside(f"readlink /proc/{master}/fd/1") == "/dev/null\n"


def test_agent_ends_and_its_master_stays(unit):
    """Several times; the next start makes only what is missing. The last master is ended first."""
    def end_master():
        unit.inside("kill $(pgrep -x --runstates D,R,S snmpd)")
        wait_until(lambda: unit.masters() == [], what="end of the master on SIGTERM")
        unit.path(LOG).write_text(FINDING)  # costs a restart, unless the new master empties it first
    for between, commands in [
            (lambda: unit.inside("rmdir /etc/snmp"), [["mkdir /etc/snmp", KILL]]),
            (unit.place_agent_configuration, [[KILL]]),
            (end_master, [[KILL, KILL, f"rm {LOG}", "sync"], [KILL]])]:
        left = unit.terminate()
        between()
        unit.launch()
        assert unit.commands() in commands
        assert len(unit.masters()) == 1 and left not in unit.masters()
    assert unit.path("/etc/snmp/snmpAgentX.conf").exists()


def test_managers(unit):
    """Many requests are no reason to restart; alarms reach the receivers. What is changed in the
    master's configuration counts after its SIGHUP."""
    assert len(unit.walk()) > 500
    with open(unit.conf, "a") as configuration:
        configuration.write("sysContact operator\n")
    unit.inside("kill -HUP $(pgrep -x --runstates D,R,S snmpd)")
    wait_until(lambda: unit.get(".1.3.6.1.2.1.1.4.0")[0].value == "operator", what="the new contact")
    unit.wait_served()
    assert len(unit.path(LOG).read_text()) < 1000, "a restart every few hundred requests"
    assert_notified(unit, "first")


def test_finding_in_the_log(unit):
    """Also behind a line of 255 characters, and where the master has ended. One restart, a log that
    has a name, and served again without help; alarms of the time between are not lost."""
    before, done = unit.masters(), len(unit.commands())
    unit.inside(f"kill -KILL {' '.join(before)}")
    with open(unit.path(LOG), "a") as log:
        log.write("x" * 255 + "\n" + FINDING)
    flood = unit.flood(60)  # twice as many datagrams, which the receiver's socket holds
    unit.wait_restarted(before)
    assert unit.commands()[done:] == [KILL, f"rm {LOG}", "sync"]
    assert FINDING not in unit.path(LOG).read_text()
    [master] = unit.masters()
    assert LOG in unit.inside(f"ls -l /proc/{master}/fd").split()
    assert flood.wait() == 0
    wait_until(lambda: all(f'"{number}"' in unit.receiver.output() for number in range(1, 61)),
               what="all alarms")
    assert_environment_kept(unit)
    assert_notified(unit, "second")


def test_size_of_the_log(unit):
    """102400 bytes are not too many, and behind a line of 256 characters no finding is seen."""
    before = unit.masters()
    log = unit.path(LOG)
    text = "x" * 256 + "\n" + FINDING
    log.write_text(text + "\n" * (LOG_LIMIT - len(text)))
    first = unit.wait_pass()
    second = wait_until(lambda: (look := unit.wait_pass()) > first + 5 and look, 20, "the next look")
    assert second < first + 12
    assert unit.masters() == before
    assert log.stat().st_size == LOG_LIMIT
    with open(log, "a") as more:
        more.write("\n")
    unit.wait_restarted(before)
    assert log.stat().st_size < 1000
    assert '"heartbeat"' not in unit.receiver.output()  # due after 10 minutes


def test_no_program_inherits_the_log(unit):
    """A log that yields nothing keeps it open long enough to look at."""
    unit.inside(f"rm {LOG}; mkfifo {LOG}")
    unit.spawn("writer", ["sh", "-c", f"exec 3<>{LOG}; exec sleep 60"])
    agent = Path(f"/proc/{unit.agent.pid()}")
    [log, *_] = wait_until(lambda: [entry.name for entry in (agent / "fd").iterdir()
                                    if os.readlink(entry) == LOG], 30, "a look at the log")
    flags = re.search(r"flags:\s*(\d+)", (agent / "fdinfo" / log).read_text())[1]
    assert int(flags, 8) & os.O_CLOEXEC
