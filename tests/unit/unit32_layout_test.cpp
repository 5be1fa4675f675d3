// The unit's processor is a 32-bit one: what its sizes must be. Compiled for such a target only,
// against the workstation's headers of the agent library; the sizes are what is tested, when it is
// compiled.

#include <gtest/gtest.h>

#include "AgentLibrary.h"
#include "ComPortAdapter.h"

namespace norva::test {
namespace {

TEST(Unit32Layout, SizesAreThoseOfTheUnit) {
  static_assert(sizeof(oid) == 4);
  static_assert(sizeof(struct variable4) == 28, "entry size of the scalar registration");
  EXPECT_EQ(ComPortAdapter::kTypeSize, 4U) << "message type in front of every payload";
}

}  // namespace
}  // namespace norva::test
