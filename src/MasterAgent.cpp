#include "MasterAgent.h"

#include <cstdint>
#include <iterator>

#include "ObjInfo.h"
#include "OidPrefix.h"
#include "Output.h"
#include "ScalarRegistration.h"
#include "ServedObjects.h"
#include "SnmpAgentX.h"
#include "SnmpDataBase.h"
#include "TableHandlerOne.h"
#include "TableHandlerTwo.h"

namespace norva {

namespace {

constexpr std::int32_t kTableFlag = 0;

}  // namespace

MasterAgent* MasterAgent::_instance = nullptr;
SnmpDataBase* MasterAgent::_catalogue = nullptr;

MasterAgent* MasterAgent::getInstance(const char* path) {
  if (_instance == nullptr) _instance = new MasterAgent(path);
  return _instance;
}

MasterAgent* MasterAgent::getInstance() {
  if (_instance == nullptr) _instance = new MasterAgent;
  return _instance;
}

MasterAgent::MasterAgent(const char* path) {
  _catalogue = new SnmpDataBase(path);
}

MasterAgent::~MasterAgent() {
  delete _catalogue;
  _catalogue = nullptr;
}

void MasterAgent::initNormalObj() {
  auto& objects = SnmpAgentX::generalObjects();
  if (_catalogue == nullptr || _catalogue->getAllObjects(objects) == -1) return;
  SnmpAgentX::setCatalogue(*_catalogue);
  registerScalars(objects, readScalarRoot());
}

int MasterAgent::initTableObj() {
  SnmpTableStrategy* const handlers[] = {new TableHandlerOne(_catalogue),
                                         new TableHandlerTwo(_catalogue)};
  static_assert(std::size(handlers) == kMaxTables);
  _tableHandlers.assign(std::begin(handlers), std::end(handlers));
  if (_catalogue == nullptr) return 0;

  std::vector<AncestorNodeEntry> ancestorNodes;
  _catalogue->getTableAncestorNodes(ancestorNodes);
  int position = 0;
  for (const auto& [tableAttr, ancestorNode] : ancestorNodes) {
    if (_tableHandlers.empty()) break;
    Output::print("initTableObj ancestorNode[%d].ancestorNode=%s\n", position++,
                  ancestorNode.c_str());
    SnmpTableStrategy* handler = _tableHandlers.front();
    _tableMap.try_emplace(ancestorNode, handler);
    handler->init_table(kTableFlag, ancestorNode);
    Output::print("getFixDeviceNum(ancestorNode[i].ancestorNode)=%d\n", kTableRows);
    for (std::int32_t row = 1; row <= kTableRows; ++row) handler->addIndex(row);
    _tableHandlers.erase(_tableHandlers.begin());
  }
  return 0;
}

}  // namespace norva
