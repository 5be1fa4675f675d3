// The mapping as metrics: what Prometheus calls each scalar and column, in which unit, and how its
// value is brought to that. Functions without state.

#ifndef NORVA_MAPPING_METRICS_H_
#define NORVA_MAPPING_METRICS_H_

#include <string>
#include <vector>

#include "NamedMapping.h"

namespace norva::mapping {

enum class MetricKind {
  kGauge,
  kCounter,
  kDecimalText,  ///< a gauge that managers get as a text
  kText,
};

struct Metric {
  const NamedObject* object = nullptr;
  MetricKind kind = MetricKind::kGauge;
  std::string unit;          ///< as the name has it, "celsius"; may be empty
  std::string baseUnit;      ///< the same for people: "degrees Celsius"
  bool takesPrefix = false;  ///< of the base unit: there are mV and MHz
  int exponent = 0;          ///< the metric's value is the managers' times 10 to this power
  std::string
      name;  ///< norva_, the object's name, the unit, `_total` for counters, `_info` for texts
  std::string help;
};

/// Which are asked for together.
enum class Share { kMeasured, kConfigured, kTexts };

/// What managers may write changes when somebody does, what they may not changes by itself.
Share shareOf(const Metric& metric);

/// How bad it is when the object is not 0, as monitoring/rules.yml has it: as annotated, else major
/// for a measured one whose name ends in `_alarm`, before an object id that tells it from another
/// of the same name; empty for what is no alarm.
std::string severityOf(const Metric& metric);

/// One for each scalar and column, in their order, but for clocks, whose label would change with
/// every scrape, and Opaque. Names are unique, also without the endings that mean something to
/// Prometheus: those that were not have their object ids in them, columns table and number.
/// `named` must outlive the result.
std::vector<Metric> metricsOf(const NamedMapping& named);

/// `norvamap severities`: Prometheus rules that tell how bad each alarm is.
std::string severityRules(const NamedMapping& named);

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_METRICS_H_
