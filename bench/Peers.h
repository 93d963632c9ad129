#pragma once

#include <array>
#include <bit>
#include <string>
#include <unordered_map>

#include "Orb/Hash.h"

#ifdef VELA_LIBCUCKOO
#include <libcuckoo/cuckoohash_map.hh>
#endif
#ifdef VELA_DPDK
#include <rte_fib.h>
#include <rte_hash.h>
#endif

/// Tables of others that the library's are compared with: all take the same 16 bytes of key and a
/// word that goes with them, and have their room before they are timed.
namespace VelaBench {

using PeerKey = std::array<U64, 2>;

class StdMap {
 public:
  static constexpr const char* name = "unordered_map";
  explicit StdMap(U32 entries) { map_.reserve(entries); }
  void add(const PeerKey& key, U64 value) { map_.emplace(key, value); }
  bool find(const PeerKey& key) const { return map_.find(key) != map_.end(); }
  void del(const PeerKey& key) { map_.erase(key); }

  struct Hash {
    std::size_t operator()(const PeerKey& key) const {
      return Orb::hashMix(Orb::hashMix(Orb::hashSeed, key[0]), key[1]);
    }
  };

 private:
  std::unordered_map<PeerKey, U64, Hash> map_;
};

#ifdef VELA_LIBCUCKOO
class LibCuckoo {
 public:
  static constexpr const char* name = "libcuckoo";
  explicit LibCuckoo(U32 entries) : map_(entries) {}
  void add(const PeerKey& key, U64 value) { map_.insert(key, value); }
  bool find(const PeerKey& key) const {
    U64 value = 0;
    return map_.find(key, value);
  }
  void del(const PeerKey& key) { map_.erase(key); }

 private:
  libcuckoo::cuckoohash_map<PeerKey, U64, StdMap::Hash> map_;
};
#endif

#ifdef VELA_DPDK
/// Starts DPDK's environment, once, without huge pages or devices; says why when it cannot be.
bool dpdkStarted();

/// A name that no table had before.
inline std::string uniqueName() {
  static U32 number = 0;
  return "bench" + std::to_string(number++);
}

class RteHash {
 public:
  static constexpr const char* name = "rte_hash";
  explicit RteHash(U32 entries) {
    const std::string unique = uniqueName();
    rte_hash_parameters parameters{};
    parameters.name = unique.c_str();
    parameters.entries = entries;
    parameters.key_len = sizeof(PeerKey);
    parameters.socket_id = SOCKET_ID_ANY;
    table_ = rte_hash_create(&parameters);
    if (!table_) std::abort();
  }
  ~RteHash() { rte_hash_free(table_); }
  RteHash(const RteHash&) = delete;
  RteHash& operator=(const RteHash&) = delete;
  void add(const PeerKey& key, U64 value) {
    rte_hash_add_key_data(table_, key.data(), std::bit_cast<void*>(value));
  }
  bool find(const PeerKey& key) const {
    void* value = nullptr;
    return rte_hash_lookup_data(table_, key.data(), &value) >= 0;
  }
  void del(const PeerKey& key) { rte_hash_del_key(table_, key.data()); }

 private:
  rte_hash* table_;
};

/// The usual one for IPv4, DIR24_8, with next hops of four bytes.
class RteFib {
 public:
  explicit RteFib(U32 routes) {
    rte_fib_conf conf{};
    conf.type = RTE_FIB_DIR24_8;
    conf.max_routes = static_cast<int>(routes);
    conf.dir24_8.nh_sz = RTE_FIB_DIR24_8_4B;
    conf.dir24_8.num_tbl8 = 4096;
    fib_ = rte_fib_create(uniqueName().c_str(), SOCKET_ID_ANY, &conf);
    if (!fib_) std::abort();
  }
  ~RteFib() { rte_fib_free(fib_); }
  RteFib(const RteFib&) = delete;
  RteFib& operator=(const RteFib&) = delete;
  bool add(U32 address, U8 length, U64 nexthop) {
    return rte_fib_add(fib_, address, length, nexthop) == 0;
  }
  bool del(U32 address, U8 length) { return rte_fib_delete(fib_, address, length) == 0; }

 private:
  rte_fib* fib_;
};
#endif

/// Calls `visit` with a null pointer of the type of each peer that there is.
template <class Visitor>
void forEachPeer(const Visitor& visit) {
  visit(static_cast<StdMap*>(nullptr));
#ifdef VELA_LIBCUCKOO
  visit(static_cast<LibCuckoo*>(nullptr));
#endif
#ifdef VELA_DPDK
  if (dpdkStarted()) visit(static_cast<RteHash*>(nullptr));
#endif
}

/// What a report says of peers that are not there.
std::string missingPeers();

}  // namespace VelaBench
