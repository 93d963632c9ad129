#include "VelaSwitchTable/VelaTableNatMatch.h"

#include "VelaSwitch/Crc.h"
#include "VelaSwitchTable/family/NatRow.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::NatMatchKey;

constexpr U8 addressBits = 32;
constexpr U8 portBits = 16;
constexpr U8 typeBits = 2;
constexpr U8 protoBits = 3;
constexpr U8 qualifierBits = 6;
constexpr U8 hashedBits = addressBits + portBits + typeBits + protoBits + qualifierBits;
/// Low address bits, which the row implies.
constexpr U8 impliedAddressBits = NatMatchFamily::traits.hashBits;
constexpr U8 compareBits = hashedBits - impliedAddressBits;

constexpr VelaSwitchApi::RowField fields[] = {
    {"compare", 0, compareBits},
    {"srcIp"},
    {"dstIp"},
    {"sport"},
    {"dport"},
    {"keyProto"},
    {"valid", 47, 1},
    {"proto0", 48, 1},
    {"proto1", 49, 1},
    {"natType"},
    {"natRewriteId", 50, 12},
    {"useAcl", 62, 1},
    {"parity", 63, 1},
    {"trapToCpu", 64, 1},
    {"rewriteIndex", 65, 6},
    {"l3LagIndex", 71, 6},
    {"row", 128, 12},
    {"zeros", 140, 2},
    {"way", 142, 2},
    {"zero", 144, 1},
    {"one", 145, 1},
    {"selector", 146, 2},
    {"wholeAddress", 160, 32},
};
static_assert(VelaSwitchApi::wellFormed(fields, NatMatchFamily::traits.rowWords));

constexpr U8 kind(const NatMatchKey& key) { return key.natType() & 3; }
constexpr bool bySource(U8 kind) { return kind < 2; }
constexpr bool byPort(U8 kind) { return kind % 2 == 1; }

U32 matchedAddress(const NatMatchKey& key) {
  return (bySource(kind(key)) ? key.srcIp() : key.dstIp()).number();
}

U16 keyPort(const NatMatchKey& key) {
  if (!byPort(kind(key))) {
    ORB_ASSERT_TEXT(key.sport() == 0,
                    "key.sport() == 0: srcPort should be unset for address-only NAT");
    ORB_ASSERT_TEXT(key.dport() == 0,
                    "key.dport() == 0: dstPort should be unset for address-only NAT");
  }
  return kind(key) == 1 ? key.sport() : key.dport();
}

}  // namespace

U64 NatMatchFamily::compareEncoding(const Key& key) {
  constexpr U8 port = addressBits - impliedAddressBits;
  constexpr U8 type = port + portBits;
  constexpr U8 proto = type + typeBits;
  constexpr U8 qualifier = proto + protoBits;
  const auto cut = [](U64 value, U8 bits) { return value & ((U64{1} << bits) - 1); };
  return matchedAddress(key) >> impliedAddressBits | U64{keyPort(key)} << port |
         U64{kind(key)} << type | cut(key.proto(), protoBits) << proto |
         cut(key.qualifier(), qualifierBits) << qualifier;
}

U8 NatMatchFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  VelaSwitchApi::KeyWriter packed(trace, "getHash");
  U8 at = natKeyStart;
  const auto append = [&](U8 width, U64 value) {
    packed.set(at, width, value);
    at = static_cast<U8>(at + width);
  };
  append(addressBits, matchedAddress(key));
  append(portBits, keyPort(key));
  append(typeBits, kind(key));
  append(protoBits, key.proto());
  append(qualifierBits, key.qualifier());
  packed.copyTo(buffer, bufSize);
  return hashedBits;
}

U32 NatMatchFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc12Hash(buffer, way, bits);
}

RowLayout NatMatchFamily::layout(const Helper&) {
  return {{std::begin(fields), std::end(fields)}, traits.rowWords};
}

void NatMatchFamily::pack(const Helper&, const Key& key, const Result& result, bool valid,
                          CuckooLocation, RowWriter& row) {
  if (!valid) return;
  row.set(NatRow::compare, compareEncoding(key));
  row.set(NatRow::useAcl, result.useAcl());
  packNatResult(result, trace, row);
  row.set(NatRow::wholeAddress, matchedAddress(key));
}

void NatMatchFamily::packStatic(const Helper&, CuckooLocation location, RowWriter& row) {
  packNatStatic(location, 0, row);
}

std::optional<std::pair<NatMatchKey, NatMatchResult>> NatMatchFamily::unpack(const Helper&,
                                                                             const RowReader& row,
                                                                             CuckooLocation) {
  if (natRowEmpty(row)) return std::nullopt;
  U64 rest = row.get(NatRow::compare);
  const auto next = [&](U8 bits) {
    const U64 value = rest & ((U64{1} << bits) - 1);
    rest >>= bits;
    return value;
  };
  NatMatchKey key;
  const Ipnet::IpAddr address(
      static_cast<U32>(next(addressBits - impliedAddressBits) << impliedAddressBits));
  const auto port = static_cast<U16>(next(portBits));
  key.natType = static_cast<U8>(next(typeBits));
  key.proto = static_cast<U8>(next(protoBits));
  key.qualifier = static_cast<U16>(next(qualifierBits));
  if (!byPort(kind(key)) && port != 0) return std::nullopt;
  if (bySource(kind(key))) {
    key.srcIp = address;
    key.sport = port;
  } else {
    key.dstIp = address;
    key.dport = port;
  }
  auto result = unpackNatResult<Result>(row);
  result.useAcl = row.flag(NatRow::useAcl);
  return std::pair{key, result};
}

std::vector<U8> NatMatchFamily::impliedBits(const Helper&) {
  return natImpliedBits(impliedAddressBits);
}

U8 NatMatchFamily::keyBits(const Helper&) { return hashedBits; }

void NatMatchFamily::impliedBitsAre(Key& key, U32 bits) {
  Ipnet::IpAddr& address = bySource(kind(key)) ? key.srcIp.value : key.dstIp.value;
  address = Ipnet::IpAddr(address.number() | bits);
}

VELA_HASH_FAMILY_DEFINE(NatMatchFamily, NatMatchTable, NatMatchConvertor, NatMatchHelper,
                        NatMatchTableCuckooEntry, NatMatchPhysicalHashProperties,
                        NatMatchTableStatus)

}  // namespace VelaSwitchTable
