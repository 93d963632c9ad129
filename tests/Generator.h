#pragma once

#include <map>

#include "Support.h"
#include "agent/Agent.h"
#include "agent/Profiles.h"
#include "agent/TableAdapter.h"

namespace VelaTest {

using VelaAgent::Json;

/// Tables that are run together: those of one family, and with it the ones that share its rows.
struct Group {
  std::vector<std::string> make;  ///< As for Agent::make().
  /// Where entries go, with the instances.
  std::vector<std::pair<std::string, U32>> tables;
  const std::string& name() const { return tables.front().first; }
};

/// An entry's table, by its place in the group, and its key.
using EntryKey = std::pair<std::size_t, Json>;
using Desired = std::map<EntryKey, Json>;

/// Random entries of every family, such that hardware can hold what they say.
class Generator {
 public:
  Generator(const VelaSwitch::ProfileInfo& profile, Random& random)
      : profile_(profile), random_(random) {}

  /// The key of the number: the same for the same number. Families with fewer keys repeat them.
  Json key(const std::string& table, U32 number) const;
  /// A result of which something shows in hardware.
  Json result(const std::string& table, const Json& key);
  /// How many numbers have different keys.
  U32 keys(const std::string& table) const;

  /// One of the first `numbers` keys of a table of the group's; no two tables have the same.
  EntryKey randomKey(const Group& group, U32 numbers);
  /// Half of the keys of each table, or as many as `most`.
  Desired entries(const Group& group, U32 most);

 private:
  Json random(const std::string& kind);

  const VelaSwitch::ProfileInfo& profile_;
  Random& random_;
};

/// An agent of a group's tables.
struct GroupAgent : VelaAgent::Agent {
  GroupAgent(const Orb::PtrConst<VelaSwitch::ProfileInfo>& profile, const Group& ofGroup,
             VelaDevice::SimulatedSwitch& chip)
      : Agent(profile, chip), group(ofGroup) {
    make(group.make);
  }
  VelaAgent::TableAdapter& of(const EntryKey& key) const {
    return table(group.tables[key.first].first, group.tables[key.first].second);
  }
  EntryProgrammedStatus set(const EntryKey& key, const Json& result) {
    const auto status = of(key).set(key.second, result);
    settle();
    return status;
  }
  /// In batches, as far as they go to one table.
  void setAll(const Desired& desired);
  void del(const EntryKey& key) {
    of(key).del(key.second);
    settle();
  }
  Json find(const EntryKey& key) { return of(key).lookup(dataPath(), key.second); }
  bool hashed() const { return tables()[0]->location(0).has_value(); }

  /// The data path finds the entry with its result.
  void expectFound(const EntryKey& key, const Json& result);
  /// The data path finds every entry that is said to be programmed.
  void expectTruth();

  Group group;
};

/// Rows hold what the tables say, and nothing else.
void expectNoFindings(const VelaAgent::Agent& agent);

/// The words of all rows of the agent's tables, by hardware table and index.
using Row = std::pair<std::string, VelaSwitchApi::HwIndex>;
std::map<Row, std::vector<U32>> rowsOf(GroupAgent& agent);

/// A test of every family, in the built-in profile that is its parameter.
class ProfileTest : public testing::TestWithParam<std::string> {
 protected:
  Orb::PtrConst<VelaSwitch::ProfileInfo> profile = VelaAgent::loadProfile(GetParam());
  Random random;
  Generator generator{*profile, random};
};

/// The built-in profiles, for tests that have one as a parameter, and how those are called.
std::vector<std::string> profileNames();
std::string profileTestName(const testing::TestParamInfo<std::string>& profile);

/// Whether the data path tells the fields of the table's results as they were announced.
bool comparable(const std::string& table);

/// A group for every family that has registers in the profile, and one of whole routes.
std::vector<Group> groups(const VelaSwitch::ProfileInfo& profile);

}  // namespace VelaTest
