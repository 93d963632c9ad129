#include "VelaSwitchTable/VelaTableCopp.h"

#include <cmath>

namespace VelaSwitchTable {
namespace {

using VelaSwitch::ProfileHwApi;
using VelaSwitchApi::HwAddressColl;
using Names = CoppHwTableRegisterMapping::Names;

/// The names of a hardware interface, from the newest to the oldest.
constexpr Names names51{
    "interval_period",     "reserved_mac_limit",     "igmp_limit",         "link_local_limit",
    "l2_packet_limit",     "cpu_critical_limit",     "ptp_limit",          "l3_high_packet_limit",
    "l3_low_packet_limit", "multicast_packet_limit", "l3_exception_limit", "mac_learn_limit",
    "default_limit"};
constexpr Names without(Names names, std::initializer_list<U8> missing) {
  for (const U8 index : missing) names[index] = nullptr;
  return names;
}
constexpr Names names41 = without(names51, {5, 6});
constexpr Names names40 = [] {
  Names names = without(names41, {7, 8, 9, 10, 12});
  names[4] = "packet_forwarding_limit";
  return names;
}();

constexpr U32 incrementMask = 0x3FFFF;
constexpr U32 scaleMask = 7;
constexpr U8 scaleFirst = 20;
constexpr U32 wholePercent = 100;

/// The limiter's share of a number, at least 1.
U32 scaled(U32 number, U32 percent) {
  const U64 product = U64{number} * percent;
  return product < wholePercent ? 1 : static_cast<U32>(product / wholePercent);
}

/// Truncates; what lies outside the numbers of 32 bits becomes the nearest of them.
U32 wholeNumber(float value) {
  if (!(value > 0)) return 0;
  constexpr float limit = 4294967296.0f;
  return value >= limit ? ~U32{0} : static_cast<U32>(value);
}

Orb::PtrConst<VelaSwitchApi::HwTableRegisterMapping> mappingOf(ProfileHwApi hwApi,
                                                               const std::string& prefix) {
  const std::string name = CoppFamily::traits.table.name;
  if (hwApi < ProfileHwApi{4u, 1u}) return CoppHwTableRegisterMappingIs(prefix, name);
  if (hwApi < ProfileHwApi{5u, 1u}) return CoppHwTableRegisterMappingHwApi41Is(prefix, name);
  return CoppHwTableRegisterMappingHwApi51Is(prefix, name);
}

}  // namespace

U32 CoppEntry::pipelineScalingPercent(U32 numPipelines) {
  return numPipelines <= 1 ? wholePercent : numPipelines == 2 ? 66 : 50;
}

U32 CoppEntry::toHardwareValue(CoppEntryKey key, bool forCpuTx, U32 numPipelines,
                               bool scaleFactorSupported) const {
  ORB_ASSERT(numPipelines);
  if (key.index() == 0) return scaleFactorSupported ? wholeNumber(interval()) : result();
  const U32 percent = pipelineScalingPercent(numPipelines);
  if (scaleFactorSupported) {
    const U32 tokens = forCpuTx ? increment() : scaled(increment(), percent);
    return (tokens & incrementMask) | (scaleFactor() & scaleMask) << scaleFirst;
  }
  // 0 and the largest value mean nothing and everything, which have no share.
  const bool shared = result() != 0 && result() != incrementMask;
  return forCpuTx || numPipelines == 1 || !shared ? result() : scaled(result(), percent);
}

CoppEntry CoppEntry::fromCpuHardwareValue(CoppEntryKey key, U32 value, bool scaleFactorSupported) {
  CoppEntry entry;
  if (!scaleFactorSupported) {
    entry.result = value;
  } else if (key.index() == 0) {
    constexpr float upper = 65536.0f;
    entry.interval = static_cast<float>(value >> 16) * upper + static_cast<float>(value & 0xffff);
  } else {
    entry.increment = value & incrementMask;
    entry.scaleFactor = value >> scaleFirst & scaleMask;
  }
  return entry;
}

std::vector<PlainHwTable> CoppFamily::hwTables(const VelaSwitch::ProfileInfo& profile) {
  const U32 limiters = profile.numTables(VelaSwitch::TableKind::layer2) & 0xffff;
  const char* prefix = profile.fields().ingressRateLimiter() ? "ingress/rate_limiter[%u]/"
                                                             : "pipeline[%u]/rate_limiter/";
  std::vector<PlainHwTable> tables;
  for (U32 t = 0; t <= limiters; ++t) {
    const bool cpu = t == limiters;
    PlainHwTable table{
        .id = t, .suffix = cpu ? "CpuTx" : "", .last = lastIndex, .rowWords = 1, .cpu = cpu};
    table.mapping =
        mappingOf(profile.hwApi(), cpu ? "cpu_tx_pipeline[0]/rate_limiter/" : regPrefix(prefix, t));
    ORB_ASSERT_TEXT(table.mapping, "mapping");
    tables.push_back(std::move(table));
  }
  return tables;
}

void CoppFamily::sample(const VelaSwitchApi::SwTable& table, U64 bits, const Key& key,
                        Result& result) {
  const bool scaleFactor = static_cast<const CoppTable&>(table).scaleFactorSupported();
  constexpr U32 most = incrementMask | scaleMask << scaleFirst;
  result = CoppEntry::fromCpuHardwareValue(key, static_cast<U32>(bits) & most, scaleFactor);
}

void CoppFamily::packMore(const PlainRowContext& at, const Key& key, const Result& result,
                          RowWriterOf<CoppFamily>& row) {
  const bool scaleFactor = static_cast<const CoppTable&>(at.swTable).scaleFactorSupported();
  trace(8, "hwTableEntryIs Key:", key);
  row.set<"value">(result.toHardwareValue(key, at.table.cpu, at.profile.pipelines(), scaleFactor));
}

/// The CPU's table alone has what was announced; the others hold shares of it.
RowSays CoppFamily::unpackMore(const PlainRowContext& at, const Key& key,
                               const RowReaderOf<CoppFamily>& row, Result& result) {
  if (!at.table.cpu) return RowSays::nothing;
  const bool scaleFactor = static_cast<const CoppTable&>(at.swTable).scaleFactorSupported();
  trace(5, "Found cpu tx table hw entry for key: ", key);
  result = CoppEntry::fromCpuHardwareValue(key, static_cast<U32>(row.get<"value">()), scaleFactor);
  return RowSays::result;
}

ProfileHwApi CoppTable::scaleFactorVersion() const {
  const auto& version = scaleFactorVersion_.value();
  return version ? *version : profile().fields().scaleFactorVersion();
}

void CoppTable::scaleFactorVersionIs(ProfileHwApi version) {
  const bool connected = bool{profileConvertorPtr()};
  if (connected && version == scaleFactorVersion()) return;
  const bool supported = connected && scaleFactorSupported();
  if (!scaleFactorVersion_.is(version)) return;
  if (!initialized() || scaleFactorSupported() == supported) return;
  for (HwIndex index = 0; index <= CoppFamily::lastIndex; ++index) {
    const CoppEntryKey key = CoppFamily::keyOf(index);
    if (entry(key)) {
      handleEntry(key);
    } else if (!static_cast<CoppConvertor&>(*profileConvertorPtr())
                    .hwTableEntryIs(key, {}, false)) {
      hwInconsistentEntryIs(key, true);
    }
  }
}

bool CoppConvertor::hwTableEntryIs(const CoppEntryKey& key, const CoppEntry& entry, bool present) {
  return hwTableEntryIs(key, present ? entry : CoppFamily::absentResult());
}

void CoppConvertor::syncEntries(U32 table) {
  ORB_ASSERT_TEXT(hwTable(table), "table");
  ORB_ASSERT_TEXT(hwTable(numCoppTables()), "cpuTxHwTable");
  PlainFamilyLayerConvertor::syncEntries(table);
}

U32 CoppConvertor::numCoppTables() const {
  return profile().numTables(VelaSwitch::TableKind::layer2) & 0xffff;
}

CoppHwTableRegisterMapping::CoppHwTableRegisterMapping(std::string prefix, std::string tableName)
    : CoppHwTableRegisterMapping(std::move(prefix), std::move(tableName), names40) {}

HwAddressColl CoppHwTableRegisterMapping::getRegister(HwIndex index) const {
  if (index >= names_.size()) {
    CoppFamily::trace(0, " HwIndex:", index);
    return {};
  }
  if (!names_[index]) return {};
  return regAddresses(prefix_, {names_[index]});
}

VELA_PLAIN_CLASSES_DEFINE(CoppFamily, CoppTable, CoppConvertorBase, CoppConvertor)

#define VELA_COPP_MAPPING_DEFINE(Class)                                                            \
  VELA_REGISTERED_DEFINE(Class)                                                                    \
  VELA_FACTORY_DEFINE(Class, Class##Is, (const std::string& prefix, const std::string& tableName), \
                      (prefix, tableName))

VELA_COPP_MAPPING_DEFINE(CoppHwTableRegisterMapping)
VELA_COPP_MAPPING_DEFINE(CoppHwTableRegisterMappingHwApi41)
VELA_COPP_MAPPING_DEFINE(CoppHwTableRegisterMappingHwApi51)

CoppHwTableRegisterMappingHwApi41::CoppHwTableRegisterMappingHwApi41(std::string prefix,
                                                                     std::string tableName)
    : CoppHwTableRegisterMapping(std::move(prefix), std::move(tableName), names41) {}
CoppHwTableRegisterMappingHwApi51::CoppHwTableRegisterMappingHwApi51(std::string prefix,
                                                                     std::string tableName)
    : CoppHwTableRegisterMapping(std::move(prefix), std::move(tableName), names51) {}

}  // namespace VelaSwitchTable
