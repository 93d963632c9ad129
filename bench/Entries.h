#pragma once

#include "Peers.h"
#include "Rig.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableNatMatch.h"

/// Entries that benchmarks announce, and what they go into. All have the same operations, by the
/// number of a key: `add`, `again` (nothing changes), `replace` (another result), `del`.
namespace VelaBench {

/// Matched by both addresses and a port, in the table of one pipeline.
struct Acl {
  static constexpr const char* name = "acl";
  using Table = VelaSwitchTable::AclHashTable;
  using Key = VelaSwitch::AclHashKey;
  static constexpr U32 rows = 4096;
  static constexpr U32 entries = rows * 45 / 100;

  static Orb::Ptr<Table> table() { return VelaSwitchTable::aclHashTableFactory("acl", 0, 0); }
  static Key key(std::mt19937& random) {
    Key key;
    key.aclId = VelaSwitch::HwAclId(static_cast<U32>(random()) % 16);
    key.type = static_cast<U8>(11 + random() % 4);
    key.srcIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.dstIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.l4Port = static_cast<U16>(random());
    return key;
  }
  static PeerKey peerKey(const Key& key) {
    return {U64{key.srcIp().number()} << 32 | key.dstIp().number(),
            U64{key.l4Port()} << 32 | U64{key.type()} << 8 | key.aclId().value()};
  }
  static VelaSwitch::AclHashResult result(U32 number) { return {number % 256, number % 4096}; }
};

/// Static flows by source address and port, in both pipelines: each is two rows.
struct Nat {
  static constexpr const char* name = "nat";
  using Table = VelaSwitchTable::NatMatchTable;
  using Key = VelaSwitch::NatMatchKey;
  static constexpr U32 rows = 3 * 4096;
  static constexpr U32 entries = 9000;

  static Orb::Ptr<Table> table() { return VelaSwitchTable::NatMatchTableIs("nat", 0); }
  static Key key(std::mt19937& random) {
    Key key;
    key.natType = U8{1};
    key.srcIp = Ipnet::IpAddr(static_cast<U32>(random()));
    key.sport = static_cast<U16>(random());
    return key;
  }
  static PeerKey peerKey(const Key& key) {
    return {U64{key.srcIp().number()} << 16 | key.sport(), key.natType()};
  }
  static VelaSwitchTable::NatMatchResult result(U32 number) {
    VelaSwitchTable::NatMatchResult result;
    result.valid = true;
    result.natRewriteId = static_cast<U16>(number % 4096);
    return result;
  }
};

/// Random keys, more than ever fit.
template <class Work>
const std::vector<typename Work::Key>& keysOf(U32 seed = 1) {
  static std::map<U32, std::vector<typename Work::Key>> made;
  auto& keys = made[seed];
  if (keys.empty()) {
    std::mt19937 random(seed);
    keys.resize(2 * Work::rows + 20'000);
    for (auto& key : keys) key = Work::key(random);
  }
  return keys;
}

/// Them with their results, as batches take them.
template <class Work>
const auto& entriesOf(U32 seed = 1) {
  using Table = typename Work::Table;
  static std::map<U32, std::vector<std::pair<typename Work::Key, typename Table::Result>>> made;
  auto& entries = made[seed];
  if (entries.empty()) {
    for (const auto& key : keysOf<Work>(seed)) {
      entries.emplace_back(key, Work::result(static_cast<U32>(entries.size())));
    }
  }
  return entries;
}

/// The library's table.
template <class Work, class Bus = MemoryBus>
struct Vela : Switch<Bus> {
  explicit Vela(U32 seed = 1) : keys(keysOf<Work>(seed)), entries(entriesOf<Work>(seed)) {
    table->doSetProfileConvertor(this->types);
    startTable(*table);
  }
  bool add(U32 key) { return table->entryIs(keys[key], Work::result(key)); }
  /// The `count` from this one on, together.
  void addAll(U32 first, U32 count) { table->entriesAre(std::span(entries).subspan(first, count)); }
  bool again(U32 key) { return add(key); }
  void replace(U32 key) { table->entryIs(keys[key], Work::result(key + ++changes)); }
  void del(U32 key) { table->entryDel(keys[key]); }
  std::size_t size() const { return keys.size(); }
  U64 rowWrites() const { return this->bus.rowWrites(); }
  const Keel::Cuckoo::Table& engine() const {
    return table->profileConvertor().physicalTable().engine();
  }
  std::size_t waiting() const { return engine().waiting().size(); }

  const std::vector<typename Work::Key>& keys;
  const std::vector<std::pair<typename Work::Key, typename Work::Table::Result>>& entries;
  Orb::Ptr<typename Work::Table> table = Work::table();
  U32 changes = 0;
};

/// A peer's, with room for as many.
template <class Work, class Map>
struct Peer {
  void add(U32 key) { map.add(keys[key], key); }
  bool again(U32 key) { return !map.find(keys[key]); }
  void del(U32 key) { map.del(keys[key]); }
  static U64 rowWrites() { return 0; }

  static std::vector<PeerKey> peerKeys() {
    std::vector<PeerKey> made;
    for (U32 i = 0; i < Work::rows; ++i) made.push_back(Work::peerKey(keysOf<Work>()[i]));
    return made;
  }
  inline static const std::vector<PeerKey> keys = peerKeys();
  Map map{Work::rows};
};

}  // namespace VelaBench
