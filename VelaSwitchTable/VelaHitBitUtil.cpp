#include "VelaSwitchTable/VelaHitBitUtil.h"

namespace VelaSwitchTable {
namespace {

/// Register numbers of the hit tables begin here.
constexpr U32 hitRegistrationBase = 0x24;
/// Each read fills two registers; the second of them is the address collection's last.
constexpr U32 hitRegisters = 2;

}  // namespace

Orb::PtrConst<VelaSwitchApi::HitBitReadInfoWrapper> getHitBitMapping(const std::string& prefix,
                                                                     U32 rows, U32 bitsPerRead,
                                                                     U32 hitTableOffset) {
  ORB_ASSERT(rows != 0);
  VelaSwitchApi::HwAddressColl addresses;
  addresses.addressIs(0, prefix + "hash_ctl");
  addresses.addressIs(1, prefix + "hash_data0");
  addresses.addressIs(2, prefix + "hash_data1");
  auto wrapper = Orb::make<VelaSwitchApi::HitBitReadInfoWrapper>();
  wrapper->readInfoIs(std::move(addresses));
  if (hitTableOffset != 0) {
    const U32 lastBit = bitsPerRead / 2 - 1;
    wrapper->info().bitRegistrationIs(
        static_cast<U8>(hitTableOffset + hitRegistrationBase),
        {{0, lastBit, hitRegisters, hitRegisters - 1}, {0, lastBit, hitRegisters, hitRegisters}});
  }
  return wrapper;
}

}  // namespace VelaSwitchTable
