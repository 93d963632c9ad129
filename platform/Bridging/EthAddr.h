#pragma once

#include "Orb/Address.h"

namespace Bridging {

/// An Ethernet address; its text form is "xx:xx:xx:xx:xx:xx".
class EthAddr : public Orb::Address<EthAddr, 6> {
 public:
  using Address::Address;
  static constexpr Orb::AddressForm form{"an Ethernet address", ':', 16};
};

}  // namespace Bridging
