#pragma once

#include "VelaSwitch/Crc.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/family/ProcessorTraits.h"

/// What the multicast tables share. A group's upper four bits are the same for every group, so
/// hardware neither hashes nor stores them.
namespace VelaSwitchTable {

/// Who gets a copy of a multicast packet, under the table's own name.
template <Orb::FixedString Name>
struct MulticastResult {
  static constexpr const char* typeName = Name.chars;
  Orb::Field<"vlanGroupId", U8, 4> vlanGroupId;  ///< The key of VlanGroup: VLANs of the copies.
  Orb::Field<"portMask", VelaSwitch::IngressPortMask> portMask;  ///< With the CPU port.
  auto operator<=>(const MulticastResult&) const = default;
};

inline constexpr U8 groupBits = 28;  ///< Of a group that hardware looks at.

/// F is the family. Behind the control word rows keep the whole group.
template <class F, Orb::FixedString Unit, class Result>
struct MulticastFamily : Family<Unit, VelaSwitch::MrouteKey, Result> {
  using Key = VelaSwitch::MrouteKey;

  static void packMore(const VelaTableHashHelper&, const Key& key, const Result&, bool valid,
                       CuckooLocation, RowWriterOf<F>& row) {
    if (valid) row.template set<"wholeGroup">(key.group().number());
  }
  /// A group's upper four bits are those of the whole address where that is still held, else those
  /// that group addresses have.
  static void completeKey(const RowReaderOf<F>& row, Key& key) {
    constexpr U64 usual = 0xE;
    const U64 whole = row.template get<"wholeGroup">();
    const U64 upper = whole == 0 ? usual : whole >> groupBits;
    key.group = Ipnet::IpAddr(static_cast<U32>(upper << groupBits | key.group().number()));
  }
};

}  // namespace VelaSwitchTable

// The factories of a multicast family's classes by their other names; the convertor is not always
// its own.

#define VELA_MULTICAST_FACTORIES(Do, Xxx, xxx)                                                \
  Do(Xxx##Table, xxx##TableFactory, (const std::string& name), (name));                       \
  Do(Xxx##Helper, xxx##HelperFactory, (), ());                                                \
  Do(Xxx##PhysicalHashProperties, xxx##PhysicalHashPropertiesFactory, (), ());                \
  Do(Xxx##TableCuckooEntry, xxx##TableCuckooEntryFactory, (const VelaSwitch::MrouteKey& key), \
     (key));                                                                                  \
  Do(Xxx##TableStatus, xxx##TableStatusFactory, (), ())
