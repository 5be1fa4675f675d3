"""A world for the agent's default mode: a unit as it leaves the factory, on which the agent launches
snmpd itself."""

import os
import shutil
from pathlib import Path

from world import SOURCE, World, wait_until

PROGRAM = "/mnt/actflash/currsw/app/snmpd"
MIB_SOURCE = "/mnt/actflash/currsw/mibs"
LOG = "/home/snmpd.log"
TRANSPORT = "/var/agentx/master"


class DefaultWorld(World):
    """Neither /etc/snmp nor anything in /home; snmpd and its MIB files in their places, its shipped
    configuration at `conf`. The unit runs. The commands that the agent runs are recorded."""

    def __init__(self, build=None):
        super().__init__(build, cover=("/etc", "/home", "/mnt", "/var"))
        self.conf = Path(shutil.copy(SOURCE / "packaging/snmpd.conf", self.directory / "unit.conf"))
        self.inside(f"mkdir -p {MIB_SOURCE} $(dirname {PROGRAM}); touch {MIB_SOURCE}/FIRST-MIB "
                    f"{PROGRAM}; mount --bind $(command -v snmpd) {PROGRAM}")
        self.start_unit()
        self._commands = self.directory / "commands"
        (self.directory / "bin").mkdir()
        for name in ("cp", "killall", "mkdir", "rm", "sync"):
            wrapper = self.directory / "bin" / name
            wrapper.write_text(f'#!/bin/sh\necho "{name} $*" >> {self._commands}\n'
                               f'exec {shutil.which(name)} "$@"\n')
            wrapper.chmod(0o755)

    def path(self, inside):
        """A path in a covered directory, as it is reached from outside."""
        return Path(f"/proc/{self.unit.pid()}/root{inside}")

    def place_agent_configuration(self):
        """The shipped one."""
        self.inside(f"mkdir -p /etc/snmp; cp {SOURCE}/packaging/snmpAgentX.conf /etc/snmp")

    def launch(self):
        """Starts the agent, without what a world tells the library in the environment."""
        self._commands.unlink(missing_ok=True)
        self.start_agent(["-d", self.database, "-c", self.conf, "-p", "1161", "-x", TRANSPORT],
                         prefix=["env", "-u", "MIBS", "-u", "SNMPCONFPATH",
                                 "-u", "SNMP_PERSISTENT_DIR"],
                         env={"PATH": f"{self.directory}/bin:{self.environment['PATH']}"})

    def commands(self):
        """What the agent has run since its launch, snmpd excepted."""
        return [line.rstrip() for line in self._commands.read_text().splitlines()]

    def masters(self):
        """Process ids, as seen inside, of every snmpd that runs."""
        return self.run("pgrep", "-x", "--runstates", "D,R,S", "snmpd").stdout.split()

    def wait_restarted(self, before):
        """Waits until the masters `before` are gone and the agent's objects are back. Supervisors
        look every 10 s, the agent every 5 s."""
        wait_until(lambda: self.masters() and not set(before) & set(self.masters()), 20,
                   "the master restarted")
        self.wait_served()

    def wait_pass(self):
        """Waits until a supervisor reads the log; the time of that."""
        log = self.path(LOG)
        os.utime(log, (0, log.stat().st_mtime))
        return wait_until(lambda: log.stat().st_atime, 15, "the log read")
