#include "device/AclLookup.h"

#include "device/Search.h"

namespace VelaDevice {
namespace {

constexpr HashUnit aclUnit{11, 2};

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

std::optional<HashTestHit> hashTest(DataPath& path, U32 key) {
  DataPath::Table* table = path.table("HashTest");
  for (U32 way = 0; table && way < 2; ++way) {
    const U32 index = way * 8 + (key >> (3 * way) & 7);
    const U32* row = table->row(index);
    if (!row || row[0] != key) continue;
    if (!path.onlyLooks()) table->hit(index) = 1;
    path.note("HashTest", table, index);
    return HashTestHit{row[1]};
  }
  path.note("HashTest", table, std::nullopt, "no row holds the key");
  return std::nullopt;
}

std::optional<VelaSwitch::AclHashResult> acl(DataPath& path, U32 pipeline,
                                             const VelaSwitch::AclHashKey& key) {
  const AclKey wanted = aclKey(key);
  auto found = search(path, "AclHash", path.table("AclHash", pipeline), aclUnit, wanted.bits,
                      [&](Bits& row) {
                        Bits stored;
                        stored.append(row.next(45), 45);
                        stored.append(row.next(45), 45);
                        return row.next(2) == wanted.variant && row.flag() &&
                               std::memcmp(stored.bytes(), wanted.bits.bytes(), 12) == 0;
                      });
  if (!found) return std::nullopt;
  const VelaSwitch::HwAclPriority priority(found->rest.next(8));
  return VelaSwitch::AclHashResult{priority, VelaSwitch::HwCounterIndex(found->rest.next(12))};
}

std::optional<CounterHit> aclCounter(DataPath& path, U32 pipeline, U16 key) {
  Bits hashed;
  hashed.append(key, 16);
  auto found =
      search(path, "AclIndirectCounterHash", path.table("AclIndirectCounterHash", pipeline),
             aclUnit, hashed,
             // There is no valid bit: a row that is all zero holds nothing.
             [&](Bits& row) { return Bits(row).next(18) != 0 && row.next(5) == key >> 11; });
  if (!found) return std::nullopt;
  return CounterHit{static_cast<U16>(found->rest.next(12))};
}

}  // namespace VelaDevice
