#include "Reports.h"

#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "Metrics.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

namespace {

using dasunit::formatObjectId;

class Comparison {
 public:
  Comparison(const Mapping& before, const Mapping& after) : before_(before), after_(after) {
    note(before, oldByOid_);
    note(after, newByOid_);
  }

  std::vector<Change> run() {
    for (const ServedObject& object : before_.objects()) {
      if (!object.isIndex && object.doubt != Doubt::kInside) compareOld(object);
    }
    for (const ServedObject& object : after_.objects()) {
      if (object.isIndex || object.doubt == Doubt::kInside || oldByOid_.count(object.oid) != 0)
        continue;
      if (before_.findObject(object.objId) != nullptr &&
          newByOid_.count(before_.findObject(object.objId)->oid) == 0) {
        continue;  // said as moved
      }
      add(object, "added", false, "object " + formatObjectId(object.objId));
    }
    return std::move(changes_);
  }

 private:
  using ByOid = std::map<Oid, const ServedObject*>;

  static void note(const Mapping& mapping, ByOid& byOid) {
    for (const ServedObject& object : mapping.objects()) {  // in the order of their OIDs
      if (object.doubt != Doubt::kInside) byOid.emplace_hint(byOid.end(), object.oid, &object);
    }
  }

  void compareOld(const ServedObject& old) {
    const auto found = newByOid_.find(old.oid);
    if (found == newByOid_.end()) {
      const ServedObject* elsewhere = after_.findObject(old.objId);
      if (elsewhere == nullptr) {
        add(old, "removed", true, "object " + formatObjectId(old.objId));
      } else {
        add(old, "moved", true,
            "to " + (elsewhere->table < 0
                         ? oidText(elsewhere->oid)
                         : format("column %u of ", elsewhere->column) + nodeOf(*elsewhere)));
      }
      return;
    }
    const ServedObject& now = *found->second;
    if (now.objId != old.objId) {
      add(old, "replaced", true, "shows another device object");
    }
    const ObjInfo& a = old.info;
    const ObjInfo& b = now.info;
    const std::string oldType = typeOf(old);
    const std::string newType = typeOf(now);
    if (oldType != newType) {
      add(old, "type", oldType != "no value", oldType + " -> " + newType);
    }
    if (old.writable != now.writable) {
      add(old, "access", old.writable,
          old.writable ? "read-write -> read-only" : "read-only -> read-write");
    }
    if (a.covMethod != b.covMethod && describeMethod(a.covMethod) != describeMethod(b.covMethod)) {
      add(old, "scale", true, describeMethod(a.covMethod) + " -> " + describeMethod(b.covMethod));
    }
    // Alarms carry the names of scalars.
    if (a.name != b.name) {
      add(old, "name", old.table < 0, old.table < 0 ? "-> " + inQuotes(b.name) : "of the cells");
    }
  }

  static std::string typeOf(const ServedObject& object) {
    const bool hasValue = canBeAnswered(object.info.asnType, object.info.covMethod);
    return hasValue ? describeType(object.info.asnType) : "no value";
  }

  const std::string& nodeOf(const ServedObject& cell) const {
    return after_.tables()[static_cast<std::size_t>(cell.table)].node;
  }

  /// Cells of a column that change alike are one change.
  void add(const ServedObject& object, const std::string& kind, bool breaks, std::string text) {
    const bool isCell = object.table >= 0;
    if (isCell && (kind == "added" || kind == "removed")) text = "cells";
    if (isCell) {
      Oid column = object.oid;
      column.resize(column.size() - 2);
      const auto [place, isNew] =
          placeOf_.try_emplace({std::move(column), kind, text, breaks}, changes_.size());
      if (!isNew) {
        ++changes_[place->second].count;
        return;
      }
    }
    changes_.push_back({kind, breaks, oidText(object.oid), object.info.name, text, 1});
  }

  const Mapping& before_;
  const Mapping& after_;
  ByOid oldByOid_;
  ByOid newByOid_;
  std::vector<Change> changes_;
  /// Of the changes of cells, by column, kind, text and whether they break something.
  std::map<std::tuple<Oid, std::string, std::string, bool>, std::size_t> placeOf_;
};

}  // namespace

std::vector<Change> compare(const Mapping& before, const Mapping& after) {
  return Comparison(before, after).run();
}

std::vector<Change> compareMetrics(const NamedMapping& before, const NamedMapping& after) {
  std::map<Oid, Metric> known;
  for (Metric& metric : metricsOf(before)) known.emplace(metric.object->node(), std::move(metric));
  std::vector<Change> changes;
  for (const Metric& now : metricsOf(after)) {
    const auto old = known.find(now.object->node());
    if (old == known.end()) continue;
    const Metric& was = old->second;
    std::string text;
    if (was.name != now.name) {
      text = was.name + " -> " + now.name;
    } else if (was.exponent != now.exponent) {
      text = now.name + format(": values x 10^%d", now.exponent - was.exponent);
    } else {
      continue;
    }
    changes.push_back({"metric", true, oidText(was.object->first->oid), was.object->title, text,
                       was.object->instances.size()});
  }
  return changes;
}

std::string asText(const std::vector<Change>& changes) {
  std::string text;
  for (const Change& change : changes) {
    text += change.oid + ' ' + inQuotes(change.name);
    if (change.count > 1) text += format(" and %zu more of its column", change.count - 1);
    text += ": " + change.kind + ": " + change.text + (change.breaks ? " (breaks)\n" : "\n");
  }
  return text;
}

std::string asJson(const std::vector<Change>& changes) {
  auto list = nlohmann::ordered_json::array();
  for (const Change& change : changes) {
    list.push_back({{"oid", change.oid},
                    {"name", change.name},
                    {"count", change.count},
                    {"change", change.kind},
                    {"text", change.text},
                    {"breaks", change.breaks}});
  }
  return list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace norva::mapping
