#pragma once

#include "Orb/Attribute.h"
#include "VelaSwitchTable/family/PlainFamily.h"

namespace VelaSwitchTable {

/// A rate limiter: 0 is the refill interval, 1 to 12 are packet classes.
struct CoppEntryKey {
  static constexpr const char* typeName = "VelaSwitchTable::CoppEntryKey";
  static constexpr bool scalar = true;
  Orb::Field<"index", U8> index;  ///< 0 to 12; others have no register.
  auto operator<=>(const CoppEntryKey&) const = default;
};

/// What a limiter is set to. Hardware with a scale factor takes interval, increment and scale;
/// older hardware takes the register value.
struct VELA_EXPORT CoppEntry {
  static constexpr const char* typeName = "VelaSwitchTable::CoppEntry";
  Orb::Field<"result", U32> result;               ///< The register value.
  Orb::Field<"interval", float> interval;         ///< Of index 0.
  Orb::Field<"increment", U32, 18> increment;     ///< Tokens added per interval.
  Orb::Field<"scaleFactor", U32, 3> scaleFactor;  ///< Beside the increment, in bits 20 to 22.
  auto operator<=>(const CoppEntry&) const = default;

  /// The register of the limiter in a table. What the pipelines, of which there must be some, let
  /// through adds up at the CPU, so each may less; the CPU's own transmit table is not scaled.
  U32 toHardwareValue(CoppEntryKey key, bool forCpuTx, U32 numPipelines,
                      bool scaleFactorSupported) const;
  /// The inverse, for the CPU's transmit table.
  static CoppEntry fromCpuHardwareValue(CoppEntryKey key, U32 value, bool scaleFactorSupported);
  static U32 pipelineScalingPercent(U32 numPipelines);  ///< The share of each, in per cent.
  std::string resultString() const { return Orb::fieldsText(*this); }  ///< For people.
};

/// The rate limiters of control-plane policing: in every ingress limiter table, and in the CPU's
/// transmit table behind them. Which index has which register depends on the hardware interface;
/// an index without one is not written.
struct VELA_EXPORT CoppFamily : IndexedFamily<"VelaTableCopp", CoppEntryKey, CoppEntry> {
  static constexpr PlainFamilyTraits traits{
      .table = {109, "Copp"}, .rowWords = 1, .absentTrace = AbsentTrace::byKey};
  static constexpr RowField fields[] = {{"value", 0, 32}};
  static constexpr std::array handPacked{"result", "interval", "increment", "scaleFactor"};
  static constexpr HwIndex lastIndex = 12;
  static std::vector<PlainHwTable> hwTables(const VelaSwitch::ProfileInfo& profile);
  static void sample(const VelaSwitchApi::SwTable& table, U64 bits, const Key& key, Result& result);
  static void packMore(const PlainRowContext& at, const Key& key, const Result& result,
                       RowWriterOf<CoppFamily>& row);
  static RowSays unpackMore(const PlainRowContext& at, const Key& key,
                            const RowReaderOf<CoppFamily>& row, Result& result);
};

VELA_PLAIN_CLASSES(CoppFamily, CoppTable, CoppConvertorBase, CoppConvertor);

class VELA_EXPORT CoppTable final : public PlainFamilyTable<CoppFamily> {
 public:
  VELA_REGISTERED(CoppFamily, CoppTable);
  using PlainFamilyTable::PlainFamilyTable;
  /// Hardware interface from which limiters have a scale factor; the profile's unless set. A new
  /// one writes the limiters again whose registers it changes; an equal one tells nobody.
  void scaleFactorVersionIs(VelaSwitch::ProfileHwApi version);
  VelaSwitch::ProfileHwApi scaleFactorVersion() const;  ///< What was set, or the profile's.
  /// Whether the profile's interface has come to that.
  bool scaleFactorSupported() const { return profile().hwApi() >= scaleFactorVersion(); }
  /// For those who want to hear of another version.
  Orb::Attribute<std::optional<VelaSwitch::ProfileHwApi>>& scaleFactorVersionAttribute() {
    return scaleFactorVersion_;
  }

 private:
  Orb::Attribute<std::optional<VelaSwitch::ProfileHwApi>> scaleFactorVersion_;
};

class VELA_EXPORT CoppConvertor final : public PlainFamilyLayerConvertor<CoppFamily> {
 public:
  VELA_REGISTERED(CoppFamily, CoppConvertor);
  /// Limiter tables of the ingress side, without the CPU's.
  U32 numCoppTables() const;
  using PlainFamilyLayerConvertor::hwTableEntryIs;
  /// Writes the limiter's registers, or with `present` false those of one without an entry.
  bool hwTableEntryIs(const CoppEntryKey& key, const CoppEntry& entry, bool present);
  void syncEntries(U32 table) override;  ///< Both it and the CPU's transmit table must be there.
};

/// The registers of the indexes before hardware interface 4.1. An index without a register, and one
/// that there is not, has an empty collection.
class VELA_EXPORT CoppHwTableRegisterMapping : public VelaSwitchApi::HwTableRegisterMapping {
 public:
  VELA_REGISTERED(CoppFamily, CoppHwTableRegisterMapping);
  /// Names by index; null for an index without a register.
  using Names = std::array<const char*, CoppFamily::lastIndex + 1>;

  CoppHwTableRegisterMapping(std::string prefix, std::string tableName);
  VelaSwitchApi::HwAddressColl getRegister(HwIndex index) const override;

 protected:
  CoppHwTableRegisterMapping(std::string prefix, std::string tableName, const Names& names)
      : HwTableRegisterMapping(std::move(tableName)), prefix_(std::move(prefix)), names_(names) {}

 private:
  std::string prefix_;
  const Names& names_;
};

VELA_FACTORY(CoppHwTableRegisterMapping, CoppHwTableRegisterMappingIs,
             (const std::string& prefix, const std::string& tableName));

/// The mapping from a later hardware interface on.
#define VELA_COPP_MAPPING(Class)                                      \
  class VELA_EXPORT Class final : public CoppHwTableRegisterMapping { \
   public:                                                            \
    VELA_REGISTERED(CoppFamily, Class);                               \
    Class(std::string prefix, std::string tableName);                 \
  };                                                                  \
  VELA_FACTORY(Class, Class##Is, (const std::string& prefix, const std::string& tableName))

VELA_COPP_MAPPING(CoppHwTableRegisterMappingHwApi41);
VELA_COPP_MAPPING(CoppHwTableRegisterMappingHwApi51);

}  // namespace VelaSwitchTable
