#include "TableHandlerTwo.h"

namespace norva {

TableClassState TableHandlerTwo::_state({
    .registrationName = "TableHandlerTwo",
    .sourceName = "../src/TableHandlerTwo",
    .printsPrefix = false,
});

}  // namespace norva
