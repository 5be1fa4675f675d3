// The agent object: owns the mapping catalogue and registers what the agent serves.
//
// One instance, made by start-up on the main thread before any other thread exists, never freed.

#ifndef NORVA_MASTER_AGENT_H_
#define NORVA_MASTER_AGENT_H_

#include <map>
#include <string>
#include <vector>

namespace norva {

class SnmpDataBase;
class SnmpTableStrategy;

class MasterAgent {
 public:
  /// The instance; made with the catalogue of the database file `path` on the first call, `path`
  /// being ignored afterwards.
  static MasterAgent* getInstance(const char* path);
  /// The instance; made without a catalogue if there is none yet.
  static MasterAgent* getInstance();

  /// Makes the catalogue too; does not become the instance.
  explicit MasterAgent(const char* path);
  ~MasterAgent();
  MasterAgent(const MasterAgent&) = delete;
  MasterAgent& operator=(const MasterAgent&) = delete;

  /// The catalogue that every handler receives; null if none has been made.
  static SnmpDataBase* catalogue() { return _catalogue; }

  /// Registers every scalar of the catalogue under the root OID that the unit keeps in an object of
  /// its own. Between init_agent and init_snmp.
  void initNormalObj();

  /// Registers the tables of the catalogue, the first with TableHandlerOne, the second with
  /// TableHandlerTwo, each with rows 1 to 32; further ones are not served. Always 0. Once, between
  /// init_agent and init_snmp.
  int initTableObj();

 private:
  MasterAgent() = default;

  std::vector<SnmpTableStrategy*> _tableHandlers;       // not yet given a table; never freed
  std::map<std::string, SnmpTableStrategy*> _tableMap;  // by ancestor node; not read back

  static MasterAgent* _instance;
  static SnmpDataBase* _catalogue;
};

}  // namespace norva

#endif  // NORVA_MASTER_AGENT_H_
