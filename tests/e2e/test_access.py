"""Who gets in, with the shipped configurations of the master, at each door: SNMP, the AgentX socket
and the unit's queues."""

import os
import re
import time
from types import SimpleNamespace

import pytest

from polling import Polling
from world import ROOT, SOURCE, SnmpError, World, parse_varbinds, wait_until

SITE_NAME = f"{ROOT}.1.1.1.6.0"
ELSEWHERE = "192.0.2.1"
# Later options of a manager's command replace earlier ones.
V2C = ("-v2c", "-c", "public")
V1 = ("-v1", "-c", "public")
POLLS = ("-v3", "-u", "norva", "-l", "authPriv", "-a", "SHA-256", "-A", "change-this-auth-phrase",
         "-x", "AES", "-X", "change-this-priv-phrase")
CONFIGURES = (*POLLS, "-u", "norvaconfig", "-A", "change-this-config-auth-phrase",
              "-X", "change-this-config-priv-phrase")
NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")

ON_UNIT = (SOURCE / "packaging/snmpd.conf").read_text()
# Debian's own /etc/snmp/snmpd.conf, but for the address.
DEBIAN = """
sysContact Me <me@example.org>
view systemonly included .1.3.6.1.2.1.1
view systemonly included .1.3.6.1.2.1.25.1
rocommunity public default -V systemonly
rouser authPrivUser authpriv -V systemonly
"""
SITES = {
    "unit": SimpleNamespace(socket="/var/agentx/master", state="",
                            conf=ON_UNIT + "master agentx\n"),
    # With the users that its file tells to make, and a receiver.
    "package": SimpleNamespace(
        socket="/run/agentx/master", state="".join(re.findall(r"^createUser .*\n", ON_UNIT, re.M)),
        conf=DEBIAN + "".join((SOURCE / f"packaging/snmpd-norvasnmp{local}.conf").read_text()
                              for local in ("", "-local")).replace("#trap2sink", "trap2sink")),
}

USERS, RULES, LOG = ".1.3.6.1.6.3.15.1.2", ".1.3.6.1.6.3.16.1", ".1.3.6.1.2.1.92.1.1"
SYSTEM, PROCESSES, UNIT = ".1.3.6.1.2.1.1", ".1.3.6.1.2.1.25.4.2.1.2", ROOT
RESTART = ".1.3.6.1.4.1.2021.100.12"
TREES = {SYSTEM, PROCESSES, RESTART, UNIT, USERS, RULES, ".1.3.6.1.4.1.8072.1.9",  # rules again
         ".1.3.6.1.2.1.25.4.2.1.5"}  # arguments of processes
POLLED = {SYSTEM, PROCESSES, RESTART, UNIT}
# Another user, a wider view of Debian's, another member of a group, a new start of snmpd, ...
ELSE = [(f"{USERS}.2.1.13.5.128.0.0.0.1.1.120", "i", "5"),
        (f"{RULES}.5.2.1.6.10.115.121.115.116.101.109.111.110.108.121.1.1", "i", "5"),
        (f"{RULES}.2.1.5.3.1.120", "i", "5"), (f"{RESTART}.0", "i", "1"),
        (f"{SYSTEM}.4.0", "s", "me"), (f"{LOG}.1.0", "u", "7")]


@pytest.fixture(scope="module", params=SITES)
def site(request):
    """The sample data, served by an snmpd with one of the shipped configurations."""
    files = SITES[request.param]
    with World(cover=("/var", "/run")) as world:
        world.name, world.socket, world.files = request.param, files.socket, files
        world.inside(f"ip address add {ELSEWHERE}/32 dev lo; chmod 755 {world.directory}; "
                     "mkdir /var/persistent /run/agentx; chmod 700 /run/agentx; "
                     f"cat > /var/persistent/snmpd.conf <<'.'\n{files.state}.")
        world.start_unit()
        (world.directory / "conf/snmpd.conf").write_text(files.conf)
        world.master = world.spawn("snmpd", ["snmpd", "-f", "-Lo", "udp:1161"],
                                   env={"SNMP_PERSISTENT_DIR": "/var/persistent",
                                        "SNMPCONFPATH": f"{world.directory}/conf:/var/persistent"})
        wait_until(world.master_answers, what="snmpd's own sysUpTime")
        world.start_agent(wait=False)
        wait_until(lambda: ask(world, POLLS), 30, "the unit's objects")
        yield world
        world.show_logs()


def manager(world, tool, who, *words, at="127.0.0.1", patience=10):
    """A manager's command; the varbinds that it printed."""
    result = world.run(tool, *who, "-Onx", "-r0", f"-t{patience}", f"--clientaddr={at}",
                       f"{at}:1161", *words, timeout=patience + 60)
    if result.returncode != 0:
        raise SnmpError(result.stderr or result.stdout)
    return parse_varbinds(result.stdout)


def ask(world, who, value=None, **options):
    """The site's name as a manager gets it, or sets it to `value`."""
    tool, words = ("snmpset", ["s", value]) if value else ("snmpget", [])
    return manager(world, tool, who, SITE_NAME, *words, **options)[0].value


@pytest.mark.parametrize("who, at, on_unit, with_package", [
    (V2C, "127.0.0.1", POLLED, {SYSTEM}), (V2C, ELSEWHERE, set(), {SYSTEM}),
    (POLLS, ELSEWHERE, POLLED, POLLED), (CONFIGURES, ELSEWHERE, POLLED, POLLED)])
def test_reading(site, who, at, on_unit, with_package):
    """Nobody sees users, access rules or the arguments of processes."""
    seen = on_unit if site.name == "unit" else with_package
    if not seen:
        with pytest.raises(SnmpError, match="Timeout"):
            ask(site, who, at=at, patience=1)
        return
    found = manager(site, "snmpgetnext", who, *TREES, at=at)
    assert {tree for tree, varbind in zip(TREES, found)
            if varbind.oid.startswith(tree + ".")} == seen


@pytest.mark.parametrize("who, reason, unit", [
    (V2C, "noAccess", False), (V1, "noSuchName", False), (POLLS, "noAccess", False),
    (CONFIGURES, "noAccess", True)])
def test_writing(site, who, reason, unit):
    """One user writes, and nothing but the unit."""
    if unit:
        assert ask(site, who, "Pier", at=ELSEWHERE) == site.held(0x0600)[3] == "Pier"
        ask(site, who, "Harbour Terminal")
    for words in ELSE + [(SITE_NAME, "s", "Quay")] * (not unit):
        with pytest.raises(SnmpError) as refused:
            manager(site, "snmpset", who, *words)
        assert refused.value.reason == reason, words
    assert ask(site, POLLS) == site.held(0x0600)[3] == "Harbour Terminal"


@pytest.mark.parametrize("options, reason", [
    (("-v2c", "-c", "private"), "timeout"),
    ((*CONFIGURES, "-l", "authNoPriv"), "authorizationError"),
    ((*POLLS, "-l", "noAuthNoPriv"), "authorizationError"),
    ((*POLLS, "-A", "another auth phrase"), "Authentication failure"),
    ((*POLLS, "-X", "another priv phrase"), "timeout"),
    ((*POLLS, "-a", "SHA"), "Authentication failure"),
    ((*POLLS, "-u", "public"), "Unknown user name"),
    ((*POLLS, "-n", "DAS_NORVA"), "timeout"),
])
def test_those_who_do_not(site, options, reason):
    with pytest.raises(SnmpError) as refused:
        ask(site, options, patience=1 if reason == "timeout" else 10)
    assert reason in refused.value.reason


def test_walk_of_everything(site):
    """After 1,000 notifications, of which snmpd keeps none: soon over, and it holds up nobody."""
    sent, sinks = ".1.3.6.1.2.1.11.29.0", len(re.findall("^trap", site.files.conf, re.M))
    assert sinks == (2 if site.name == "unit" else 1)
    polling = Polling(site, [" ".join(["snmpget", *POLLS, "-On", "-r0", "-t20", "127.0.0.1:1161",
                                       SITE_NAME])], last=None)
    site.flood(1000).wait(90)
    wait_until(lambda: int(manager(site, "snmpget", POLLS, sent)[0].value) >= 1000 * sinks, 90,
               "all sent")
    before = polling.answers()
    begin = time.monotonic()
    walked = [varbind.oid for varbind in manager(site, "snmpwalk", POLLS, ".1")]
    assert time.monotonic() - begin < 20
    assert walked[-1].startswith(".1.3.6.1.6.3.10.") and f"{LOG}.1.0" in walked
    assert not any(oid.startswith(".1.3.6.1.2.1.92.1.3.") for oid in walked)
    assert polling.stop() > before
    assert site.master.resident() < 20_000


def test_queues_are_open(site):
    """Deliberately: the unit's control process may be any user."""
    queues = [line.split()[3] for line in site.inside("ipcs -q").splitlines() if "0x" in line]
    assert queues == ["666"] * 3


@pytest.mark.skipif(os.geteuid() != 0, reason="needs root, for becoming another user")
def test_other_users_of_the_machine(site):
    """They do not reach the master as subagents."""
    script = f"import socket; socket.socket(socket.AF_UNIX).connect('{site.socket}')"
    connect = ("/usr/bin/python3", "-c", script)
    assert site.run(*connect).returncode == 0
    assert "PermissionError" in site.run(*NOBODY, *connect).stderr
