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
  Orb::Field<"major", U32> major;
  Orb::Field<"minor", U32> minor;
  auto operator<=>(const ProfileHwApi&) const = default;
};

/// Version of the layout of register rows.
struct RegisterFormatVersion {
  static constexpr const char* typeName = "VelaSwitch::RegisterFormatVersion";
  Orb::Field<"major", U32> major;
  Orb::Field<"minor", U32> minor;
  auto operator<=>(const RegisterFormatVersion&) const = default;
};

/// The ports that one ingress pipe serves, both ends included.
struct IngressPipeRange {
  static constexpr const char* typeName = "VelaSwitch::IngressPipeRange";
  Orb::Field<"pipe", U32> pipe;
  Orb::Field<"firstPort", U32> firstPort;
  Orb::Field<"lastPort", U32> lastPort;
  auto operator<=>(const IngressPipeRange&) const = default;
};

/// What tells one model of the switch from another.
struct ProfileFields {
  static constexpr const char* typeName = "VelaSwitch::ProfileInfo";
  Orb::Field<"name", std::string> name;
  Orb::Field<"hwApi", ProfileHwApi> hwApi;
  Orb::Field<"registerFormat", RegisterFormatVersion> registerFormat;
  Orb::Field<"ports", U32> ports;
  Orb::Field<"vrfs", U32> vrfs;
  Orb::Field<"pipelines", U32> pipelines;  ///< Ingress pipelines that tables are declared on.
  Orb::Field<"ingressPipes", std::vector<IngressPipeRange>> ingressPipes;
  Orb::Field<"pipesPerVlanTable", U32> pipesPerVlanTable{1u};
  Orb::Field<"pipesPerL2Table", U32> pipesPerL2Table{1u};
  Orb::Field<"cpuPipeline", bool> cpuPipeline;
  Orb::Field<"aclWideRows", bool> aclWideRows;  ///< ACL rows of five data words.
  Orb::Field<"ingressL2Processor", bool> ingressL2Processor;
  Orb::Field<"ingressRateLimiter", bool> ingressRateLimiter;
  Orb::Field<"mrouteWideFlags", bool> mrouteWideFlags;
  Orb::Field<"scaleFactorVersion", ProfileHwApi> scaleFactorVersion{ProfileHwApi{5u, 1u}};
};

/// First and last port of a table, both included.
struct PortRange {
  U32 first;
  U32 last;
};

/// A checked profile and the questions that tables ask it.
class VELA_EXPORT ProfileInfo : public Orb::PtrInterface {
 public:
  /// The largest switch: every port and pipe number still fits its type.
  static constexpr U32 maxPorts = 49;
  static constexpr U32 maxPipes = 13;

  /// Throws Orb::RangeException when a number is outside what any switch has, and when the ports of
  /// pipes or of the tables that serve them interleave.
  explicit ProfileInfo(ProfileFields fields);

  static constexpr const char* typeName = "VelaSwitch::ProfileInfo";
  static constexpr const char* sourceUnit = "VelaSwitch";
  const Orb::Type& fwkType() const override;

  const ProfileFields& fields() const { return fields_; }
  const std::string& name() const { return fields_.name(); }
  ProfileHwApi hwApi() const { return fields_.hwApi(); }
  RegisterFormatVersion registerFormat() const { return fields_.registerFormat(); }
  U32 ports() const { return fields_.ports(); }
  U32 vrfs() const { return fields_.vrfs(); }
  U32 pipelines() const { return fields_.pipelines(); }
  bool cpuPipeline() const { return fields_.cpuPipeline(); }

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
  static std::vector<Orb::PtrConst<ProfileInfo>> builtIns();

 private:
  U32 pipesPerTable(TableKind kind) const;

  ProfileFields fields_;
};

}  // namespace VelaSwitch
