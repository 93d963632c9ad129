#include "VelaSwitchTable/VelaTableNatDynMatch.h"

#include "VelaSwitch/Crc.h"
#include "VelaSwitchTable/family/NatRow.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::NatMatchKey;

constexpr U8 addressBits = 32;
constexpr U8 portBits = 16;
constexpr U8 protoBits = 3;
constexpr U8 hashedBits = 2 * addressBits + 2 * portBits + protoBits;
/// Low bits of the source address, which the row implies.
constexpr U8 impliedAddressBits = NatDynMatchFamily::traits.hashBits;

constexpr VelaSwitchApi::RowField fields[] = {
    {"compare"},
    {"srcIp", 0, addressBits - impliedAddressBits},
    {"dstIp", 22, addressBits},
    {"sport", 54, portBits},
    {"dport", 70, portBits},
    {"keyProto", 86, protoBits},
    {"valid", 89, 1},
    {"proto0", 90, 1},
    {"proto1", 91, 1},
    {"natType", 92, 2},
    {"natRewriteId", 94, 12},
    {"useAcl"},
    {"parity", 106, 1},
    {"trapToCpu", 107, 1},
    {"rewriteIndex", 108, 6},
    {"l3LagIndex", 114, 6},
    {"row", 128, 10},
    {"zeros", 138, 4},
    {"way", 142, 2},
    {"zero", 144, 1},
    {"one", 145, 1},
    {"selector", 146, 2},
    {"wholeAddress", 160, 32},
};
static_assert(VelaSwitchApi::wellFormed(fields, NatDynMatchFamily::traits.rowWords));

}  // namespace

U8 NatDynMatchFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  VelaSwitchApi::KeyWriter packed(trace, "getHash");
  U8 at = natKeyStart;
  const auto append = [&](U8 width, U64 value) {
    packed.set(at, width, value);
    at = static_cast<U8>(at + width);
  };
  append(addressBits, key.srcIp().number());
  append(addressBits, key.dstIp().number());
  append(portBits, key.sport());
  append(portBits, key.dport());
  append(protoBits, key.proto());
  packed.copyTo(buffer, bufSize);
  return hashedBits;
}

U32 NatDynMatchFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc10Hash(buffer, way, bits);
}

RowLayout NatDynMatchFamily::layout(const Helper&) {
  return {{std::begin(fields), std::end(fields)}, traits.rowWords};
}

void NatDynMatchFamily::pack(const Helper&, const Key& key, const Result& result, bool valid,
                             CuckooLocation, RowWriter& row) {
  if (!valid) return;
  row.set(NatRow::srcIp, key.srcIp().number() >> impliedAddressBits);
  row.set(NatRow::dstIp, key.dstIp().number());
  row.set(NatRow::sport, key.sport());
  row.set(NatRow::dport, key.dport());
  row.set(NatRow::keyProto, key.proto());
  row.set(NatRow::natType, key.natType());
  packNatResult(result, trace, row);
  row.set(NatRow::wholeAddress, key.srcIp().number());
}

void NatDynMatchFamily::packStatic(const Helper& helper, CuckooLocation location, RowWriter& row) {
  packNatStatic(location, 1u + helper.tableIdx() % 2, row);
}

std::optional<std::pair<NatMatchKey, NatDynMatchResult>> NatDynMatchFamily::unpack(
    const Helper&, const RowReader& row, CuckooLocation) {
  if (natRowEmpty(row)) return std::nullopt;
  NatMatchKey key;
  key.natType = static_cast<U8>(row.get(NatRow::natType));
  key.proto = static_cast<U8>(row.get(NatRow::keyProto));
  key.srcIp = Ipnet::IpAddr(static_cast<U32>(row.get(NatRow::srcIp) << impliedAddressBits));
  key.dstIp = Ipnet::IpAddr(static_cast<U32>(row.get(NatRow::dstIp)));
  key.sport = static_cast<U16>(row.get(NatRow::sport));
  key.dport = static_cast<U16>(row.get(NatRow::dport));
  return std::pair{key, unpackNatResult<Result>(row)};
}

std::vector<U8> NatDynMatchFamily::impliedBits(const Helper&) {
  return natImpliedBits(impliedAddressBits);
}

U8 NatDynMatchFamily::keyBits(const Helper&) { return hashedBits; }

void NatDynMatchFamily::impliedBitsAre(Key& key, U32 bits) {
  key.srcIp = Ipnet::IpAddr(key.srcIp().number() | bits);
}

VELA_HASH_FAMILY_DEFINE(NatDynMatchFamily, NatDynMatchTable, NatDynMatchConvertor,
                        NatDynMatchHelper, NatDynMatchTableCuckooEntry,
                        NatDynMatchPhysicalHashProperties, NatDynMatchTableStatus)

}  // namespace VelaSwitchTable
