#pragma once

#include <string_view>
#include <vector>

#include "Orb/Types.h"

namespace Orb {

/// The registry's record of one framework class. Records live as long as the program; registering
/// is a side effect of construction.
class VELA_EXPORT Type {
 public:
  /// Both must outlive the program's use of it: literals.
  Type(const char* name, const char* sourceUnit);
  Type(const Type&) = delete;
  Type& operator=(const Type&) = delete;

  /// Full name with its namespace, such as "VelaSwitchTable::AclHashTable".
  std::string_view name() const { return name_; }
  /// The source unit that the class was registered by, such as "VelaTableAclHash".
  std::string_view sourceUnit() const { return sourceUnit_; }

  /// The record of a name, or null.
  static const Type* find(std::string_view name);
  static const std::vector<const Type*>& all();  ///< In the order in which they registered.

 private:
  const char* name_;
  const char* sourceUnit_;
};

/// The record of class T, which names itself in T::typeName and its unit in T::sourceUnit.
template <class T>
VELA_EXPORT inline const Type registeredType{T::typeName, T::sourceUnit};

}  // namespace Orb
