"""What an operator sees: units watched by the real programs with the files in monitoring/."""

import json
import re
import signal
import subprocess
import time

import pytest

from browser import Tab
from fleet import ALERTMANAGER, Fleet
from world import SOURCE, scalar_row, wait_until

MONITORING = SOURCE / "monitoring"
# The numbers of the units; those by v3 are even, UNREADABLE sends by v1.
V2C, V3, UNREADABLE, NOT_UTF8, SILENT, NEWER = range(1, 7)


@pytest.mark.parametrize("command", [
    "promtool check config prometheus.yml", "promtool check rules rules.yml",
    "promtool test rules rules-test.yml", "amtool check-config alertmanager.yml",
    *(f"amtool config routes test --config.file=alertmanager.yml --verify.receivers={receiver}" for receiver in (
        "later severity=minor", "later severity=warning", "operators severity=major", "urgent severity=critical",
        "watchdog alertname=NorvaWatchdog severity=none"))])
def test_files(command):
    result = subprocess.run(command.split(), cwd=MONITORING, capture_output=True, text=True,
                            timeout=90, check=False)
    assert result.returncode == 0, result.stdout + result.stderr


def test_runbooks():
    """Every alert has one, and it is there."""
    guide = (SOURCE / "docs/monitoring.md").read_text()
    anchors = {re.sub(r"[^a-z0-9 -]", "", heading.lower()).replace(" ", "-")
               for heading in re.findall(r"^#+ (.*)", guide, re.M)}
    rules = (MONITORING / "rules.yml").read_text()
    runbooks = set(re.findall(r"monitoring\.md#([\w-]+)", rules))
    assert rules.count("- alert:") == rules.count("runbook_url:") and runbooks <= anchors, runbooks - anchors
    assert all(name.lower() in " ".join(runbooks) for name in re.findall(r"- alert: (\w+)", rules))


# What fires, of which unit, one line after the other, and what that makes quiet.
QUIET = [
    (["UnitUnreachable 1", "HeartbeatMissing 1", "HeartbeatMissing 2", "AlarmNotified 2 vswr", "Alarm 2 vswr",
      "Alarm 2 door", "Alarm 3 vswr", "UnitSilent 4", "ValuesMissing 4", "AlarmNotified 4 vswr"],
     ["HeartbeatMissing 1", "Alarm 2 vswr", "ValuesMissing 4"]),
    (["ReceiverSilent"], ["HeartbeatMissing 2"]), (["ReaderDown"], ["ReceiverSilent"]),
    (["ExporterDown"], ["UnitUnreachable 1", "UnitSilent 4"])]
LABELS = ("alertname", "instance", "alarm", "region")


def test_messages():
    """A cut link to 40 units of two regions: two. What follows from something else: none."""
    with Fleet(0) as fleet:
        fleet.configure()
        fleet.start_alertmanager()

        def fire(alerts):
            body = json.dumps([{"labels": dict(zip(LABELS, f"Norva{alert}".split()))} for alert in alerts])
            fleet.hub.inside(f"curl -sf -H 'Content-Type: application/json' -d '{body}' {ALERTMANAGER}/api/v2/alerts")

        def ask(path):
            return json.loads(fleet.get(ALERTMANAGER, f"/api/v2/alerts{path}"))

        def inhibited():
            alerts = [alert["labels"] for alert in ask("?active=false")]
            return sorted(" ".join(filter(None, map(labels.get, LABELS))) for labels in alerts if "region" not in labels)
        fire(f"UnitUnreachable u{number} - {'north' if number < 30 else 'south'}" for number in range(40))
        wait_until(lambda: sorted(len(group["alerts"]) for group in ask("/groups")) == [10, 30], 90, "two messages")
        quiet = []
        for alerts, following in QUIET:
            fire(alerts)
            quiet = sorted([*quiet, *(f"Norva{alert}" for alert in following)])
            wait_until(lambda: inhibited() == quiet, 90, f"{following} quiet too")


def test_instance():
    """What the relabelling makes of an address is how notifications name their sender. Prometheus
    waits longer than a unit's master, and forgets nothing between scrapes, as it does after 5 minutes."""
    prometheus, master = (MONITORING / "prometheus.yml").read_text(), (SOURCE / "packaging/snmpd.conf").read_text()
    assert int(re.search(r"scrape_timeout: (\d+)s", prometheus)[1]) > int(re.search(r"\nagentXTimeout (\d+)", master)[1])
    assert max(map(int, re.findall(r"interval: (\d+)m", prometheus))) < 5
    regex = re.search(r"regex: '(.*)'", prometheus)[1]
    for address, instance in (("192.0.2.1", "192.0.2.1"), ("192.0.2.1:1161", "192.0.2.1"),
                              ("2001:db8::1", "2001:db8::1"), ("[2001:db8::1]", "2001:db8::1"),
                              ("[2001:db8::1]:161", "2001:db8::1"), ("unit.example:161", "unit.example")):
        assert "".join(filter(None, re.fullmatch(regex, address).groups())) == instance


@pytest.fixture(scope="module")
def fleet():
    with Fleet(6) as made:
        made.start_units()
        made.start_monitoring()
        made.address = made.page_address()
        wait_until(lambda: made.scraped() == 6, 90, "all scraped")
        with Tab() as made.tab:
            yield made
        made.hub.show_logs()


def unit(fleet, number):
    return fleet.units[number - 1]


def open_page(fleet, name):
    """Shows a page, which is fresh every second; its document."""
    fleet.tab.open(f"{fleet.address}/consoles/{name}{'&' if '?' in name else '?'}refresh=1")
    shown = fleet.tab.evaluate("document.documentElement.outerHTML")
    assert not re.search(r'(src|href)="(https?:)?//', shown), "something from elsewhere"
    return re.sub(r"<(script|style)>.*?</\1>", "", shown, flags=re.S)


def card(number):
    """A unit on the page of the fleet."""
    return f'a[href="unit.html?instance=127.1.0.{number}"]'


def shows(fleet, number, *words):
    """Waits for these on the unit's card, which the next evaluation of the rules brings."""
    open_page(fleet, "norva.html")
    fleet.tab.waits_for(*words, selector=card(number))


def fires(fleet, number, name, timeout=90, **labels):
    return wait_until(lambda: fleet.alerts(unit(fleet, number), alertname=name, **labels), timeout,
                      f"{name} of unit {number}")[0]


@pytest.mark.parametrize("number", [V2C, V3])
def test_alarm(fleet, number):
    """By notification, and the unit's object behind it, with the same label; both end."""
    world = unit(fleet, number).world
    world.ctl("set", "0x0402", 1)
    world.ctl("alarm", "raise", "0x0402", "--device-id", 3, "--text4", "Quay")
    alert = fires(fleet, number, "NorvaAlarmNotified", alarm="fan_failure", device="3")
    assert alert["annotations"]["description"] == "Quay"
    fires(fleet, number, "NorvaAlarm", alarm="fan_failure")
    assert f"{unit(fleet, number).address}: New Alarm, Fan Failure Alarm, device 3, number " in (
        fleet.hub.directory / "trapreader.log").read_text()
    shows(fleet, number, "▲ alert", "fan failure alarm")
    world.ctl("set", "0x0402", 0)
    world.ctl("alarm", "clear", "0x0402", "--device-id", 3)
    wait_until(lambda: not fleet.alerts(unit(fleet, number), alarm="fan_failure"), 90, "the end")


def test_gap_and_outage(fleet):
    """snmptrapd was away: the gap is seen. The reader was away: it is said, what was raised stays
    raised, and what came meanwhile comes. Alertmanager was away: it is told again."""
    numbered = f'norvatrap_sequence{{instance="{unit(fleet, V3).address}"}}'
    wait_until(lambda: fleet.value(numbered), 90, "a first notification")
    fleet.snmptrapd.kill()
    unit(fleet, V3).world.ctl("alarm", "raise", "0x0404")
    fleet.start_snmptrapd()
    unit(fleet, V3).world.ctl("alarm", "raise", "0x0405")
    fires(fleet, V3, "NorvaAlarmNotified", alarm="power_supply", severity="critical")
    assert not fleet.alerts(unit(fleet, V3), alarm="pa_failure")
    gap = fires(fleet, V3, "NorvaNotificationGap")
    time.sleep(6)  # so that the state is saved; a pipe, unlike the journal, keeps nothing
    fleet.trapreader.kill()
    open_page(fleet, "norva.html")
    fleet.tab.waits_for("No notifications since", selector="#banners")
    fleet.tab.waits_for("power supply alarm", selector=card(V3))
    unit(fleet, V3).world.ctl("alarm", "raise", "0x0407")
    down = wait_until(lambda: fleet.alerts(alertname="NorvaReaderDown"), 90, "NorvaReaderDown")[0]
    assert fires(fleet, V3, "NorvaAlarmNotified", alarm="power_supply")["status"]["state"] == "active"
    fleet.alertmanager.kill()
    fleet.start_alertmanager()
    fires(fleet, V3, "NorvaAlarmNotified", alarm="power_supply")
    fleet.start_trapreader()
    fires(fleet, V3, "NorvaAlarmNotified", alarm="vswr", severity="major")
    wait_until(lambda: not fleet.alerts(alertname="NorvaReaderDown"), 90, "the reader's alert ended")
    assert down["labels"]["severity"] == "critical" and "Site 2" in gap["annotations"]["summary"]
    for alarm in ("0x0405", "0x0407"):
        unit(fleet, V3).world.ctl("alarm", "clear", alarm)


def test_unit_page(fleet):
    for change in (("0x1022", 0), ("0x0306", 1), ("0x0402", 1)):
        unit(fleet, V2C).world.ctl("set", *change)
    fires(fleet, V2C, "NorvaRemoteUnitMissing", norva_remote_unit_name_info="RU 3")
    fires(fleet, V2C, "NorvaDoorOpen")
    address = unit(fleet, V2C).address
    # Every number and text of the walk, but for the rows' own numbers and the clock.
    wait_until(lambda: fleet.value(f'count({{__name__=~"norva_.*", job!="norva_agent", instance="{address}"}})') ==
               615 - 2 * 32 - 1, 90, "every value")
    assert fleet.value(f'norva_boot_count_value{{instance="{address}"}}') == 17
    open_page(fleet, f"unit.html?instance={address}")
    assert fleet.tab.evaluate("[9, 120, 7200, 864000].map(ago).join()") == "9 s,2 min,2 h,10 d"
    fleet.tab.waits_for(
        "Site 1", "Software Version NDAS 4.2.1", "Door State opened", "PA Temperature 58.7 °C", "Humidity 38 %",
        "Low Temperature Threshold -20 °C", "Bandwidth 20 MHz", "Downlink Start Frequency 2110 MHz",
        "Downlink Output Power 34.1 dBm", "minor door open", "major remote unit missing",
        "3 RU 3 absent -1 °C 1.0 dB 25.6 dBm on 10.0.20.3 Floor 3")
    wait_until(lambda: re.search(r"fan failure alarm \S+, \S+, \d+ s", fleet.tab.text("#troubles")), 90, "since when")
    assert fleet.tab.evaluate("document.getElementById('state').className") == "word major"
    rows = fleet.tab.evaluate(
        "[...document.querySelectorAll('#remote-units td:first-child')].map(cell => cell.textContent)")
    assert rows == [str(row) for row in range(1, 33)]
    lines = '[...document.querySelectorAll("path")].filter(path => /\\d/.test(path.getAttribute("d"))).length'
    wait_until(lambda: fleet.tab.evaluate(lines) == 7, 90, "lines in three graphs")
    # Fresh by itself, and what is opened stays so.
    fleet.tab.evaluate("document.querySelector('details').open = true")
    unit(fleet, V2C).world.ctl("set", "0x0306", 0)
    fleet.tab.waits_for("Door State closed")
    assert fleet.tab.evaluate("document.querySelector('details').open")
    assert fleet.tab.evaluate(lines) == 7
    open_page(fleet, f"unit.html?instance={address}&hours=6")
    asked = fleet.tab.evaluate("performance.getEntriesByType('resource').map(one => one.name).join()")
    start, end = map(float, re.search(r"start=([\d.]+)&end=([\d.]+)", asked).groups())
    assert round(end - start) == 6 * 3600
    open_page(fleet, "unit.html?instance=10.9.8.7")
    assert "No unit 10.9.8.7" in fleet.tab.text()
    # What a unit or an address says is text on the page.
    assert "<b>x" not in open_page(fleet, "unit.html?instance=%3Cb%3Ex%22%7D")
    unit(fleet, V2C).world.ctl("set", "0x1022", 1)
    unit(fleet, V2C).world.ctl("set", "0x0402", 0)


def test_crowded_card(fleet):
    """Six alarms, the worst first, and how many more; what their texts say is text."""
    world = unit(fleet, V2C).world
    for alarm in range(0x0401, 0x0408):
        world.ctl("alarm", "raise", hex(alarm), "--text4", "<img src=x onerror=document.title=1>")
    shows(fleet, V2C, "optical link alarm", "vswr alarm", "+1")
    shown = fleet.tab.text(card(V2C))
    assert (max(shown.index(critical) for critical in ("optical link", "pa failure", "power supply")) <
            min(shown.index(major) for major in ("fan failure", "over temperature", "vswr")))
    assert "door open" not in shown
    address = unit(fleet, V2C).address
    assert "<img" not in open_page(fleet, f"unit.html?instance={address}")
    fleet.tab.waits_for("<img src=x", "minor door open alarm", selector="#troubles")
    for alarm in range(0x0401, 0x0408):
        world.ctl("alarm", "clear", hex(alarm))
    fleet.tab.waits_for("✓ well")


def test_monitoring_fails(fleet):
    """Part after part. What the page knew it shows on, with the time; nothing is said of units."""
    unit(fleet, NEWER).world.ctl("set", "0x0600", "Site 10")
    open_page(fleet, "norva.html")
    names = '[...document.querySelectorAll(".name")].map(name => name.textContent).join()'
    wait_until(lambda: fleet.tab.evaluate(names).endswith("Site 3,Site 4,Site 5,Site 10"), 90,
               "units that are well, last and in natural order")
    fleet.tab.evaluate("[...document.querySelectorAll('#totals button')].at(-1).click()")
    fleet.prometheus.kill()
    fleet.tab.waits_for("Stale since", selector="#banners")
    assert fleet.tab.evaluate(names)
    fleet.start_prometheus()
    began = time.time()
    wait_until(lambda: fleet.tab.text("#banners") == "", 90, "fresh again")
    assert fleet.tab.evaluate("document.querySelector('[aria-pressed=true]').innerText").endswith("well")
    wait_until(lambda: (fleet.value('min(timestamp(up{job="norva"}))') or 0) > began, 90, "all scraped")
    fleet.exporter.kill()
    wait_until(lambda: not fleet.tab.evaluate(names), 90, "no unit that is well")
    fleet.tab.evaluate("document.querySelector('#totals button').click()")
    fleet.tab.waits_for("? not asked", selector=card(SILENT))
    fleet.tab.waits_for("exporter does not run", selector="#banners")
    alert = fires(fleet, SILENT, "NorvaUnitUnreachable")
    assert alert["status"]["inhibitedBy"], alert
    fleet.start_exporter()
    fleet.tab.waits_for("✓ well", selector=card(SILENT))
    open_page(fleet, f"unit.html?instance={unit(fleet, SILENT).address}&hours=0.1")
    parts = "document.querySelector('path').getAttribute('d').split('M').length - 1"
    wait_until(lambda: fleet.tab.evaluate(parts) >= 2, 90, "a line that ends and begins anew")


def test_what_goes_wrong(fleet):
    """Each case by its alert and on the page."""
    bad = unit(fleet, UNREADABLE)
    for object_id in ("0x1042", "0x0504"):
        bad.world.ctl("delete", object_id)
    unit(fleet, NOT_UTF8).world.ctl("set", "0x0600", '"K\\xf6ln"')
    unit(fleet, NOT_UTF8).world.ctl("alarm", "raise", "0x0405")
    unit(fleet, SILENT).world.ctl("fault", "silent")
    newer = unit(fleet, NEWER).world
    database = newer.make_database(
        "UPDATE SNMP_GENERAL_OBJ_TABLE SET suffix4 = '77' WHERE objId = '0309'",
        "UPDATE SNMP_GENERAL_OBJ_TABLE SET asnType = '4', covMethod = '1004' WHERE objId = '030D'",
        scalar_row(0x0999, 50, name="New Object"))
    newer.agent.kill()
    fires(fleet, NEWER, "NorvaAgentMissing")
    newer.start_agent(database=database)

    missing = fires(fleet, UNREADABLE, "NorvaValuesMissing")
    assert missing["annotations"]["summary"].endswith("gives 2 values fewer than before")
    fires(fleet, NOT_UTF8, "NorvaTextsUnreadable")
    fires(fleet, SILENT, "NorvaUnitSilent")
    assert not fleet.alerts(unit(fleet, SILENT), alertname="NorvaUnitUnreachable")
    fires(fleet, NEWER, "NorvaValuesMissing")
    assert not fleet.alerts(unit(fleet, NEWER), alertname="NorvaAgentMissing")
    # What is a text now and was a scaled number, the exporter does not show.
    assert fleet.value(f'norva_humidity_ratio{{instance="{unit(fleet, NEWER).address}"}}') is None

    shows(fleet, UNREADABLE, "values missing")
    shows(fleet, NOT_UTF8, "texts unreadable", "Site 4")
    shows(fleet, SILENT, "✕ no values")
    open_page(fleet, f"unit.html?instance={bad.address}")
    fleet.tab.waits_for("3 RU 3 connected – 1.0 dB")
    wait_until(lambda: re.search(r"heartbeat (\dm )?\d+s ago", fleet.tab.text("#facts")), 90, "its heartbeat")
    fleet.tab.waits_for("slowest reply of the unit", selector="#agent")
    assert "Downlink Output Power" not in fleet.tab.text().split("Graphs of")[0]

    unit(fleet, SILENT).world.master.signal(signal.SIGKILL)
    fires(fleet, SILENT, "NorvaUnitUnreachable")
    shows(fleet, SILENT, "✕ no answer")
    # What is worst first.
    assert re.findall(r"Site \d+", fleet.tab.text("#fleet"))[:2] == ["Site 5", "Site 4"]
    for number in (V2C, V3, UNREADABLE):
        fleet.tab.waits_for("s ago", selector=card(number))
