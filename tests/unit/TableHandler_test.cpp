#include "TableHandler.h"

#include "TestSupport.h"

namespace norva::test {
namespace {

TEST(TableHandlerTest, RowsStandInOrderWithoutDoubles) {
  TableClassState state{TableTraits{"rows", "Rows", false}};
  struct Rows : TableHandler {
    explicit Rows(TableClassState& own) : TableHandler(own, nullptr) {}
  } rows{state};
  for (const int index : {5, 3, 5, 9, 1}) rows.addIndex(index);
  for (const int index : {7, 1, 5}) rows.removeIndex(index);  // there is no 7
  std::vector<std::int32_t> left;
  for (auto* row = state.rowListHead; row != nullptr; row = row->next) left.push_back(row->index);
  EXPECT_EQ(left, (std::vector<std::int32_t>{3, 9}));
  rows.clearIndexes();
  EXPECT_EQ(state.rowListHead, nullptr);
}

}  // namespace
}  // namespace norva::test
