#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/Ptr.h"
#include "Orb/Value.h"

namespace VelaSwitch {

/// Kinds of tables that are laid out over the pipes, each in its own way.
enum class TableKind : U8 { vlan = 4, layer2 = 5 };

/// Version of the hardware interface.
struct ProfileHwApi {
  static constexpr const char* typeName = "VelaSwitch::ProfileHwApi";
  Orb::Field<"major", U32> major;  ///< 5 of "5.1".
  Orb::Field<"minor", U32> minor;  ///< 1 of "5.1".
  auto operator<=>(const ProfileHwApi&) const = default;
};

/// Version of the layout of register rows.
struct RegisterFormatVersion {
  static constexpr const char* typeName = "VelaSwitch::RegisterFormatVersion";
  Orb::Field<"major", U32> major;  ///< 5 of "5.1".
  Orb::Field<"minor", U32> minor;  ///< 1 of "5.1".
  auto operator<=>(const RegisterFormatVersion&) const = default;
};

/// The ports that one ingress pipe serves, both ends included.
struct IngressPipeRange {
  static constexpr const char* typeName = "VelaSwitch::IngressPipeRange";
  Orb::Field<"pipe", U32> pipe;            ///< 0 to 12.
  Orb::Field<"firstPort", U32> firstPort;  ///< Ports of pipes do not interleave.
  Orb::Field<"lastPort", U32> lastPort;    ///< Below the profile's number of ports.
  auto operator<=>(const IngressPipeRange&) const = default;
};

/// What tells one model of the switch from another.
struct ProfileFields {
  static constexpr const char* typeName = "VelaSwitch::ProfileInfo";
  /// Such as "vela-48-5.1"; a switch of another name is another model.
  Orb::Field<"name", std::string> name;
  /// Decides on registers, and on what rows hold of routes.
  Orb::Field<"hwApi", ProfileHwApi> hwApi;
  /// Its major number decides on the VLAN rows.
  Orb::Field<"registerFormat", RegisterFormatVersion> registerFormat;
  Orb::Field<"ports", U32> ports;          ///< 1 to maxPorts, without the CPU port.
  Orb::Field<"vrfs", U32> vrfs;            ///< 1 to 256; route tables want 4, 8 or 32.
  Orb::Field<"pipelines", U32> pipelines;  ///< Ingress pipelines that tables are declared on.
  /// The ports of each pipe.
  Orb::Field<"ingressPipes", std::vector<IngressPipeRange>> ingressPipes;
  Orb::Field<"pipesPerVlanTable", U32> pipesPerVlanTable{1u};  ///< Pipes that share a VLAN table.
  /// Pipes that share a layer-2 processor.
  Orb::Field<"pipesPerL2Table", U32> pipesPerL2Table{1u};
  /// VLAN and layer-2 tables have one more for the CPU.
  Orb::Field<"cpuPipeline", bool> cpuPipeline;
  Orb::Field<"aclWideRows", bool> aclWideRows;  ///< ACL rows of five data words.
  /// Layer-2 rows lie under ingress/processor_l2.
  Orb::Field<"ingressL2Processor", bool> ingressL2Processor;
  /// Limiters lie under ingress/rate_limiter.
  Orb::Field<"ingressRateLimiter", bool> ingressRateLimiter;
  /// (S,G) rows have one bit more, see SGFamily.
  Orb::Field<"mrouteWideFlags", bool> mrouteWideFlags;
  /// Hardware interface from which limiters have a scale factor.
  Orb::Field<"scaleFactorVersion", ProfileHwApi> scaleFactorVersion{ProfileHwApi{5u, 1u}};
};

/// First and last port of a table, both included.
struct PortRange {
  U32 first;  ///< Counted from 0.
  U32 last;   ///< Included.
};

/// A checked profile and the questions that tables ask it.
class VELA_EXPORT ProfileInfo : public Orb::PtrInterface {
 public:
  /// The largest switch: every port and pipe number still fits its type.
  static constexpr U32 maxPorts = 49;
  static constexpr U32 maxPipes = 13;  ///< See maxPorts.

  /// Throws Orb::RangeException when a number is outside what any switch has, and when the ports of
  /// pipes or of the tables that serve them interleave.
  explicit ProfileInfo(ProfileFields fields);

  static constexpr const char* typeName = "VelaSwitch::ProfileInfo";
  static constexpr const char* sourceUnit = "VelaSwitch";
  const Orb::Type& fwkType() const override;

  /// All of them, for questions that have no name here.
  const ProfileFields& fields() const { return fields_; }
  const std::string& name() const { return fields_.name(); }  ///< The model's.
  ProfileHwApi hwApi() const { return fields_.hwApi(); }      ///< See ProfileFields.
  /// See ProfileFields.
  RegisterFormatVersion registerFormat() const { return fields_.registerFormat(); }
  U32 ports() const { return fields_.ports(); }  ///< Without the CPU port.
  U32 vrfs() const { return fields_.vrfs(); }    ///< See ProfileFields.
  /// Ingress pipelines; that of the CPU is not counted.
  U32 pipelines() const { return fields_.pipelines(); }
  bool cpuPipeline() const { return fields_.cpuPipeline(); }  ///< See ProfileFields.

  /// Index of the highest set bit of the VRF count.
  U32 numVrfBits() const;
  /// The pipes and their ports; empty on a profile without ingress pipes.
  const std::vector<IngressPipeRange>& ingressPipeRangeInfos() const {
    return fields_.ingressPipes();
  }

  /// Number of tables of the kind, without the CPU pipeline's.
  U32 numTables(TableKind kind) const;
  /// Number of ingress pipes that have a table of the kind.
  U32 numPipelinesOfTable(TableKind kind) const;
  /// The table of the kind that serves the pipe.
  U32 pipeToTableId(U32 pipe, TableKind kind) const;
  /// The pipe that serves the port; 0 when none does.
  U32 portToIngressPipeId(U32 port) const;

  /// The built-in profile of the name, or null.
  static Orb::PtrConst<ProfileInfo> builtIn(std::string_view name);
  static std::vector<Orb::PtrConst<ProfileInfo>> builtIns();  ///< All built-in profiles.

 private:
  U32 pipesPerTable(TableKind kind) const;

  ProfileFields fields_;
};

}  // namespace VelaSwitch
