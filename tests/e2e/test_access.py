"""Who gets in, with the shipped configuration of the master, at each door: SNMP, the AgentX socket
and the unit's queues."""

import os

import pytest

from world import ROOT, SOURCE, SnmpError, World, parse_varbinds, wait_until

SITE_NAME = f"{ROOT}.1.1.1.6.0"
SOCKET = "/var/agentx/master"
ELSEWHERE = "192.0.2.1"
# Later options of a manager's command replace earlier ones.
V2C = ("-v2c", "-c", "public")
V3 = ("-v3", "-u", "norva", "-l", "authPriv", "-a", "SHA", "-A", "change-this-auth-phrase",
      "-x", "AES", "-X", "change-this-priv-phrase")
NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")


@pytest.fixture(scope="module")
def site():
    """The sample data, served by an snmpd with the shipped configuration and the line that it says
    to add."""
    with World(cover=("/var",)) as world:
        world.inside(f"ip address add {ELSEWHERE}/32 dev lo; chmod 755 {world.directory}")
        world.start_unit()
        conf = world.directory / "snmpd.conf"
        conf.write_text((SOURCE / "packaging/snmpd.conf").read_text() + "master agentx\n")
        world.master = world.spawn("snmpd", ["snmpd", "-f", "-Lo", "-C", "-c", conf, "udp:1161"],
                                   env={"SNMP_PERSISTENT_DIR": "/var/persistent"})
        wait_until(world.master_answers, what="snmpd's own sysUpTime")
        world.start_agent(["-X", "-d", world.database, "-x", SOCKET, "-n", "demo"])
        yield world
        world.show_logs()


def ask(world, *options, at="127.0.0.1", value=None, patience=10):
    """The site's name as a manager gets it, or sets it to `value`."""
    tool, words = ("snmpset", ["s", value]) if value else ("snmpget", [])
    result = world.run(tool, *options, "-Onx", "-r0", f"-t{patience}",
                       f"--clientaddr={at}", f"{at}:1161",
                       SITE_NAME, *words)
    if result.returncode != 0:
        raise SnmpError(result.stderr or result.stdout)
    return parse_varbinds(result.stdout)[0].value


def test_those_who_do(site):
    """SNMPv2c reads on the unit; SNMPv3 with privacy reads and writes, from anywhere."""
    assert ask(site, *V2C) == "Harbour Terminal"
    assert ask(site, *V3, at=ELSEWHERE, value="Pier") == "Pier"
    assert ask(site, *V3, value="Harbour Terminal") == ask(site, *V2C) == "Harbour Terminal"


def test_queues_are_open(site):
    """Deliberately: the unit's control process may be any user."""
    queues = [line.split()[3] for line in site.inside("ipcs -q").splitlines() if "0x" in line]
    assert queues == ["666"] * 3


@pytest.mark.parametrize("options, at, value, reason", [
    (V2C, ELSEWHERE, None, "timeout"),
    (V2C, "127.0.0.2", None, "timeout"),
    (V2C, "127.0.0.1", "Quay", "noAccess"),
    (("-v1", "-c", "public"), "127.0.0.1", "Quay", "noSuchName"),
    (("-v2c", "-c", "private"), "127.0.0.1", None, "timeout"),
    ((*V3, "-l", "authNoPriv"), ELSEWHERE, None, "authorizationError"),
    ((*V3, "-l", "noAuthNoPriv"), ELSEWHERE, None, "authorizationError"),
    ((*V3, "-A", "another auth phrase"), "127.0.0.1", None, "Authentication failure"),
    ((*V3, "-X", "another priv phrase"), "127.0.0.1", None, "timeout"),
    ((*V3, "-u", "public"), "127.0.0.1", None, "Unknown user name"),
    ((*V3, "-n", "DAS_NORVA"), "127.0.0.1", None, "timeout"),
])
def test_those_who_do_not(site, options, at, value, reason):
    with pytest.raises(SnmpError) as refused:
        ask(site, *options, at=at, value=value, patience=1 if reason == "timeout" else 10)
    assert reason in refused.value.reason
    assert site.held(0x0600)[3] == "Harbour Terminal"


@pytest.mark.skipif(os.geteuid() != 0, reason="needs root, for becoming another user")
def test_other_users_of_the_machine(site):
    """They do not reach the master as subagents."""
    script = f"import socket; socket.socket(socket.AF_UNIX).connect('{SOCKET}')"
    connect = ("/usr/bin/python3", "-c", script)
    assert site.run(*connect).returncode == 0
    assert "PermissionError" in site.run(*NOBODY, *connect).stderr
