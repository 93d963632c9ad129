#include "VelaSwitchTable/VelaTableSG.h"

namespace VelaSwitchTable {

void SGFamily::packKey(const Key& key, KeyBits& bits) {
  bits.add(groupBits, key.group().number());
  bits.add(32, key.source().number());
  bits.add(12, key.vlanId().value());
}

bool SGFamily::unpackKey(KeyBits bits, const RowReaderOf<SGFamily>& row, Key& key) {
  key.group = groupOf(bits.take(groupBits), row.get<"wholeGroup">());
  key.source = Ipnet::IpAddr(static_cast<U32>(bits.take(32)));
  key.vlanId = Bridging::VlanIdOrNone(bits.take(12));
  return true;
}

void SGFamily::packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                        CuckooLocation, RowWriterOf<SGFamily>& row) {
  if (valid) row.set<"wholeGroup">(key.group().number());
}

VELA_HASH_FAMILY_DEFINE(SG)
VELA_MULTICAST_FACTORIES_DEFINE(SG, sG)
VELA_FACTORY_DEFINE(SGConvertor, sGConvertorFactory, (), ())

}  // namespace VelaSwitchTable
