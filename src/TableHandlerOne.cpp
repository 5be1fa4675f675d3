#include "TableHandlerOne.h"

namespace norva {

TableClassState TableHandlerOne::_state({
    .registrationName = "TableHandlerOne",
    .sourceName = "../src/TableHandlerOne",
    .printsPrefix = true,
});

}  // namespace norva
