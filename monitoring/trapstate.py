"""What is known of the units from their notifications. No input or output here."""

import hashlib

from trapparse import alarm_label

MAX_UNITS = 5000
MAX_ALARMS = 1000  # of one unit, ended ones included
MAX_OUTBOX = 5000
RECENT = 64  # so many notifications may wait for the master's acknowledgement and be sent again
REPEAT_S = 900  # and not later than this


def new_state():
    """As it is kept in state.json: units by address, alerts that are not posted yet, counts."""
    return {"units": {}, "outbox": [], "malformed": 0, "refused": 0,
            "dropped": 0, "ignored": 0, "forgotten": 0}


def _new_unit():
    # `recent`: number -> [digest, time]; `again`: 1 to this have just come again, which may be a
    # new start; `missing`: numbers of the last gaps that may come late;
    # `alarms`: "label/device" -> its last change, start and sequence number included.
    return {"start": 0, "last": 0, "recent": {}, "again": 0, "missing": [], "time": 0,
            "heartbeat": 0, "gap": 0, "lost": 0, "repeated": 0, "counts": {}, "alarms": {}}


def _digest(event):
    return hashlib.sha1(repr(event[1:]).encode()).hexdigest()[:8]


def _is_repeated(unit, event, now):
    """Whether this very notification was there already: the agent sends again what its master may
    not have got. A 1 with another content, or much later, is a new start."""
    digest, when = unit["recent"].get(str(event.sequence), ("", 0))
    return digest == _digest(event) and now - when <= REPEAT_S


def _number(unit, event, now):
    """Follows the numbers; whether the notification is new."""
    if _is_repeated(unit, event, now):
        unit["repeated"] += 1
        if event.sequence == unit["again"] + 1:
            unit["again"] += 1
        return False
    number, last, again = event.sequence, unit["last"], unit["again"]
    unit["again"] = 0
    if number in unit["missing"]:  # overtaken on its way
        unit["missing"].remove(number)
        unit["lost"] -= 1
        if not unit["missing"]:
            unit["gap"] = unit["gap_before"]
    elif number > last or unit["time"] == 0:
        if unit["time"]:
            _note_gap(unit, last + 1, number, now)
        unit["last"] = number
    else:  # the agent has started anew, its numbers with it
        recent = {key: known for key, known in unit["recent"].items() if int(key) <= again}
        unit.update(start=unit["start"] + 1, last=number, recent=recent, missing=[])
        _note_gap(unit, again + 1, number, now)
    unit["recent"][str(number)] = [_digest(event), now]
    while len(unit["recent"]) > RECENT:
        unit["recent"].pop(next(iter(unit["recent"])))
    return True


def _note_gap(unit, first, number, now):
    """The numbers from `first` to before `number` did not come."""
    if number > first:
        if not unit["missing"]:
            unit["gap_before"] = unit["gap"]
        unit["lost"] += number - first
        unit["gap"] = now
        unit["missing"] = (unit["missing"] + list(range(max(first, number - RECENT), number)))[-RECENT:]


def _alert(unit, label, alarm):
    """As Alertmanager's API takes it; an end of None stands for one that has not come."""
    texts = ", ".join(text for text in alarm["texts"] if text)
    return {"labels": {"alertname": "NorvaAlarmNotified", "instance": unit,
                       "alarm": label.rpartition("/")[0], "device": label.rpartition("/")[2],
                       "severity": "major"},
            "annotations": {"summary": f"Unit {unit}: {alarm['name']}", "description": texts,
                            "sequence": str(alarm["order"][1])},
            "start": alarm["since"], "end": alarm["ended"]}


def post(state, alert):
    """Puts an alert behind those that wait; the oldest goes where there are too many."""
    state["outbox"].append(alert)
    if len(state["outbox"]) > MAX_OUTBOX:
        state["outbox"].pop(0)
        state["dropped"] += 1


def _change_alarm(state, address, event, now):
    unit = state["units"][address]
    label = f"{alarm_label(event.name)}/{event.device}"
    order = [unit["start"], event.sequence]
    known = unit["alarms"].get(label)
    if known and known["order"] > order:
        return  # overtaken by a later change of the same alarm
    clears = event.value == "Clear Alarm"
    was_raised = known and known["ended"] is None
    alarm = {"name": event.name, "texts": event.texts, "order": order,
             "since": known["since"] if was_raised else now, "ended": now if clears else None}
    unit["alarms"].pop(label, None)
    unit["alarms"][label] = alarm
    post(state, _alert(address, label, alarm))
    if len(unit["alarms"]) > MAX_ALARMS:
        ended = (key for key, other in unit["alarms"].items() if other["ended"] is not None)
        gone = unit["alarms"].pop(next(ended, next(iter(unit["alarms"]))))
        state["forgotten"] += gone["ended"] is None


def fold(state, event, now):
    """Takes a notification in. `now`: seconds since 1970, when it was handed over."""
    units = state["units"]
    if event.unit not in units and len(units) >= MAX_UNITS:
        state["ignored"] += 1
        return
    unit = units.setdefault(event.unit, _new_unit())
    is_new = _number(unit, event, now)
    unit["time"] = now
    if is_new:
        unit["counts"][event.kind] = unit["counts"].get(event.kind, 0) + 1
    if event.kind == "heartbeat":
        unit["heartbeat"] = now
    elif event.kind == "alarm" and is_new:
        _change_alarm(state, event.unit, event, now)


def clear(state, address, alarm, device, now):
    """Ends an alarm, or all (None), of one device or of all (None); how many were raised."""
    unit = state["units"].get(address, {"alarms": {}})
    ended = 0
    for label, known in unit["alarms"].items():
        name, _, of_device = label.rpartition("/")
        if alarm in (None, name) and device in (None, of_device) and known["ended"] is None:
            known["ended"] = now
            post(state, _alert(address, label, known))
            ended += 1
    return ended


def forget(state, address, now):
    """Ends a unit's alarms and drops what is known of it; how many were raised."""
    ended = clear(state, address, None, None, now)
    state["units"].pop(address, None)
    return ended


def raised(state):
    """(unit, "label/device", alarm) of each that is raised."""
    return [(address, label, alarm) for address, unit in state["units"].items()
            for label, alarm in unit["alarms"].items() if alarm["ended"] is None]


def raised_alerts(state):
    """An alert for each alarm that is raised."""
    return [_alert(*one) for one in raised(state)]
