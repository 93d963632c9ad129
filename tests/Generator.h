#pragma once

#include "Support.h"
#include "agent/Agent.h"

namespace VelaTest {

using VelaAgent::Json;

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

 private:
  std::string mask(U32 bits);

  const VelaSwitch::ProfileInfo& profile_;
  Random& random_;
};

/// Tables that are run together: those of one family, and with it the ones that share its rows.
struct Group {
  std::vector<std::string> make;  ///< As for Agent::make().
  /// Where entries go, with the instances.
  std::vector<std::pair<std::string, U32>> tables;
  std::string name() const { return tables.front().first; }
};

/// The built-in profiles, for tests that have one as a parameter, and how those are called.
std::vector<std::string> profileNames();
std::string profileTestName(const testing::TestParamInfo<std::string>& profile);

/// Whether the data path tells the fields of the table's results as they were announced.
bool comparable(const std::string& table);

/// A group for every family that has registers in the profile, and one of whole routes.
std::vector<Group> groups(const VelaSwitch::ProfileInfo& profile);

}  // namespace VelaTest
