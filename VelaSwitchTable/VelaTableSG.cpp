#include "VelaSwitchTable/VelaTableSG.h"

#include <numeric>

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/family/MulticastGroup.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::MrouteKey;

enum class Row : U8 {
  compare,
  wideFlag,
  valid,
  vlanGroupId,
  portMask,
  parity,
  zeros2,
  zeros12,
  zeros1,
  row,
  way,
  one,
  selector,
  wholeGroup,
};

constexpr int controlWordBit = 128;
/// Marks the table's rows in the control word.
constexpr U8 controlSelector = 8;

/// Low group bits, which the row implies.
constexpr U8 impliedGroupBits = SGFamily::traits.hashBits;
constexpr U8 storedGroupBits = groupBits - impliedGroupBits;
constexpr U8 sourceBits = 32;
constexpr U8 vlanBits = 12;
constexpr U8 compareBits = storedGroupBits + sourceBits + vlanBits;
constexpr U8 hashedBits = impliedGroupBits + compareBits;

}  // namespace

U64 SGFamily::compareEncoding(const Key& key) {
  return groupNumber(key) >> impliedGroupBits | U64{key.source().number()} << storedGroupBits |
         U64{key.vlanId().value()} << (storedGroupBits + sourceBits);
}

U8 SGFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  VelaSwitchApi::KeyWriter packed;
  packed.set(0, groupBits, groupNumber(key));
  packed.set(groupBits, sourceBits, key.source().number());
  packed.set(groupBits + sourceBits, vlanBits, key.vlanId().value());
  packed.copyTo(buffer, bufSize);
  return hashedBits;
}

U32 SGFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc13Hash(buffer, way, bits);
}

/// With wide flags the row has one bit more in front of the valid bit, and 15 zeros behind the
/// parity, as far as the control word leaves room for them.
RowLayout SGFamily::layout(const Helper& helper) {
  const bool wide = helper.profile().fields().mrouteWideFlags();

  const auto at = [&](U32 bit) { return static_cast<U16>(wide ? bit + 1 : bit); };
  const auto maskBits = static_cast<U16>(helper.profile().ports() + 1);
  const U32 behindMask = 64u + maskBits;
  const auto zeros = [&](const char* name, U32 bit, int width) {
    const int room = std::max(0, controlWordBit - static_cast<int>(at(bit)));
    return VelaSwitchApi::RowField{name, at(bit),
                                   static_cast<U16>(wide ? std::min(width, room) : 0)};
  };
  return {{{"compare", 0, compareBits},
           {"wideFlag", compareBits, static_cast<U16>(wide ? 1 : 0)},
           {"valid", at(59), 1},
           {"vlanGroupId", at(60), 4},
           {"portMask", at(64), maskBits},
           {"parity", at(behindMask), 1},
           zeros("zeros2", behindMask + 1, 2),
           zeros("zeros12", behindMask + 3, 12),
           zeros("zeros1", behindMask + 15, 1),
           {"row", controlWordBit, 13},
           {"way", 142, 2},
           {"one", 145, 1},
           {"selector", 146, 4},
           {"wholeGroup", 160, 32}},
          traits.rowWords};
}

void SGFamily::pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                    CuckooLocation, RowWriter& row) {
  if (!valid) return;
  row.set(Row::compare, compareEncoding(key));
  row.set(Row::wideFlag, 0);
  row.set(Row::valid, 1);
  row.set(Row::vlanGroupId, result.vlanGroupId());
  row.set(Row::portMask, result.portMask().hardwareBitmask(helper.profile().ports()));
  for (const Row zeros : {Row::zeros2, Row::zeros12, Row::zeros1}) row.set(zeros, 0);
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), traits.parityWords));
  row.set(Row::wholeGroup, key.group().number());
}

void SGFamily::packStatic(const Helper&, CuckooLocation location, RowWriter& row) {
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::one, 1);
  row.set(Row::selector, controlSelector);
}

std::optional<std::pair<MrouteKey, SGResult>> SGFamily::unpack(const Helper&, const RowReader& row,
                                                               CuckooLocation) {
  if (!row.flag(Row::valid)) return std::nullopt;
  const U64 compare = row.get(Row::compare);
  const auto group = static_cast<U32>(compare & ((1u << storedGroupBits) - 1));
  MrouteKey key;
  key.source = Ipnet::IpAddr(static_cast<U32>(compare >> storedGroupBits));
  key.group = Ipnet::IpAddr(groupPrefix(row.get(Row::wholeGroup)) | group << impliedGroupBits);
  key.vlanId = Bridging::VlanIdOrNone(compare >> (storedGroupBits + sourceBits));
  return std::pair{key, SGResult{static_cast<U8>(row.get(Row::vlanGroupId)),
                                 VelaSwitch::IngressPortMask(row.get(Row::portMask))}};
}

std::vector<U8> SGFamily::impliedBits(const Helper&) {
  std::vector<U8> bits(impliedGroupBits);
  std::iota(bits.begin(), bits.end(), U8{0});
  return bits;
}

U8 SGFamily::keyBits(const Helper&) { return hashedBits; }

void SGFamily::impliedBitsAre(Key& key, U32 bits) {
  key.group = Ipnet::IpAddr(key.group().number() | bits);
}

VELA_HASH_FAMILY_DEFINE(SGFamily, SGTable, SGConvertor, SGHelper, SGTableCuckooEntry,
                        SGPhysicalHashProperties, SGTableStatus)

VELA_FACTORY_DEFINE(SGTable, sGTableFactory, (const std::string& name), (name))
VELA_FACTORY_DEFINE(SGConvertor, sGConvertorFactory, (), ())
VELA_FACTORY_DEFINE(SGHelper, sGHelperFactory, (), ())
VELA_FACTORY_DEFINE(SGPhysicalHashProperties, sGPhysicalHashPropertiesFactory, (),
                    (SGFamily::tableId(0)))
VELA_FACTORY_DEFINE(SGTableCuckooEntry, sGTableCuckooEntryFactory,
                    (const VelaSwitch::MrouteKey& key), (key))
VELA_FACTORY_DEFINE(SGTableStatus, sGTableStatusFactory, (), ())

}  // namespace VelaSwitchTable
