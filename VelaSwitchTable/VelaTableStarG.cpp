#include "VelaSwitchTable/VelaTableStarG.h"

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"
#include "VelaSwitchTable/family/LeftAlignedKey.h"
#include "VelaSwitchTable/family/MulticastGroup.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::MrouteKey;

enum class Row : U8 {
  compare,
  multicast,
  valid,
  vlanGroupId,
  portMask,
  parity,
  row,
  way,
  one,
  selector,
  wholeGroup,
};

constexpr const LpmLevel& level = lpmLevel<29>;

/// Low group bits, which the row implies.
constexpr U8 impliedGroupBits = StarGFamily::traits.hashBits;
constexpr U8 storedGroupBits = groupBits - impliedGroupBits;
constexpr U8 vlanBits = 12;
constexpr U8 compareBits = storedGroupBits + vlanBits;
/// The tag, on top of VLAN and group.
constexpr U8 hashedBits = 1 + vlanBits + groupBits;
static_assert(compareBits + 1 == level.paddedKeyWidth, "the valid bit is that of the routes");
static_assert(hashedBits == level.keyWidth, "both kinds are hashed alike");

}  // namespace

U64 StarGFamily::compareEncoding(const Key& key) {
  return groupNumber(key) >> impliedGroupBits | U64{key.vlanId().value()} << storedGroupBits;
}

U8 StarGFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  const U64 number =
      U64{1} << (vlanBits + groupBits) | U64{key.vlanId().value()} << groupBits | groupNumber(key);
  return packLeftAligned(number, hashedBits, buffer, bufSize);
}

U32 StarGFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc12Hash(buffer, way, bits);
}

RowLayout StarGFamily::layout(const Helper& helper) {
  const auto maskBits = static_cast<U16>(helper.profile().ports() + 1);
  return {{{"compare", 0, compareBits},
           {"multicast", 28, 1},
           {"valid", 29, 1},
           {"vlanGroupId", 30, 4},
           {"portMask", 34, maskBits},
           {"parity", static_cast<U16>(34 + maskBits), 1},
           {"row", 128, 12},
           {"way", 142, 2},
           {"one", 145, 1},
           {"selector", 146, 4},
           {"wholeGroup", 160, 32}},
          traits.rowWords};
}

void StarGFamily::pack(const Helper& helper, const Key& key, const Result& result, bool valid,
                       CuckooLocation, RowWriter& row) {
  if (!valid) return;
  row.set(Row::compare, compareEncoding(key));
  row.set(Row::multicast, 1);
  row.set(Row::valid, 1);
  row.set(Row::vlanGroupId, result.vlanGroupId());
  row.set(Row::portMask, result.portMask().hardwareBitmask(helper.profile().ports()));
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), traits.parityWords));
  row.set(Row::wholeGroup, key.group().number());
}

void StarGFamily::packStatic(const Helper&, CuckooLocation location, RowWriter& row) {
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::one, 1);
  row.set(Row::selector, level.controlSelector);
}

std::optional<std::pair<MrouteKey, StarGResult>> StarGFamily::unpack(const Helper&,
                                                                     const RowReader& row,
                                                                     CuckooLocation) {
  const bool valid = row.flag(Row::valid);
  const bool multicast = row.flag(Row::multicast);
  ORB_ASSERT(!valid || multicast);
  if (!valid) return std::nullopt;
  const U64 compare = row.get(Row::compare);
  const auto group = static_cast<U32>(compare & ((1u << storedGroupBits) - 1));
  MrouteKey key;
  key.group = Ipnet::IpAddr(groupPrefix(row.get(Row::wholeGroup)) | group << impliedGroupBits);
  key.vlanId = Bridging::VlanIdOrNone(compare >> storedGroupBits);
  return std::pair{key, StarGResult{static_cast<U8>(row.get(Row::vlanGroupId)),
                                    VelaSwitch::IngressPortMask(row.get(Row::portMask))}};
}

std::vector<U8> StarGFamily::impliedBits(const Helper&) {
  return lowestOfLeftAligned(impliedGroupBits, hashedBits);
}

U8 StarGFamily::keyBits(const Helper&) { return hashedBits; }

void StarGFamily::impliedBitsAre(Key& key, U32 bits) {
  key.group = Ipnet::IpAddr(key.group().number() | bits);
}

bool StarGHelper::entryOwned(HwIndex index) const {
  return RowReader(layout(), hwRow(index)).flag(Row::multicast);
}

VELA_HASH_CLASSES_DEFINE(StarGFamily, StarGTable, StarGHelper, StarGTableCuckooEntry,
                         StarGPhysicalHashProperties, StarGTableStatus)
VELA_FACTORY_DEFINE(StarGTable, starGTableFactory, (const std::string& name), (name))
VELA_FACTORY_DEFINE(StarGHelper, starGHelperFactory, (), ())
VELA_FACTORY_DEFINE(StarGPhysicalHashProperties, starGPhysicalHashPropertiesFactory, (),
                    (StarGFamily::tableId(0)))
VELA_FACTORY_DEFINE(StarGTableCuckooEntry, starGTableCuckooEntryFactory,
                    (const VelaSwitch::MrouteKey& key), (key))
VELA_FACTORY_DEFINE(StarGTableStatus, starGTableStatusFactory, (), ())

}  // namespace VelaSwitchTable
