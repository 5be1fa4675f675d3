"""What is known of the units from their notifications. No input or output here.

Everything is bounded, and what a bound costs is counted. Whoever sends most pays for it: beyond the
bytes that all may have together, the sender with the most of them loses alarms first.
"""

import hashlib

from trapline import alarm_label

MAX_UNITS = 5000
MAX_ALARMS = 1000  # of one unit, ended ones included
MAX_BYTES = 32 << 20  # of all alarms together, as `_size` counts them
RECENT = 64  # so many notifications may wait for the master's acknowledgement and be sent again
LATE = 256  # so many may be late or come again, as informs do when the receiver is back, in any order
LATE_S = 30  # what is late comes close together
RESTART_S = 900  # the same number 1 again, later than this: a new start that begins as the last did


def new_state():
    """As it is kept in state.json: where in the journal it ends, units by address, counts."""
    return {"cursor": None, "units": {}, "size": 0, "malformed": 0, "ignored": 0, "forgotten": 0}


def _new_unit():
    # `recent`: number -> digest; `one`: when number 1 came; `again`: 1 to this have just come again,
    # which may be a new start; `missing`: numbers that may come late; `alarms`:
    # "label/device" -> its last change, start and sequence number included; `size`: theirs.
    return {"start": 0, "last": 0, "recent": {}, "one": 0, "again": 0, "missing": [], "time": 0,
            "heartbeat": 0, "gap": 0, "lost": 0, "repeated": 0, "counts": {}, "alarms": {}, "size": 0}


def _digest(event):
    content = (event.kind, event.name, event.value, event.device, event.texts, event.sequence)
    return hashlib.sha1(repr(content).encode("utf-8", "replace")).hexdigest()[:8]


def _is_repeated(unit, event, digest):
    """Whether this very notification was there already: the agent sends again what its master may
    not have got, also after its own restart if it keeps its numbers. A 1 with another content, or
    much later, is a new start."""
    return unit["recent"].get(str(event.sequence)) == digest and (
        event.sequence != 1 or event.time - unit["one"] <= RESTART_S)


def _number(unit, event):
    """Follows the numbers; whether the notification is new."""
    digest = _digest(event)
    if _is_repeated(unit, event, digest):
        unit["repeated"] += 1
        if event.sequence == unit["again"] + 1:
            unit["again"] += 1
        return False
    number, last, again = event.sequence, unit["last"], unit["again"]
    unit["again"] = 0
    if number in unit["missing"]:  # overtaken on its way
        unit["missing"].remove(number)
        unit["lost"] -= 1
        if not unit["missing"] and unit["lost"] == unit.get("lost_before", unit["lost"]):
            unit["gap"] = unit["gap_before"]
    elif number > last or unit["time"] == 0:
        if unit["time"]:
            _note_gap(unit, last + 1, number, event.time)
        unit["last"] = number
    else:  # the agent has started anew, its numbers with it
        recent = {key: known for key, known in unit["recent"].items() if int(key) <= again}
        unit.update(start=unit["start"] + 1, last=number, recent=recent, missing=[])
        _note_gap(unit, again + 1, number, event.time)
    unit["recent"][str(number)] = digest
    if number == 1:
        unit["one"] = event.time
    limit = LATE if event.time - unit["time"] <= LATE_S else RECENT
    while len(unit["recent"]) > limit:
        unit["recent"].pop(next(iter(unit["recent"])))
    return True


def _note_gap(unit, first, number, now):
    """The numbers from `first` to before `number` did not come."""
    if number > first:
        if not unit["missing"]:
            unit.update(gap_before=unit["gap"], lost_before=unit["lost"])
        unit["lost"] += number - first
        unit["gap"] = now
        unit["missing"] = (unit["missing"] + list(range(max(first, number - LATE), number)))[-LATE:]


def _size(label, alarm):
    return 200 + sum(len(text.encode("utf-8", "replace")) for text in (label, alarm["name"], *alarm["texts"]))


def _resize(state, unit, change):
    unit["size"] += change
    state["size"] += change


def _remove(state, unit, label):
    alarm = unit["alarms"].pop(label)
    _resize(state, unit, -_size(label, alarm))
    return alarm


def _forget_one(state, unit):
    """An alarm that has ended, or else the oldest."""
    ended = (label for label, alarm in unit["alarms"].items() if alarm["ended"])
    gone = _remove(state, unit, next(ended, next(iter(unit["alarms"]))))
    state["forgotten"] += not gone["ended"]


def _change_alarm(state, unit, event):
    label = f"{alarm_label(event.name)}/{event.device}"
    order = [unit["start"], event.sequence]
    known = unit["alarms"].get(label)
    if known and known["order"] > order:
        return  # overtaken by a later change of the same alarm
    alarm = {"name": event.name, "texts": event.texts, "order": order,
             "since": known["since"] if known and not known["ended"] else event.time,
             "ended": event.value == "Clear Alarm"}
    if known:
        _remove(state, unit, label)
    unit["alarms"][label] = alarm
    _resize(state, unit, _size(label, alarm))
    if len(unit["alarms"]) > MAX_ALARMS:
        _forget_one(state, unit)
    while state["size"] > MAX_BYTES:
        _forget_one(state, max(state["units"].values(), key=lambda one: one["size"]))


def fold(state, event):
    """Takes a notification in; whether it is a new one of a unit that is followed."""
    units = state["units"]
    if event.unit not in units and len(units) >= MAX_UNITS:
        state["ignored"] += 1
        return False
    unit = units.setdefault(event.unit, _new_unit())
    is_new = _number(unit, event)
    unit["time"] = event.time
    if is_new:
        unit["counts"][event.kind] = unit["counts"].get(event.kind, 0) + 1
    if event.kind == "heartbeat":
        unit["heartbeat"] = event.time
    elif event.kind == "alarm" and is_new:
        _change_alarm(state, unit, event)
    return is_new


def clear(state, address, alarm, device=None):
    """Ends an alarm, of one device or of all (None); how many were raised."""
    ended = [label for of_unit, label, _ in raised(state) if of_unit == address
             and label.rpartition("/")[0] == alarm and device in (None, label.rpartition("/")[2])]
    for label in ended:
        state["units"][address]["alarms"][label]["ended"] = True
    return len(ended)


def forget(state, address):
    """Drops what is known of a unit; how many of its alarms were raised."""
    ended = sum(of_unit == address for of_unit, _, _ in raised(state))
    state["size"] -= state["units"].pop(address, {"size": 0})["size"]
    return ended


def raised(state):
    """(unit, "label/device", alarm) of each that is raised."""
    return [(address, label, alarm) for address, unit in state["units"].items()
            for label, alarm in unit["alarms"].items() if not alarm["ended"]]
