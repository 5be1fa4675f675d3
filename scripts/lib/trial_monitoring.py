"""The trial of the monitoring: set up by the commands of its guide, then storms of notifications."""

import json
import re
import time

from project import SOURCE, Failure

from world import wait_until

SENDERS, EACH = 20, 600
_USER = 'norva SHA-256 "change-this-auth-phrase" AES "change-this-priv-phrase"'
_V3 = "-v3 -l authPriv -u norva -a SHA-256 -A change-this-auth-phrase -x AES -X change-this-priv-phrase"
# What is on the machine already; the rest of the guide's commands are run as they stand.
_INSTEAD = """
editor() { :; }
apt-get() {
  case $* in
    *norvasnmp-tools*)
      command apt-get --yes --quiet install /mnt/norvasnmp-tools_*.deb
      cd /usr/share/norvasnmp/sample
      ;;
    *) systemctl enable --now prometheus prometheus-alertmanager prometheus-snmp-exporter ;;
  esac
}
"""


def _engine_id(sender):
    return f"0x80001f88045500{sender:02x}"


class MonitoringTrial:
    """Checks as those of the packages' trial."""

    LOGS = ["norva-trapreader", "snmptrapd", "prometheus"]

    def __init__(self, machine):
        self.machine = machine
        self.shell = machine.shell
        self.number = 1  # of the next notification, with every sender

    def done(self, command, **options):
        """Runs a command that must not fail; its output."""
        result = self.machine.run("bash", "-c", f"exec 2>&1\nset -e\n{command}", **options)
        assert result.returncode == 0, f"{command[-200:]}: {result.stdout.strip()[-600:]}"
        return result.stdout

    def metrics(self, name):
        """The sum of a metric of the reader's."""
        page = self.shell("curl -s http://127.0.0.1:9117/metrics")
        return sum(float(value) for value in re.findall(rf"^norvatrap_{name}(?:{{.*}})? (\S+)$", page, re.M))

    def alerts(self, **labels):
        """What Alertmanager has been told."""
        answer = self.shell("curl -s http://127.0.0.1:9093/api/v2/alerts")
        return [alert for alert in json.loads(answer or "[]") if labels.items() <= alert["labels"].items()]

    def send(self, count, senders=range(SENDERS)):
        """A script that sends the next alarms of each sender, half of them by SNMPv3, and waits."""
        self.number += count
        first = self.number - count
        return "\n".join(
            f"SNMPCONFPATH=/tmp/senders/{sender} python3 /mnt/trap_sender.py {first} {count} "
            + (f"{_V3} -e {_engine_id(sender)} -Z 1,{first}" if sender % 2 else "-v2c -c public")
            + " 127.0.0.1:162 || touch /tmp/failed &" for sender in senders) + "\nwait\n"

    def storm(self, meanwhile=lambda: None):
        """Every sender's alarms: how many are counted, how many are known to be lost."""
        before = [self.metrics("notifications_total"), self.metrics("lost")]
        began = time.monotonic()
        self.done(f"systemd-run --quiet --collect --unit=storm sh -c '{self.send(EACH)}'")
        meanwhile()
        wait_until(lambda: "inactive" in self.shell("systemctl is-active storm"), 300, "the senders' end")
        sent = time.monotonic() - began
        # A number that is missing shows with the next one.
        self.done("sleep 1\n" + self.send(1))

        def result():
            return [now - then for now, then in
                    zip((self.metrics("notifications_total"), self.metrics("lost")), before)]
        try:
            wait_until(lambda: sum(result()) >= SENDERS * (EACH + 1), 120, "all of them")
        except Failure:
            pass  # the caller sees what came
        assert self.machine.run("test", "-e", "/tmp/failed").returncode != 0, "a sender failed"
        counted, lost = result()
        print(f"   {counted:.0f} counted, {lost:.0f} known to be lost; sent within {sent:.1f} s, read after "
              f"{time.monotonic() - began:.1f} s")
        return counted, lost

    # The checks, in their order

    def set_up(self):
        """The guide's commands; a unit's users for the senders. A journal with little room suppresses
        what comes in a storm, unless a service has a limit of its own."""
        self.done("mkdir -p /etc/systemd/journald.conf.d\n"
                  "printf '[Journal]\\nRateLimitBurst=500\\n' > /etc/systemd/journald.conf.d/trial.conf\n"
                  "systemctl restart systemd-journald")
        guide = (SOURCE / "docs/monitoring.md").read_text()
        guide = guide[guide.index("## From nothing"):]
        blocks = re.findall(r"^   ```\n(.*?)^   ```", guide[:guide.index("\n## ", 3)], re.M | re.S)
        commands = "".join(block for block in blocks if "target=" not in block)
        self.done(f"set -e{_INSTEAD}{commands}", timeout=120)
        users = "\n".join(f"createUser -e {_engine_id(sender)} {_USER}" for sender in range(SENDERS))
        self.done(f"set -e\nsystemctl stop snmptrapd\ncat >> /etc/snmp/snmptrapd.conf <<'EOF'\n"
                  f"[snmptrapd]\n{users}\nEOF\nsystemctl start snmptrapd")
        for sender in range(SENDERS):
            self.done(f"mkdir -p /tmp/senders/{sender}; "
                      f"echo 'clientaddr 127.1.0.{sender + 1}' > /tmp/senders/{sender}/snmp.conf")
        wait_until(lambda: self.alerts(alertname="NorvaWatchdog"), 90, "an alert in Alertmanager")

    def nobody_listens(self):
        """But on the loopback, and for notifications."""
        for family, loopback in (("tcp", "0100007F:"), ("tcp6", "00000000000000000000000001000000:")):
            for line in self.done(f"cat /proc/net/{family}").splitlines()[1:]:
                address, state = line.split()[1], line.split()[3]
                assert state != "0A" or address.startswith(loopback), line

    def reader_confined(self):
        report = self.done("systemd-analyze security norva-trapreader")
        print("  ", re.search(r"Overall .*: [\d.]+ \w+", report)[0])
        assert float(re.search(r"Overall .*: ([\d.]+)", report)[1]) < 2

    def storm_counted(self):
        assert self.storm() == (SENDERS * (EACH + 1), 0)

    def storm_survived(self):
        """snmptrapd, the reader and Prometheus are killed meanwhile, twice each: what snmptrapd has
        written is counted, once."""
        def kill():
            for program in 2 * ("snmptrapd", "norva-trapreader", "prometheus"):
                time.sleep(0.3)
                self.done(f"systemctl kill --signal=KILL {program}")
        counted, lost = self.storm(kill)
        assert counted + lost == SENDERS * (EACH + 1)
        written = self.done("journalctl --quiet --all --output=cat _SYSTEMD_UNIT=snmptrapd.service | grep -cF .0.96")
        assert int(written) == self.metrics("notifications_total"), written
        if lost:
            wait_until(lambda: self.alerts(alertname="NorvaNotificationGap"), 120, "the gap's alert")

    def alarms_shown(self):
        """What is raised now is an alert, each sender's last one among them."""
        last = f"alarm_{(self.number - 1) % 10}"
        wait_until(lambda: len(self.alerts(alertname="NorvaAlarmNotified", alarm=last)) == SENDERS, 90,
                   "an alert of each sender")
        assert re.search(r"^127.1.0.3: New Alarm, Alarm \d, device 8, number \d+: Quay, x{255}, of 127.0.0.1:162$",
                         self.done("journalctl --quiet --output=cat --unit=norva-trapreader"), re.M)
        directory = "/usr/share/norvasnmp/monitoring"
        assert self.done(f"{directory}/trapreader --clear 127.1.0.3 {last}") == "1 alarms ended\n"
        assert self.done(f"{directory}/trapreader --forget 127.1.0.4").endswith("alarms ended\n")
        wait_until(lambda: len(self.alerts(alertname="NorvaAlarmNotified", alarm=last)) == SENDERS - 2, 90,
                   "their ends")

    def gap_told(self):
        """Five are sent while nobody listens."""
        lost = self.metrics("lost")
        self.done("systemctl stop snmptrapd.socket snmptrapd\n" + self.send(5, [2])
                  + "systemctl start snmptrapd.socket snmptrapd\n" + self.send(1, [2]))
        wait_until(lambda: self.metrics("lost") == lost + 5, 90, "five that did not come")
        wait_until(lambda: self.alerts(alertname="NorvaNotificationGap", instance="127.1.0.3"), 120,
                   "the gap's alert")

    def place_lost(self):
        """What comes while the reader is stopped is read, although its place in the journal is damaged."""
        before = self.metrics("notifications_total")
        state = "/var/lib/norva-trapreader/state.json"
        self.done(f"systemctl stop norva-trapreader\n{self.send(1, [2])}cp {state} /tmp\n"
                  f"sed 's/\"cursor\": \"/&x/' /tmp/state.json > {state}\nif cmp {state} /tmp/state.json; then exit 1; fi\n"
                  "systemctl start norva-trapreader")
        wait_until(lambda: self.metrics("notifications_total") == before + 1, 90, "one more")

    CHECKS = [set_up, nobody_listens, reader_confined, storm_counted, storm_survived, alarms_shown, gap_told,
              place_lost]
