#pragma once

#include <array>
#include <bit>
#include <bitset>

#include "Ipnet/IpPrefix.h"
#include "VelaSwitch/NexthopIndexes.h"

namespace VelaSwitch {

/// The routes that compete for the cells of one key of a level, as a binary tree: node 1 is a route
/// of the key's own length, the halves of node n are nodes 2n and 2n + 1, and the 2^depth lowest
/// nodes are routes of a single cell. A cell belongs to the longest route above it.
template <U8 depth>
class RouteTree {
 public:
  static constexpr U32 cells = 1u << depth;
  /// Stands for no route.
  static constexpr U32 none = 0;

  /// The node of a route that is `extra` bits longer than the key, with those bits.
  static constexpr U32 node(U8 extra, U32 bits) { return 1u << extra | bits; }
  static constexpr U8 extra(U32 node) { return static_cast<U8>(std::bit_width(node) - 1); }
  /// The bits behind the key of a node's route.
  static constexpr U32 bits(U32 node) { return node - (1u << extra(node)); }
  /// The node of a prefix below a key of `length` bits, and the prefix of a node below a key.
  static U32 nodeOf(const Ipnet::IpPrefix& prefix, U8 length) {
    const U8 more = static_cast<U8>(prefix.len() - length);
    return node(more, more == 0 ? 0 : prefix.address().number() << length >> (32 - more));
  }
  static Ipnet::IpPrefix prefixOf(const Ipnet::IpPrefix& key, U32 node) {
    const U8 length = static_cast<U8>(key.len() + extra(node));
    const U32 behind = length == 0 ? 0 : bits(node) << (32 - length);
    return {Ipnet::IpAddr(key.address().number() | behind), length};
  }

  bool has(U32 node) const { return present_[node]; }
  bool empty() const { return present_.none(); }
  void is(U32 node, NexthopIndexes nexthop) {
    present_[node] = true;
    nexthops_[node] =
        static_cast<U16>(nexthop.l3LagIndex().value() | nexthop.rewriteIndex() << lagBits);
  }
  void del(U32 node) { present_[node] = false; }
  /// The next hop that the node's route has, or had last.
  NexthopIndexes nexthop(U32 node) const {
    const U32 both = nexthops_[node];
    return {L3LagIndex(both % (1u << lagBits)), static_cast<U8>(both >> lagBits)};
  }

  /// The longest route at the node or above it.
  U32 owner(U32 node) const {
    while (node != none && !has(node)) node >>= 1;
    return node;
  }
  U32 ownerOfCell(U32 cell) const { return owner(cells + cell); }

  /// Calls `visit(cell)` for each cell below the node that no longer route claims. Looks at no more
  /// nodes than there are such cells and routes that claim the others, times two.
  template <class Visitor>
  void forEachCell(U32 node, const Visitor& visit) const {
    if (node >= cells) return visit(node - cells);
    for (const U32 half : {2 * node, 2 * node + 1}) {
      if (!has(half)) forEachCell(half, visit);
    }
  }
  template <class Visitor>
  void forEachRoute(const Visitor& visit) const {
    for (U32 node = 1; node < 2 * cells; ++node) {
      if (has(node)) visit(node);
    }
  }
  /// The nodes that have routes, a bit for each.
  U8 nodes() const requires(depth == 2) { return static_cast<U8>(present_.to_ulong()); }
  /// The node that owns each cell; none has no next hop.
  const std::array<U8, cells>& owners() const requires(depth == 2) {
    static constexpr auto byNodes = allOwners();
    return byNodes[nodes()];
  }

 private:
  static constexpr U32 lagBits = 6;
  static_assert(L3LagIndex::highest < 1u << lagBits);

  static constexpr auto noNexthops() {
    std::array<U16, 2 * cells> all{};
    all.fill(L3LagIndex::null);
    return all;
  }
  /// Of trees with each set of nodes.
  static constexpr auto allOwners() {
    std::array<std::array<U8, cells>, 1u << 2 * cells> all{};
    for (U32 nodes = 0; nodes < all.size(); ++nodes) {
      for (U32 cell = 0; cell < cells; ++cell) {
        U32 node = cells + cell;
        while (node != none && (nodes >> node & 1) == 0) node >>= 1;
        all[nodes][cell] = static_cast<U8>(node);
      }
    }
    return all;
  }

  std::bitset<2 * cells> present_;
  /// In two bytes, so that all that is known of a key's routes is one line of memory.
  std::array<U16, 2 * cells> nexthops_ = noNexthops();
};

}  // namespace VelaSwitch
