#include "MasterAgent.h"

#include <memory>

#include "ScalarRegistration.h"
#include "SnmpAgentX.h"
#include "SnmpDataBase.h"

namespace norva {

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

}  // namespace norva
