#include "VelaSwitchTable/VelaTableLpm.h"

namespace VelaSwitchTable {
namespace {

constexpr U8 nexthopBits = 2 * VelaSwitch::NexthopIndexes::fieldBits;
constexpr U32 nexthopMask = (1u << nexthopBits) - 1;
/// In a hashed level's cell: there is no next hop.
constexpr U32 emptyCell = 3;

}  // namespace

// The encoding has been the same in every hardware interface so far.

U32 EntryCellResult::hwEncoding(bool direct, U8 width, VelaSwitch::ProfileHwApi) const {
  const U32 nexthop = nexthopIndexes().raw();
  if (direct) return nexthop;
  const U32 shorter = valid() ? static_cast<U32>(width - realPrefixLen()) : emptyCell;
  return nexthop | (shorter & emptyCell) << nexthopBits;
}

EntryCellResult EntryCellResult::fromHwEncoding(U32 encoding, bool direct, U8 width,
                                                VelaSwitch::ProfileHwApi) {
  EntryCellResult cell;
  const U32 shorter = encoding >> nexthopBits & emptyCell;
  if (!direct && shorter == emptyCell) return cell;
  cell.nexthopIndexes = VelaSwitch::NexthopIndexes::fromRaw(encoding & nexthopMask);
  if (!direct && cell.valid()) cell.realPrefixLen = static_cast<U8>(width - shorter);
  return cell;
}

const Orb::Type& LpmTable::fwkType() const { return Orb::registeredType<LpmTable>; }

const LpmStatus& LpmTable::entryStatusIs(const Key& key) {
  if (!entryStatus_.has(key)) entryStatus_.is(key, LpmStatus(key));
  return *entryStatus_.find(key);
}

Orb::Ptr<LpmTable> LpmTableIs(const std::string& name) { return Orb::make<LpmTable>(name); }
Orb::Ptr<LpmTable> lpmTableFactory(const std::string& name) { return LpmTableIs(name); }

}  // namespace VelaSwitchTable
