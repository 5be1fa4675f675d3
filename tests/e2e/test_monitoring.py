"""What an operator sees: units watched by the real programs with the files in monitoring/."""

import html
import re
import signal
import subprocess
import time

import pytest

from browser import browse
from fleet import ALERTMANAGER, Fleet
from world import SOURCE, WorldError, scalar_row, wait_until

MONITORING = SOURCE / "monitoring"
# The numbers of the units; those by v2c are odd.
V2C, V3, UNREADABLE, NOT_UTF8, SILENT, NEWER = range(1, 7)


@pytest.mark.parametrize("command", [
    "promtool check config prometheus.yml", "promtool check rules rules.yml",
    "promtool test rules rules-test.yml", "amtool check-config alertmanager.yml"])
def test_files(command):
    result = subprocess.run(command.split(), cwd=MONITORING, capture_output=True, text=True,
                            timeout=60, check=False)
    assert result.returncode == 0, result.stdout + result.stderr


def test_instance():
    """What the relabelling makes of an address is how notifications name their sender."""
    regex = re.search(r"regex: '(.*)'", (MONITORING / "prometheus.yml").read_text())[1]
    for address, instance in (("192.0.2.1", "192.0.2.1"), ("192.0.2.1:1161", "192.0.2.1"),
                              ("2001:db8::1", "2001:db8::1"), ("[2001:db8::1]", "2001:db8::1"),
                              ("[2001:db8::1]:161", "2001:db8::1"), ("unit.example:161", "unit.example")):
        assert "".join(filter(None, re.fullmatch(regex, address).groups())) == instance


@pytest.fixture(scope="module")
def fleet():
    try:
        made = Fleet(6)
    except WorldError as error:
        pytest.fail(str(error), pytrace=False)
    with made:
        made.start_units()
        made.start_monitoring()
        made.address = made.page_address()
        wait_until(lambda: made.scraped() == 6, 90, "all scraped")
        yield made
        made.hub.show_logs()


def unit(fleet, number):
    return fleet.units[number - 1]


def page(fleet, name):
    """What Chromium shows of it once its script has run: the document without script and style."""
    shown = wait_until(lambda: load(fleet, name), 60, "a page and its script")
    assert not re.search(r'(src|href)="(https?:)?//', shown), "something from elsewhere"
    return re.sub(r"<(script|style)>.*?</\1>", "", shown, flags=re.S)


def load(fleet, name):
    """Nothing where a busy machine was too slow for the page's script."""
    shown = browse(f"{fleet.address}/consoles/{name}", "--dump-dom")
    return shown if 'data-ready="yes"' in shown or "unit.html?instance=" not in name else None


def text(shown):
    return re.sub(r"\s+", " ", html.unescape(re.sub(r"<[^>]+>", " ", shown)))


def card(shown, address):
    """A unit's text on the page of the fleet."""
    return text(re.search(rf'<a [^>]*data-instance="{address}".*?</a>', shown, re.S)[0])


def shows(fleet, number, *words):
    """Waits for these on the unit's card, which the next evaluation of the rules brings."""
    def shown():
        words_of_card = card(page(fleet, "norva.html"), unit(fleet, number).address)
        return all(word in words_of_card for word in words)
    wait_until(shown, 40, f"{words} on the card of unit {number}")


def fires(fleet, number, name, timeout=90, **labels):
    return wait_until(lambda: fleet.alerts(unit(fleet, number), alertname=name, **labels), timeout,
                      f"{name} of unit {number}")[0]


@pytest.mark.parametrize("number", [V2C, V3])
def test_alarm(fleet, number):
    """By notification, and the unit's object behind it, which is not news then; both end."""
    world = unit(fleet, number).world
    world.ctl("set", "0x0402", 1)
    world.ctl("alarm", "raise", "0x0402", "--device-id", 3, "--text4", "Quay")
    alert = fires(fleet, number, "NorvaAlarmNotified", alarm="fan_failure", device="3")
    assert alert["annotations"]["description"] == "Quay"
    by_object = fires(fleet, number, "NorvaAlarm", alarm="fan_failure")
    assert wait_until(lambda: fleet.alerts(unit(fleet, number), alertname="NorvaAlarm")[0]["status"][
        "inhibitedBy"], 10, "inhibited") == [alert["fingerprint"]], by_object
    assert f"{unit(fleet, number).address}: New Alarm, Fan Failure Alarm, device 3, number " in (
        fleet.hub.directory / "trapreader.log").read_text()
    shows(fleet, number, "▲ alert", "fan failure alarm")
    world.ctl("set", "0x0402", 0)
    world.ctl("alarm", "clear", "0x0402", "--device-id", 3)
    wait_until(lambda: not fleet.alerts(unit(fleet, number), alarm="fan_failure"), 90, "the end")


def test_gap_and_outage(fleet):
    """snmptrapd was away: the gap is seen. The reader was away: it is said, what was raised stays
    raised, and what came meanwhile comes. Alertmanager was away: it is told again."""
    fleet.snmptrapd.kill()
    unit(fleet, V3).world.ctl("alarm", "raise", "0x0404")
    fleet.start_snmptrapd()
    unit(fleet, V3).world.ctl("alarm", "raise", "0x0405")
    fires(fleet, V3, "NorvaAlarmNotified", alarm="power_supply", severity="critical")
    assert not fleet.alerts(unit(fleet, V3), alarm="pa_failure")
    gap = fires(fleet, V3, "NorvaNotificationGap")
    time.sleep(6)  # so that the state is saved; a pipe, unlike the journal, keeps nothing
    fleet.trapreader.kill()
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
    unit(fleet, V2C).world.ctl("set", "0x1022", 0)
    unit(fleet, V2C).world.ctl("set", "0x0306", 1)
    fires(fleet, V2C, "NorvaRemoteUnitMissing", norva_remote_unit_name="RU 3")
    fires(fleet, V2C, "NorvaDoorOpen")
    shown = page(fleet, f"unit.html?instance={unit(fleet, V2C).address}")
    words = text(shown)
    for wanted in ("Site 1", "Software Version NDAS 4.2.1", "Door State opened", "PA Temperature 58.7 °C",
                   "Downlink Output Power 34.1 dBm", "door open", "remote unit missing",
                   "3 RU 3 absent -1 °C 1.0 dB 25.6 dBm on 10.0.20.3 Floor 3"):
        assert wanted in words, wanted
    rows = re.findall(r"<tr[^>]*><td class=\"right\">(\d+)</td>", shown)
    assert rows == [str(row) for row in range(1, 33)]
    assert len(re.findall(r'<path d="L?M?[^"]*\d', shown)) == 7, "lines in three graphs"
    # Every number and text of the walk, but for the rows' own numbers and the clock.
    address = unit(fleet, V2C).address
    assert fleet.value(f'count({{__name__=~"norva_.*", instance="{address}"}})') == 615 - 2 * 32 - 1
    assert fleet.value(f'norva_boot_count_value{{instance="{address}"}}') == 17
    assert "No unit 10.9.8.7" in text(page(fleet, "unit.html?instance=10.9.8.7"))
    # What a unit or an address says is text on the page.
    assert "<b>x" not in page(fleet, "unit.html?instance=<b>x\"}")


def test_what_goes_wrong(fleet):
    """Each case by its alert and on the page."""
    bad = unit(fleet, UNREADABLE)
    for object_id in ("0x1042", "0x0504"):
        bad.world.ctl("delete", object_id)
    unit(fleet, NOT_UTF8).world.ctl("set", "0x0600", '"K\\xf6ln"')
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
    # What is a text now and was a number, the exporter shows as 0.
    assert fleet.value(f'norva_humidity{{instance="{unit(fleet, NEWER).address}"}}') == 0

    shows(fleet, UNREADABLE, "values missing")
    shows(fleet, NOT_UTF8, "texts unreadable", "Site 4")
    shows(fleet, SILENT, "✕ no values")
    details = text(page(fleet, f"unit.html?instance={bad.address}"))
    assert "Downlink Output Power" not in details.split("Graphs of")[0]
    assert "3 RU 3 connected – 1.0 dB" in details

    unit(fleet, SILENT).world.master.signal(signal.SIGKILL)
    fires(fleet, SILENT, "NorvaUnitUnreachable")
    shows(fleet, SILENT, "✕ no answer")


def test_heartbeat(fleet):
    """Once a minute, by v2c and v3."""
    for number in (V2C, V3):
        wait_until(lambda: fleet.value("norvatrap_heartbeat_timestamp_seconds{instance="
                                       f'"{unit(fleet, number).address}"}}'), 70, "a heartbeat")
    assert re.search(r"heartbeat \d+s ago", card(page(fleet, "norva.html"), unit(fleet, V2C).address))
    assert fleet.get(ALERTMANAGER, "/-/healthy")
