#include "VelaSwitchTable/VelaTableAclHashes.h"

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Parity.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::AclHashKey;
using VelaSwitch::AclHashResult;
using VelaSwitchApi::RowField;

constexpr U8 imageWords = AclHashFamily::traits.rowWords;
constexpr U8 keyBits = 90;

// The row. Where hardware has four data words the control word is word 4, else word 5.

enum class Row : U8 { key, variant, valid, priority, counterIndex, parity, row, way, one, counter };

constexpr std::array<RowField, 10> rowFields(U8 controlWord) {
  const auto control = static_cast<U16>(controlWord * 32);
  const auto at = [&](U16 bit) { return static_cast<U16>(control + bit); };
  return {{{"key", 0, keyBits},
           {"variant", 90, 2},
           {"valid", 92, 1},
           {"priority", 93, 8},
           {"counterIndex", 101, 12},
           {"parity", 113, 1},
           {"row", control, 11},
           {"way", at(11), 1},
           {"one", at(15), 1},
           {"counter", at(18), 1}}};  // 0 here, 1 in the processor's counter table
}
static_assert(VelaSwitchApi::wellFormed(rowFields(4), imageWords));
static_assert(VelaSwitchApi::wellFormed(rowFields(5), imageWords));

// The key. The type code picks one of four layouts; within a layout it counts from 0.

enum class KeyField : U8 { aclId, subType, natDirection, natId, srcIp, dstIp, qualifier, l4Port };

struct KeyPart {
  KeyField field;
  U8 first;
  U8 width;
};

struct KeyVariant {
  U8 firstType;
  U8 bits;
  std::array<KeyPart, 6> parts;  ///< Unused ones have width 0.
};

constexpr std::array<KeyVariant, 4> variants{{
    {0,
     59,
     {{{KeyField::aclId, 0, 4},
       {KeyField::subType, 4, 3},
       {KeyField::dstIp, 7, 32},
       {KeyField::qualifier, 39, 4},
       {KeyField::l4Port, 43, 16}}}},
    {7,
     58,
     {{{KeyField::aclId, 0, 4},
       {KeyField::subType, 4, 2},
       {KeyField::srcIp, 6, 32},
       {KeyField::qualifier, 38, 4},
       {KeyField::l4Port, 42, 16}}}},
    {11,
     90,
     {{{KeyField::aclId, 0, 4},
       {KeyField::subType, 4, 2},
       {KeyField::dstIp, 6, 32},
       {KeyField::srcIp, 38, 32},
       {KeyField::qualifier, 70, 4},
       {KeyField::l4Port, 74, 16}}}},
    {15,
     70,
     {{{KeyField::natDirection, 0, 1},
       {KeyField::natId, 1, 3},
       {KeyField::subType, 4, 2},
       {KeyField::srcIp, 6, 32},
       {KeyField::dstIp, 38, 32}}}},
}};

constexpr bool keysWellFormed() {
  for (const KeyVariant& variant : variants) {
    U8 next = 0;
    for (const KeyPart& part : variant.parts) {
      if (part.width == 0) continue;
      if (part.first != next) return false;
      next = static_cast<U8>(part.first + part.width);
    }
    if (next != variant.bits) return false;
  }
  return true;
}
static_assert(keysWellFormed(), "a key's fields follow each other without gaps");

constexpr U8 variantOf(U8 type) { return type < 7 ? 0 : type < 11 ? 1 : type < 15 ? 2 : 3; }

// Zero stands for any; hardware spells that as all ones.

constexpr U32 anyIp = 0xFFFFFFFF;
constexpr U16 anyPort = 65535;
constexpr U8 anyQualifier = 15;

U32 ipToHw(Ipnet::IpAddr address) { return address.number() == 0 ? anyIp : address.number(); }
Ipnet::IpAddr ipFromHw(U64 bits) {
  return Ipnet::IpAddr(bits == anyIp ? 0 : static_cast<U32>(bits));
}

/// Types whose qualifier takes no part.
constexpr bool anyQualifierType(U8 type) { return type == 3 || type == 7 || type == 11; }

U64 toHw(const AclHashKey& key, KeyField field) {
  switch (field) {
    case KeyField::aclId:
      return key.aclId().value();
    case KeyField::subType:
      return key.type() - U64{variants[variantOf(key.type())].firstType};
    case KeyField::natDirection:
      return key.natDirection();
    case KeyField::natId:
      return key.natId().value();
    case KeyField::srcIp:
      return ipToHw(key.srcIp());
    case KeyField::dstIp:
      return ipToHw(key.dstIp());
    case KeyField::qualifier:
      return anyQualifierType(key.type()) ? anyQualifier : key.qualifier();
    case KeyField::l4Port:
      return key.l4Port() == 0 ? anyPort : key.l4Port();
  }
  return 0;
}

void fromHw(AclHashKey& key, KeyField field, U64 bits) {
  switch (field) {
    case KeyField::aclId:
      key.aclId = VelaSwitch::HwAclId(bits);
      break;
    case KeyField::subType:
      key.type = static_cast<U8>(key.type() + bits);
      break;
    case KeyField::natDirection:
      key.natDirection = static_cast<U8>(bits);
      break;
    case KeyField::natId:
      key.natId = VelaSwitch::NatId(bits);
      break;
    case KeyField::srcIp:
      key.srcIp = ipFromHw(bits);
      break;
    case KeyField::dstIp:
      key.dstIp = ipFromHw(bits);
      break;
    case KeyField::qualifier:
      key.qualifier = static_cast<U8>(bits);
      break;
    case KeyField::l4Port:
      key.l4Port = static_cast<U16>(bits == anyPort ? 0 : bits);
      break;
  }
}

}  // namespace

U8 AclHashFamily::dataWords(const VelaSwitch::ProfileInfo& profile) {
  return profile.fields().aclWideRows() ? 5 : 4;
}

U8 AclHashFamily::copyKeyToBuffer(const Key& key, U8* buffer, U8 bufSize) {
  ORB_ASSERT(bufSize >= 13);
  const KeyVariant& variant = variants[variantOf(key.type())];
  VelaSwitchApi::KeyWriter packed;
  for (const KeyPart& part : variant.parts) {
    if (part.width != 0) packed.set(part.first, part.width, toHw(key, part.field));
  }
  packed.copyTo(buffer, bufSize);
  return variant.bits;
}

U32 AclHashFamily::hash(const U8* buffer, U8 way, U8 bits) {
  return VelaSwitch::crc11Hash(buffer, way, bits);
}

RowLayout AclHashFamily::layout(const Helper& helper) {
  const auto fields = rowFields(dataWords(helper.profile()));
  return {{fields.begin(), fields.end()}, imageWords};
}

void AclHashFamily::pack(const Helper&, const Key& key, const Result& result, bool valid,
                         CuckooLocation, RowWriter& row) {
  if (!valid) return;
  U8 packed[VelaSwitchApi::KeyWriter::maxBytes];
  copyKeyToBuffer(key, packed, sizeof packed);
  row.copy(Row::key, packed);
  row.set(Row::variant, variantOf(key.type()));
  row.set(Row::valid, 1);
  row.set(Row::priority, result.priority().value());
  row.set(Row::counterIndex, result.counterIndex().value());
  row.set(Row::parity, VelaSwitch::parityU32Array(row.words(), traits.parityWords));
}

void AclHashFamily::packStatic(const Helper&, CuckooLocation location, RowWriter& row) {
  row.set(Row::row, location.row);
  row.set(Row::way, location.way);
  row.set(Row::one, 1);
  row.set(Row::counter, 0);
}

std::optional<std::pair<AclHashKey, AclHashResult>> AclHashFamily::unpack(const Helper&,
                                                                          const RowReader& row,
                                                                          CuckooLocation) {
  if (!row.flag(Row::valid)) return std::nullopt;
  const KeyVariant& variant = variants[row.get(Row::variant)];
  AclHashKey key;
  key.type = variant.firstType;
  for (const KeyPart& part : variant.parts) {
    if (part.width == 0) continue;
    fromHw(key, part.field, bitStreamGet(row.words(), part.first, part.first + part.width - 1u));
  }
  AclHashResult result;
  result.priority = VelaSwitch::HwAclPriority(row.get(Row::priority));
  result.counterIndex = VelaSwitch::HwCounterIndex(row.get(Row::counterIndex));
  return std::pair{key, result};
}

void AclHashConvertor::doCreateHwTables(VelaSwitchApi::TableState state) {
  ORB_ASSERT(swTables() == 1);
  HashFamilyConvertor::doCreateHwTables(state);
}

Orb::Ptr<VelaSwitchApi::PhysicalHashProperties> AclHashHelper::doGetPhysTableProperties() const {
  return Orb::make<AclPhysicalHashProperties>(tableIndex_);
}

void AclHashHelper::setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry,
                                CuckooLocation location, U8* image) const {
  const U32 processors = swTable() ? profile().pipelines() : VelaSwitch::ProfileInfo::maxPipes;
  if (!TableConstants::isAclHashTableId(tableIndex_, processors)) {
    AclHashFamily::trace(0, "invalid ACL hashTableId ", tableIndex_);
    return;
  }
  HashFamilyHelper::setHwBuffer(entry, location, image);
}

VELA_HASH_FAMILY_DEFINE(AclHashFamily, AclHashTable, AclHashConvertor, AclHashHelper,
                        AclHashTableCuckooEntry, AclPhysicalHashProperties, AclHashTableStatus)
VELA_FACTORY_DEFINE(AclHashTable, AclHashTableIs,
                    (const std::string& name, U8 tableIdx, U8 pipeline), (name, tableIdx, pipeline))

VELA_FACTORY_DEFINE(AclHashTable, aclHashTableFactory,
                    (const std::string& name, U8 tableIdx, U8 pipeline), (name, tableIdx, pipeline))
VELA_FACTORY_DEFINE(AclHashConvertor, aclHashConvertorFactory, (), ())
VELA_FACTORY_DEFINE(AclHashHelper, aclHashHelperFactory, (TableIndex index), (index))
VELA_FACTORY_DEFINE(AclPhysicalHashProperties, aclPhysicalHashPropertiesFactory, (U32 tableId),
                    (tableId))
VELA_FACTORY_DEFINE(AclHashTableCuckooEntry, aclHashTableCuckooEntryFactory,
                    (const AclHashKey& key), (key))
VELA_FACTORY_DEFINE(AclHashTableStatus, aclHashTableStatusFactory, (), ())

}  // namespace VelaSwitchTable
