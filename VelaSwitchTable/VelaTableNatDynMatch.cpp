#include "VelaSwitchTable/VelaTableNatDynMatch.h"

namespace VelaSwitchTable {

void NatDynMatchFamily::packKey(const Key& key, KeyBits& bits) {
  bits.add(32, key.srcIp().number());
  bits.add(32, key.dstIp().number());
  bits.add(16, key.sport());
  bits.add(16, key.dport());
  bits.add(3, key.proto());
}

bool NatDynMatchFamily::unpackKey(KeyBits bits, const RowReaderOf<NatDynMatchFamily>& row,
                                  Key& key) {
  key.srcIp = Ipnet::IpAddr(static_cast<U32>(bits.take(32)));
  key.dstIp = Ipnet::IpAddr(static_cast<U32>(bits.take(32)));
  key.sport = static_cast<U16>(bits.take(16));
  key.dport = static_cast<U16>(bits.take(16));
  key.proto = static_cast<U8>(bits.take(3));
  key.natType = static_cast<U8>(row.get<"natType">());
  return true;
}

VELA_HASH_FAMILY_DEFINE(NatDynMatch)

}  // namespace VelaSwitchTable
