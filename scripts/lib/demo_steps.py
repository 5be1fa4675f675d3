"""The steps of the demonstration with one unit."""

import re
import shlex
import shutil
import signal
import subprocess

from default_world import LOG, DefaultWorld
from receiver import BASE, V2C_SINK, Receiver
from world import ROOT, SOURCE, World

UNITS = ROOT + ".10.1.1"
READ = ["-v2c", "-c", "public", "-On", "127.0.0.1:1161"]
WRITE = ["-v2c", "-c", "private", "-On", "127.0.0.1:1161"]


def oid(demo, name):
    return demo.scalars[name][0]


def show(demo, *command, most=20):
    """Runs a manager's command; shows it with the first lines of its output, and returns all."""
    print("   $ " + shlex.join(command))
    result = demo.world.run(*command)
    output = result.stdout + result.stderr
    lines = output.splitlines()
    for line in lines[:most]:
        print("   " + line)
    if len(lines) > most:
        print(f"   ... and {len(lines) - most} more")
    return output


def start(demo):
    demo.say("The simulated unit, snmpd as AgentX master on a unix socket, and the agent start.")
    world = demo.world
    world.start_unit()
    demo.receiver = Receiver(world)
    world.start_master(V2C_SINK)
    world.start_agent()
    print("   $ norvaSnmp -X -d mapping.db -x master.sock -n demo")
    demo.expect(world.agent.running(), "the agent runs")


def walk(demo):
    demo.say("A walk of the scalars by name. Each line is a device object, read from the unit just "
             "now; its name comes from the module that norvamap makes of the mapping database.")
    print("   $ norvamap mib mapping.db --names names.yaml > mibs/NORVA-MIB.txt")
    demo.world.inside("norvamap mib mapping.db --names names.yaml > mibs/NORVA-MIB.txt")
    lines = show(demo, "snmpwalk", "-m", "NORVA-MIB:NORVA-NOTIFY-MIB:SNMPv2-MIB",
                 *READ[:-2], READ[-1], "NORVA-MIB::norvaMIB.1", most=8).splitlines()
    demo.expect(len(lines) == len(demo.scalars), f"{len(demo.scalars)} scalars, got {len(lines)}")
    demo.expect(all(re.match(r"NORVA-MIB::[a-z]\w+\.0 = (INTEGER|STRING): ", line)
                    for line in lines), "every scalar has a name and is a number or a text")


def check(demo):
    demo.say("The mapping database against the unit's objects, as before each of its deliveries: no "
             "error. Without grep norvamap also tells what is better not so.")
    output = demo.world.run("norvamap", "check", "mapping.db", "--objects", "unit.objects").stdout
    errors = output.count(": error: ")
    print("   $ norvamap check mapping.db --objects unit.objects | grep -c ': error: '\n"
          f"   {errors}")
    demo.expect("warning: " in output and not errors, "no error")


def decode(demo):
    demo.say("The same trace in words: what the unit has and what a manager sees of it.")
    print("   $ norvamap decode mapping.db agent.log | tail -3")
    output = demo.world.inside("norvamap decode mapping.db agent.log | tail -3")
    print("   " + output.strip().replace("\n", "\n   "))
    demo.expect('got  0x0502 "Downlink Attenuation": unsigned 1, 14, rw -> INTEGER 14' in output,
                "the GET in words")


def get_each_kind(demo):
    demo.say("One of each kind: text, unsigned and signed number, decimal fraction, address, "
             "clock, the low half of a word.")
    wanted = {
        "Software Version": 'STRING: "NDAS 4.2.1"',
        "Fan Speed": "INTEGER: 2850",
        "Outdoor Temperature": "INTEGER: -12",
        "Downlink Output Power": 'STRING: "36.50"',
        "IP Address": 'STRING: "10.0.1.7"',
        "Local Date And Time": r'STRING: "\d+:\d+:\d+ \d+/\d+/\d+"',
        "Link Error Count": f"INTEGER: {0x5678}",
    }
    output = show(demo, "snmpget", *READ, *[oid(demo, name) for name in wanted])
    for name, value in wanted.items():
        demo.expect(re.search(re.escape(oid(demo, name)) + " = " + value, output),
                    f"{name} is {value}")


def set_and_get(demo):
    demo.say("A SET of the downlink attenuation to 14 dB and the GET after it; the unit holds it.")
    downlink = oid(demo, "Downlink Attenuation")
    demo.expect("INTEGER: 14" in show(demo, "snmpset", *WRITE, downlink, "i", "14"), "SET accepted")
    demo.expect("INTEGER: 14" in show(demo, "snmpget", *READ, downlink), "GET answers 14")
    demo.expect(demo.world.held(0x0502)[-1] == 14, "the unit holds 14")


def frames(demo):
    demo.say("What that GET sent to the unit and got from it, in the agent's own trace: get request"
             " 02, length, object 0x0502; reply 12, length, attributes, object, value 14 (0e).")
    trace = "02 07 02 05 00 00 00 00 12 04 10 00 02 05 0e "
    demo.world.wait_output(trace)
    print("   " + trace)


def refused_set(demo):
    demo.say("A SET on a read-only object is refused, and the unit does not hear of it.")
    sets = demo.world.ctl("stats")
    output = show(demo, "snmpset", *WRITE, oid(demo, "Board Temperature"), "i", "20")
    demo.expect("notWritable" in output, "notWritable")
    demo.expect(re.findall(r"^sets .*", sets, re.M) ==
                re.findall(r"^sets .*", demo.world.ctl("stats"), re.M), "no set request")


def table(demo):
    demo.say("The table of remote units: its first three rows, each cell a device object.")
    headings = ("Row", "Name", "State", "Temp.", "Atten.", "Power", "Address", "Label", "Switch")
    widths = (5, 16, 7, 7, 8, 8, 14, 14, 7)
    def line(values):
        return "   " + "".join(f"{value:<{width}}" for value, width in zip(values, widths))
    print(f"   $ snmpget {' '.join(READ)} {UNITS}.<column>.<row>.0 ...\n" + line(headings))
    for row in (1, 2, 3):
        cells = demo.world.get(*[f"{UNITS}.{column}.{row}.0" for column in range(1, 10)])
        print(line([cell.value for cell in cells]))
        held = [demo.world.held(0x1000 + 32 * (column - 2) + row - 1)[-1] for column in (2, 3, 4)]
        demo.expect([cell.value for cell in cells[:4]] == [row, *held], f"row {row}")
    lines = demo.world.bulkwalk(UNITS)
    demo.expect(len(lines) == 9 * 32, f"a walk yields 9 columns of 32 rows, got {len(lines)}")


def set_cell(demo):
    demo.say("A SET on a cell: the label of remote unit 2, and what the unit got of it.")
    cell = f"{UNITS}.8.2.0"
    demo.expect('STRING: "Gate B7"' in show(demo, "snmpset", *WRITE, cell, "s", "Gate B7"),
                "SET accepted")
    print("   $ dasunit ctl get 0x10c1\n   " + demo.world.ctl("get", "0x10c1").strip())
    demo.expect(demo.world.held(0x10c1)[-1] == "Gate B7", "the unit holds the label")


def notification(demo):
    demo.say("The unit raises an alarm and clears it; what a receiver gets, by the names of "
             "NORVA-NOTIFY-MIB.")
    kind, *fields = [
        demo.world.run("snmptranslate", "-m", "NORVA-NOTIFY-MIB", f"{BASE}.{number}").stdout.strip()
        for number in (96, 1, 2, 3, 4, 5, 6, 7)]
    demo.expect(kind == "NORVA-NOTIFY-MIB::norvaNotifyAlarm", "a notification with a name")
    for number, action in enumerate(("raise", "clear"), 1):
        words = ("alarm", action, "0x0403", "--device-id", "8", "--text4", "Harbour Terminal")
        print("   $ dasunit ctl " + shlex.join(words))
        demo.world.ctl(*words)
        event = demo.receiver.wait(number)[-1]
        print(f"   {event.via}: {kind}")
        for field, value in zip(fields, event[2:]):
            print(f"      {field} = {value}")
        demo.expect((event.kind, event.name, event.device, event.sequence) ==
                    (96, "Over Temperature Alarm", 8, number), "an alarm with its number")
        demo.expect(event.value == ("New Alarm", "Clear Alarm")[number - 1], action)


def launch(demo):
    demo.say("The simulated unit, and the agent in its default mode with the example configuration: "
             "it launches snmpd itself and attaches to it after 5 s.")
    world = demo.world
    world.place_agent_configuration()
    world.launch()
    print("   $ norvaSnmp -d mapping.db -c unit.conf -p 1161 -x /var/agentx/master")
    world.wait_output("init_snmp end....")
    print("   " + re.search("^cmd->.*", world.agent_output(), re.M)[0])
    demo.expect(len(world.masters()) == 1, "one snmpd")


def read_as_shipped(demo):
    demo.say("SNMPv2c from the unit itself, SNMPv3 from anywhere.")
    v3 = ["-v3", "-u", "norva", "-l", "authPriv", "-a", "SHA-256", "-A", "change-this-auth-phrase",
          "-x", "AES", "-X", "change-this-priv-phrase", "-On", "127.0.0.1:1161"]
    for options in (READ, v3):
        output = show(demo, "snmpget", *options, oid(demo, "Software Version"))
        demo.expect("NDAS 4.2.1" in output, "the unit's software version")


def restart(demo):
    demo.say("A line 'duplicate registration' in snmpd's log: within 10 s the agent restarts snmpd, "
             "and its objects come back without help.")
    before = demo.world.masters()
    demo.world.inside(f"echo 'duplicate registration' >> {LOG}")
    demo.world.wait_restarted(before)
    print(f"   snmpd was process {before[0]}, is {demo.world.masters()[0]}")
    demo.expect("NDAS" in show(demo, "snmpget", *READ, oid(demo, "Software Version")), "served again")


def shell(demo):
    downlink = oid(demo, "Downlink Attenuation")
    print("\nA shell in this world; its end ends the world. The commands above work in it, and:\n"
          f"   snmpset {shlex.join(WRITE)} {downlink} i 9\n"
          "   dasunit ctl get 0x0502    dasunit ctl fault silent    tail -f agent.log", flush=True)
    subprocess.run([*demo.world.enter, "env", "PS1=demo\\$ ", "bash", "--norc"],
                   env=demo.world.environment, check=False)


def end(demo):
    demo.say("SIGTERM: the agent leaves the master and ends; the master stays.")
    agent = demo.world.agent
    agent.signal(signal.SIGTERM)
    demo.expect(agent.wait(10) == -signal.SIGKILL, "ended by its own killall")
    demo.expect("get SIGNUM!\n" in agent.output(), "'get SIGNUM!' printed")
    output = show(demo, "snmpget", *READ, oid(demo, "Software Version"))
    demo.expect("No Such" in output, "the scalars are gone")
    demo.expect(demo.world.master_answers(), "snmpd answers")


STEPS = [start, walk, get_each_kind, set_and_get, frames, decode, refused_set, table, set_cell,
         notification, check]
MASTER_STEPS = [launch, read_as_shipped, restart]


def run(demo):
    steps = MASTER_STEPS if demo.options.master else STEPS
    with (DefaultWorld if demo.options.master else World)(demo.build) as world:
        demo.world, demo.scalars = world, world.scalars()
        (world.directory / "mibs").mkdir()
        shutil.copy(SOURCE / "data/names.yaml", world.directory)
        world.environment["MIBDIRS"] = f"mibs:{SOURCE}/mibs:{SOURCE}/mibs/base"
        world.environment["PATH"] = ":".join([*(str(world.build / folder) for folder in (
            "", "tools/dasunit", "tools/norvamap")), world.environment["PATH"]])
        for step in [*steps, *([shell] if demo.options.shell else []), end]:
            step(demo)
    if not demo.options.master:
        print("\nNext: scripts/demo --shell to try things, --master and --monitor for the other two; "
              "docs/operations.md for a unit.")
