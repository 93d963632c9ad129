#include "VelaSwitchTable/VelaTableNatMatch.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::NatMatchKey;

constexpr U8 kind(const NatMatchKey& key) { return key.natType() & 3; }
constexpr bool bySource(U8 kind) { return kind < 2; }
constexpr bool byPort(U8 kind) { return kind % 2 == 1; }

U16 hashedPort(const NatMatchKey& key) {
  if (!byPort(kind(key))) {
    ORB_ASSERT_TEXT(key.sport() == 0,
                    "key.sport() == 0: srcPort should be unset for address-only NAT");
    ORB_ASSERT_TEXT(key.dport() == 0,
                    "key.dport() == 0: dstPort should be unset for address-only NAT");
  }
  return kind(key) == 1 ? key.sport() : key.dport();
}

}  // namespace

Ipnet::IpAddr NatMatchFamily::hashedAddress(const Key& key) {
  return bySource(kind(key)) ? key.srcIp() : key.dstIp();
}

void NatMatchFamily::sample(const VelaTableHashHelper& helper, U64 bits, Key& key, Result& result) {
  NatFamily::sample(helper, bits, key, result);
  if (!bySource(kind(key)) || !byPort(kind(key))) key.sport = 0;
  if (bySource(kind(key)) || !byPort(kind(key))) key.dport = 0;
  (bySource(kind(key)) ? key.dstIp.value : key.srcIp.value) = {};
}

void NatMatchFamily::packKey(const Key& key, KeyBits& bits) {
  bits.add(32, hashedAddress(key).number());
  bits.add(16, hashedPort(key));
  bits.add(2, key.natType());
  bits.add(3, key.proto());
  bits.add(6, key.qualifier());
}

bool NatMatchFamily::unpackKey(KeyBits bits, const RowReaderOf<NatMatchFamily>&, Key& key) {
  const Ipnet::IpAddr address(static_cast<U32>(bits.take(32)));
  const auto port = static_cast<U16>(bits.take(16));
  key.natType = static_cast<U8>(bits.take(2));
  key.proto = static_cast<U8>(bits.take(3));
  key.qualifier = static_cast<U16>(bits.take(6));
  if (!byPort(kind(key)) && port != 0) return false;
  if (bySource(kind(key))) {
    key.srcIp = address;
    key.sport = port;
  } else {
    key.dstIp = address;
    key.dport = port;
  }
  return true;
}

VELA_HASH_FAMILY_DEFINE(NatMatch)

}  // namespace VelaSwitchTable
