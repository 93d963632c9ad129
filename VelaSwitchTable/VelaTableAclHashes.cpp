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

/// A field of the key but for its type.
template <KeyPiece piece, class Key>
auto& fieldOf(Key& key) {
  if constexpr (piece == aclId) return key.aclId;
  if constexpr (piece == natDirection) return key.natDirection;
  if constexpr (piece == natId) return key.natId;
  if constexpr (piece == srcIp) return key.srcIp;
  if constexpr (piece == dstIp) return key.dstIp;
  if constexpr (piece == qualifier) return key.qualifier;
  if constexpr (piece == l4Port) return key.l4Port;
}

/// Zero stands for any; hardware spells that like this, where it is not 0.
constexpr U32 anyOf(KeyPiece piece) {
  if (piece == srcIp || piece == dstIp) return 0xFFFFFFFF;
  return piece == l4Port ? 65535 : 0;
}

template <KeyPiece piece>
U64 toHw(const AclHashKey& key) {
  if constexpr (piece == subType) {
    return key.type() - U64{variants[variantOf(key.type())].firstType};
  } else {
    using Orb::hashWord;
    const U64 bits = hashWord(fieldOf<piece>(key)());
    // Not another way for those types, which come in any order.
    if (piece == qualifier) return bits | (anyQualifierType(key.type()) ? 15u : 0u);
    return bits == 0 ? anyOf(piece) : bits;
  }
}

template <KeyPiece piece>
void fromHw(AclHashKey& key, U64 bits) {
  if constexpr (piece == subType) {
    key.type = static_cast<U8>(key.type() + bits);
  } else {
    fromRowBits(fieldOf<piece>(key).value, anyOf(piece) != 0 && bits == anyOf(piece) ? 0 : bits);
  }
}

/// Calls `visit.operator()<piece, width>()` for the fields of a form of key, which the compiler
/// knows: keys are packed as often as entries are announced.
template <class Visit>
void forEachPart(U8 variant, const Visit& visit) {
  const auto of = [&]<std::size_t number>(std::integral_constant<std::size_t, number>)
      __attribute__((always_inline)) {
    [&]<std::size_t... i>(std::index_sequence<i...>) __attribute__((always_inline)) {
      constexpr auto& parts = variants[number].parts;
      (visit.template operator()<parts[i].field, parts[i].width>(), ...);
    }
    (std::make_index_sequence<std::tuple_size_v<decltype(KeyVariant::parts)>>());
  };
  if (variant == 0) of(std::integral_constant<std::size_t, 0>());
  if (variant == 1) of(std::integral_constant<std::size_t, 1>());
  if (variant == 2) of(std::integral_constant<std::size_t, 2>());
  if (variant == 3) of(std::integral_constant<std::size_t, 3>());
}

}  // namespace

void AclHashFamily::sample(const VelaTableHashHelper&, U64 bits, Key& key, Result&) {
  using Orb::hashWord;
  Key held;
  held.type = static_cast<U8>(bits % Key::types);
  forEachPart(variantOf(held.type()), [&]<KeyPiece piece, U8 width>() {
    if constexpr (width != 0 && piece != subType) {
      fromHw<piece>(held, hashWord(fieldOf<piece>(key)()) & ((U64{1} << width) - 1));
    }
  });
  if (anyQualifierType(held.type())) held.qualifier = 15;
  key = held;
}

void AclHashFamily::packKey(const Key& key, KeyBits& bits) {
  forEachPart(
      variantOf(key.type()), [&]<KeyPiece piece, U8 width>() __attribute__((always_inline)) {
        if constexpr (width != 0) bits.add(width, toHw<piece>(key));
      });
}

bool AclHashFamily::unpackKey(KeyBits bits, const RowReaderOf<AclHashFamily>& row, Key& key) {
  const auto variant = static_cast<U8>(row.get<"variant">());
  key.type = variants[variant].firstType;
  forEachPart(variant, [&]<KeyPiece piece, U8 width>() {
    if constexpr (width != 0) fromHw<piece>(key, bits.take(width));
  });
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

bool AclHashHelper::isTable() const {
  const U32 processors = swTable() ? profile().pipelines() : VelaSwitch::ProfileInfo::maxPipes;
  return TableConstants::isAclHashTableId(tableIndex_, processors);
}

void AclHashHelper::doInit() {
  packs_ = isTable();
  HashFamilyHelper::doInit();
}

void AclHashHelper::setHwBuffer(const VelaSwitchApi::HashBaseCuckooEntry& entry,
                                CuckooLocation location, U8* image) const {
  if (!packs_ && !isTable()) [[unlikely]] {
    AclHashFamily::trace(0, "invalid ACL hashTableId ", tableIndex_);
    return;
  }
  HashFamilyHelper::setHwBuffer(entry, location, image);
}

VELA_HASH_FAMILY_NAMED_DEFINE(AclHashFamily, AclHashTable, AclHashConvertor, AclHashHelper,
                              AclHashTableCuckooEntry, AclPhysicalHashProperties,
                              AclHashTableStatus)
VELA_ACL_FACTORIES(VELA_FACTORY_DEFINE)

}  // namespace VelaSwitchTable
