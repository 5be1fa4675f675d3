"""Options, validation and exit statuses, with the exact texts; how the project's scripts end."""

import os
import re
import signal
import subprocess

import pytest

from world import ROOT, SOURCE

USAGE = """
Usage:  {program} [OPTIONS] [LISTENING ADDRESSES]
  -c FILE[,...]\t\tif master agent,read FILE(s) as snmpd \n\t\t\t  configuration file(s),snmpd.conf.
  -d FILE[,...]\t\tRead FILE(s) as database configuration file(s)
\t\t\t  the database contains the mapping relationship
\t\t\t  between DLK3's OID and SNMP's OID.
  -X\t\t\tRun as an AgentX subagent rather than as an
\t\t\t  SNMP master agent.
  -x ADDRESS\t\tUse ADDRESS as master agent listening address \n\t\t\t  or AgentX address.
  -n NAME\t\tUse NAME as AgentX NAME,each subagent name
\t\t\t  cannot be the same.
  -p [PORT]\t\tif master agent,the snmp udp port.
  -h, --help\t\tDisplay this usage message
  --version\t\tShow norvaSnmp version.

"""
VERSION = "norvaSnmp version:  {}\n".format(
    re.search(r"\((.*)\)", (SOURCE / "debian/changelog").read_text())[1])
ERROR_OPTION = "{program}: error option\n" + USAGE
NO_DATABASE = "\nerror: no database path.\n" + USAGE


def default_mode(error, transport="null:port", name="null:name"):
    """Without -X the values are printed before they are judged."""
    return f"\ndbFath=a.db\ntransport={transport}\nagentXName={name}\n \nerror: {error}\n" + USAGE


@pytest.mark.parametrize("args, status, text", [
    ("", 1, NO_DATABASE),
    ("-h", 1, USAGE),
    ("--HELP", 1, USAGE),
    ("--version", 0, VERSION),
    ("--VERSION", 0, VERSION),
    ("--foo --version", 0, VERSION),
    ("-d null:path -X", 1, NO_DATABASE),
    ("-q", 1, ERROR_OPTION),
    ("-d", 1, ERROR_OPTION),
    ("-X -d a.db -n", 1, ERROR_OPTION),
    ("-d a.db -X -n null:port", 1, "\nerror: no AgentX address.\n" + USAGE),
    ("positional -d a.db -x here -n me", 1, default_mode("no snmpd.conf path.", "here", "me")),
    ("-d first.db -d a.db -c snmpd.conf", 1, default_mode("no snmp udp port.")),
])
def test_ends_with(shared_world, args, status, text):
    program = shared_world.build / "norvaSnmp"
    result = shared_world.run(program, *args.split())
    assert result.stdout == text.replace("{program}", str(program))
    assert result.returncode == status


def test_omitted_name_and_address_are_accepted(world):
    """The placeholders go on to the library, which finds no master; the agent stays."""
    world.start_unit("")
    world.start_agent(["-X", "-d", world.make_database(base=False)], wait=False)
    world.wait_output("init_snmp end....")
    assert ("\ntransport=null:port\nagentXName=null:name\n netsnmp_ds_set_boolean....\n"
            "init_agent rc=0....\n") in world.agent_output()
    assert "before initsnmp_subagent,agentXName=null:name \n" in world.agent_output()
    assert world.agent.running()


def test_empty_name(world):
    """No settings are read: there is no file of that name. The master is at a TCP address."""
    world.socket = "tcp:127.0.0.1:705"
    world.start_unit(f'0x80ba text 64 ro "{ROOT}"\n')
    world.start_master()
    world.start_agent(["-X", "-d", world.database, "-x", world.socket, "-n", ""])
    assert world.agent.running()


# A script that starts a process which loses its parent, and leaves a file.
SCRIPT = """
import subprocess, sys, tempfile, time
sys.path.insert(0, "scripts/lib")
import project
def work():
    subprocess.run(["sh", "-c", "setsid sleep 600 &"])
    tempfile.mkstemp()
    print("at work")
    {}
project.finish(work)
"""
RESULTS = """project.finish = lambda *_, **__: None; import test; results = test.Results()
    for name, *counts in ("first", 3, 1, 2), ("second", 4): results.begin(name); results.add(name, *counts)
    return results.end()"""


@pytest.mark.parametrize("rest, number, status, said", [
    ("return 0", 0, 0, ""),
    ("raise project.Failure('why')", 0, 1, "why\nfailed\n"),
    (RESULTS, 0, 1, "== first\n   0 s\n== second\n   0 s\n== slowest\n   second 0 s, first 0 s\n"
                    "FAILED: first\n7 passed, 1 failed, 2 skipped\n"),
    *[("time.sleep(60)", number, 130, "") for number in (signal.SIGINT, signal.SIGTERM)],
], ids=["done", "failed", "tests failed", "SIGINT", "SIGTERM"])
def test_end_of_a_script(tmp_path, rest, number, status, said):
    """With its status; whatever it has started ends with it, and its files are gone."""
    script = subprocess.Popen(["/usr/bin/python3", "-B", "-c", SCRIPT.format(rest)], cwd=SOURCE,
                              env={**os.environ, "TMPDIR": str(tmp_path)}, bufsize=0,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    assert script.stdout.readline() == b"at work\n"
    script.send_signal(number)
    assert script.communicate(timeout=90)[0].decode() == said  # what it has started holds its output
    assert script.returncode == status
    assert list(tmp_path.iterdir()) == []
