#include "device/DataPath.h"

#include <algorithm>
#include <bit>

#include "device/Search.h"

namespace VelaDevice {
namespace {

constexpr U32 aclPolynomials[] = {0x065, 0x1d9};

/// The key as the ACL processor takes it from a packet's fields.
struct AclKey {
  Bits bits;
  U32 variant;
};

AclKey aclKey(const VelaSwitch::AclHashKey& key) {
  const auto ip = [](Ipnet::IpAddr a) { return a.number() == 0 ? 0xFFFFFFFFu : a.number(); };
  const U32 source = ip(key.srcIp());
  const U32 destination = ip(key.dstIp());
  const U32 port = key.l4Port() == 0 ? 0xFFFF : key.l4Port();
  const U8 type = key.type();
  const U32 qualifier = type == 3 || type == 7 || type == 11 ? 15 : key.qualifier();
  Bits bits;
  if (type >= 15) {
    bits.append(key.natDirection(), 1);
    bits.append(key.natId().value(), 3);
    bits.append(type - 15u, 2);
    bits.append(source, 32);
    bits.append(destination, 32);
    return {bits, 3};
  }
  bits.append(key.aclId().value(), 4);
  if (type <= 6) {
    bits.append(type, 3);
    bits.append(destination, 32);
  } else if (type <= 10) {
    bits.append(type - 7u, 2);
    bits.append(source, 32);
  } else {
    bits.append(type - 11u, 2);
    bits.append(destination, 32);
    bits.append(source, 32);
  }
  bits.append(qualifier, 4);
  bits.append(port, 16);
  return {bits, type <= 6 ? 0u : type <= 10 ? 1u : 2u};
}

}  // namespace

void DataPath::note(std::string_view family, const SimulatedSwitch::Table* table,
                    std::optional<VelaSwitchApi::HwIndex> index, const char* refusal) {
  if (!steps_) return;
  steps_->push_back({family, table, index, table ? refusal : "the switch has no such table"});
}

/// The row that was found last is no answer.
void DataPath::refuse(const char* why) {
  if (steps_ && !steps_->empty()) steps_->back().refusal = why;
}

/// A row that lies where its key says.
const U32* DataPath::rowAt(const char* family, U32 table, U32 index) {
  const SimulatedSwitch::Table* memory = chip_.find(family, 0, table);
  const U32* words = memory ? memory->row(index) : nullptr;
  note(family, memory, words ? std::optional(index) : std::nullopt,
       words ? nullptr : "the row was never written");
  return words;
}

std::optional<HashTestHit> DataPath::hashTest(U32 key) {
  SimulatedSwitch::Table* table = chip_.find("HashTest", 0, 0);
  for (U32 way = 0; table && way < 2; ++way) {
    const U32 index = way * 8 + (key >> (3 * way) & 7);
    const U32* row = table->row(index);
    if (!row || row[0] != key) continue;
    table->hit(index) = 1;
    note("HashTest", table, index);
    return HashTestHit{row[1]};
  }
  note("HashTest", table, std::nullopt, "no row holds the key");
  return std::nullopt;
}

std::optional<VelaSwitch::AclHashResult> DataPath::acl(U32 pipeline,
                                                       const VelaSwitch::AclHashKey& key) {
  const AclKey wanted = aclKey(key);
  VelaSwitch::AclHashResult result;
  const auto match = [&](Bits row) {
    Bits stored;
    stored.append(row.next(45), 45);
    stored.append(row.next(45), 45);
    const bool same = std::memcmp(stored.bytes(), wanted.bits.bytes(), 12) == 0;
    if (row.next(2) != wanted.variant || !row.flag() || !same) return false;
    result.priority = VelaSwitch::HwAclPriority(row.next(8));
    result.counterIndex = VelaSwitch::HwCounterIndex(row.next(12));
    return true;
  };
  const SimulatedSwitch::Table* table = chip_.find("AclHash", pipeline, 0);
  if (!search("AclHash", table, aclPolynomials, 11, wanted.bits, match)) return std::nullopt;
  return result;
}

std::optional<VlanHit> DataPath::vlan(U32 port, Bridging::VlanId vid) {
  return vlanRow(profile_.portToIngressPipeId(port) / profile_.fields().pipesPerVlanTable(), vid);
}

std::optional<VlanHit> DataPath::vlan(Bridging::VlanId vid) {
  std::optional<VlanHit> whole;
  for (U32 table = 0; chip_.find("VlanMembership", 0, table); ++table) {
    const auto slice = vlanRow(table, vid);
    if (!slice) continue;
    if (!whole) whole = slice;
    whole->permitMask = whole->permitMask() | slice->permitMask();
    slice->aclId().forEach([&](auto pipe, U8 id) { whole->aclId.value.is(pipe, id); });
    slice->aclEnable().forEach([&](auto pipe, U8 on) { whole->aclEnable.value.is(pipe, on); });
    slice->aclDefaultPermit().forEach(
        [&](auto pipe, bool on) { whole->aclDefaultPermit.value.is(pipe, on); });
    slice->natId().forEach([&](auto pipe, U8 id) { whole->natId.value.is(pipe, id); });
    slice->natEnable().forEach([&](auto pipe, U8 on) { whole->natEnable.value.is(pipe, on); });
  }
  return whole;
}

std::optional<VlanHit> DataPath::vlanRow(U32 table, Bridging::VlanId vid) {
  const U32* words = rowAt("VlanMembership", table, vid.value());
  if (!words) return std::nullopt;

  U32 first = 0;
  U32 last = profile_.ports() - 1;
  bool ingress = false;
  for (const auto& pipe : profile_.ingressPipeRangeInfos()) {
    if (pipe.pipe() / profile_.fields().pipesPerVlanTable() != table) continue;
    first = ingress ? std::min(first, pipe.firstPort()) : pipe.firstPort();
    last = ingress ? std::max(last, pipe.lastPort()) : pipe.lastPort();
    ingress = true;
  }

  const U32 format = profile_.registerFormat().major();
  Bits row(words, VelaSwitchApi::maxRowWords);
  if (format < 3 && !row.flag()) {
    refuse("the row is not valid");
    return std::nullopt;
  }
  VlanHit hit;
  hit.permitMask = row.next(last - first + 1) << first;
  hit.learnToCpu = row.flag();
  hit.unknownMulticastToCpu = row.flag();
  hit.multicastJoinToCpu = row.flag();
  hit.broadcastToCpu = row.flag();
  hit.unknownDaToCpu = row.flag();
  hit.multicastJoinToEgress = row.flag();
  row.skip(1);
  hit.vrfBits = static_cast<U8>(row.next(format >= 4 ? std::bit_width(profile_.vrfs()) - 1u : 2u));
  hit.unicastRoute = row.flag();
  hit.multicastRoute = row.flag();
  if (format < 4) return hit;
  const VelaSwitch::PipeId pipes[] = {VelaSwitch::PipeId(2 * table),
                                      VelaSwitch::PipeId(2 * table + 1)};
  const auto& known = profile_.ingressPipeRangeInfos();
  /// Puts what the row says of each pipe into the map, for the pipes that there are.
  const auto take = [&]<class T>(VelaSwitch::PipeMap<T>& map, unsigned width) {
    for (const auto pipe : pipes) {
      const U64 value = row.next(width);
      const bool there = std::any_of(known.begin(), known.end(),
                                     [&](const auto& each) { return each.pipe() == pipe.value(); });
      if (there) map.is(pipe, static_cast<T>(value));
    }
  };
  take(hit.aclId.value, 4);
  take(hit.aclEnable.value, 1);
  take(hit.aclDefaultPermit.value, 1);
  take(hit.natId.value, 3);
  take(hit.natEnable.value, 1);
  return hit;
}

}  // namespace VelaDevice
