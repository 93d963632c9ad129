#pragma once

#include "Orb/Address.h"

namespace Ipnet {

/// An IPv4 address; its text form is "a.b.c.d".
class IpAddr : public Orb::Address<IpAddr, 4> {
 public:
  using Address::Address;
  static constexpr Orb::AddressForm form{"an IPv4 address", '.', 10};
};

}  // namespace Ipnet
