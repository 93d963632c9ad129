#include "VelaSwitchTable/VelaTableAclHashes.h"

namespace VelaSwitchTable {
namespace {

using VelaSwitch::AclHashKey;

// The type code picks one of four forms of key, which list their fields from bit 0 on.

enum class KeyPiece : U8 { aclId, subType, natDirection, natId, srcIp, dstIp, qualifier, l4Port };
using enum KeyPiece;

struct KeyPart {
  KeyPiece field;
  U8 width;  ///< 0 for one that is not used.
};

struct KeyVariant {
  U8 firstType;
  std::array<KeyPart, 6> parts;
};

constexpr std::array<KeyVariant, 4> variants{{
    {0, {{{aclId, 4}, {subType, 3}, {dstIp, 32}, {qualifier, 4}, {l4Port, 16}}}},
    {7, {{{aclId, 4}, {subType, 2}, {srcIp, 32}, {qualifier, 4}, {l4Port, 16}}}},
    {11, {{{aclId, 4}, {subType, 2}, {dstIp, 32}, {srcIp, 32}, {qualifier, 4}, {l4Port, 16}}}},
    {15, {{{natDirection, 1}, {natId, 3}, {subType, 2}, {srcIp, 32}, {dstIp, 32}}}},
}};

constexpr U8 variantOf(U8 type) { return type < 7 ? 0 : type < 11 ? 1 : type < 15 ? 2 : 3; }

/// Types whose qualifier takes no part.
constexpr bool anyQualifierType(U8 type) { return type == 3 || type == 7 || type == 11; }

/// Calls `visit(field, any)` with a field of the key but for its type. Zero stands for any;
/// hardware spells that as `any`, where it is not 0.
template <class Key, class Visit>
void visitField(Key& key, KeyPiece field, const Visit& visit) {
  const auto one = [&](KeyPiece piece, auto& part, U32 any) {
    if (field == piece) visit(part, any);
  };
  one(aclId, key.aclId, 0);
  one(natDirection, key.natDirection, 0);
  one(natId, key.natId, 0);
  one(srcIp, key.srcIp, 0xFFFFFFFF);
  one(dstIp, key.dstIp, 0xFFFFFFFF);
  one(qualifier, key.qualifier, 0);
  one(l4Port, key.l4Port, 65535);
}

U64 toHw(const AclHashKey& key, KeyPiece field) {
  if (field == subType) return key.type() - U64{variants[variantOf(key.type())].firstType};
  if (field == qualifier && anyQualifierType(key.type())) return 15;
  U64 bits = 0;
  visitField(key, field, [&](const auto& from, U32 any) {
    using Orb::hashWord;
    bits = hashWord(from());
    if (bits == 0) bits = any;
  });
  return bits;
}

void fromHw(AclHashKey& key, KeyPiece field, U64 bits) {
  if (field == subType) key.type = static_cast<U8>(key.type() + bits);
  visitField(key, field, [&](auto& into, U32 any) {
    fromRowBits(into.value, any != 0 && bits == any ? 0 : bits);
  });
}

}  // namespace

void AclHashFamily::packKey(const Key& key, KeyBits& bits) {
  for (const KeyPart& part : variants[variantOf(key.type())].parts) {
    if (part.width != 0) bits.add(part.width, toHw(key, part.field));
  }
}

bool AclHashFamily::unpackKey(KeyBits bits, const RowReaderOf<AclHashFamily>& row, Key& key) {
  const KeyVariant& variant = variants[row.get<"variant">()];
  key.type = variant.firstType;
  for (const KeyPart& part : variant.parts) {
    if (part.width != 0) fromHw(key, part.field, bits.take(part.width));
  }
  return true;
}

void AclHashFamily::packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                             CuckooLocation, RowWriterOf<AclHashFamily>& row) {
  if (valid) row.set<"variant">(variantOf(key.type()));
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

VELA_HASH_CLASSES_DEFINE(AclHashFamily, AclHashTable, AclHashHelper, AclHashTableCuckooEntry,
                         AclPhysicalHashProperties, AclHashTableStatus)
VELA_HASH_CONVERTOR_DEFINE(AclHashConvertor)
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
