#include "RegisteredObjects.h"

#include <algorithm>
#include <utility>

namespace norva {

RegisteredObjects& RegisteredObjects::get() {
  static auto* const instance = new RegisteredObjects;
  return *instance;
}

void RegisteredObjects::addScalar(Oid place) {
  _places.push_back(std::move(place));
  _scalars.add();
}

void RegisteredObjects::addTable(Oid place, std::size_t cells) {
  _places.push_back(std::move(place));
  _tables.add();
  _cells.add(static_cast<std::uint32_t>(cells));
}

bool RegisteredObjects::meets(const Oid& place) const {
  return std::any_of(_places.begin(), _places.end(), [&place](const Oid& taken) {
    return isWithin(taken, place) || isWithin(place, taken);
  });
}

}  // namespace norva
