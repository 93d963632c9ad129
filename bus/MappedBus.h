#pragma once

#include "VelaSwitchApi/RegisterBus.h"
#include "bus/RegisterMap.h"

namespace VelaBus {

/// A switch whose registers lie in memory: a file or device node that is mapped, as those of UIO
/// and the resource files of PCI are.
///
/// Values are stored as 32-bit words in the machine's own byte order, one behind the other in the
/// order given. How rows are committed and read back, the register map says. Each wait is bounded;
/// what is not done by then has failed. Registers whose hardware still owes an answer are not
/// touched until it came: it would be taken for that of the next question.
///
/// It belongs to one thread.
class VELA_EXPORT MappedBus final : public VelaSwitchApi::RegisterBus {
 public:
  /// What is mapped.
  struct File {
    std::string path;  ///< Opened for reading and writing.
    U64 offset = 0;    ///< Where the registers begin, in bytes: a multiple of the page size.
    U64 size = 0;      ///< Bytes from there on; 0 for all that the file has, which device nodes do
                       ///< not tell.
  };
  /// Why accesses failed, since the bus was made.
  struct Errors {
    U64 timeouts = 0;  ///< Waits that came to their limit, also those for an answer still owed.
    U64 refusals = 0;  ///< Hardware said that it could not do it.
    U64 unmapped = 0;  ///< The map has not what was needed; RegisterMap::faults() tells before.
  };

  /// Throws MapException when the file cannot be mapped or registers lie beyond it.
  MappedBus(RegisterMap map, const File& file);
  ~MappedBus() override;
  MappedBus(const MappedBus&) = delete;
  MappedBus& operator=(const MappedBus&) = delete;

  const Errors& errors() const { return errors_; }  ///< Counted since the bus was made.

  /// Throws MapException for a path that the map does not have.
  RegisterHandle registerIs(std::string_view path) override;
  /// Throws MapException for a table that the map does not have.
  TableHandle tableIs(const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) override;
  /// False when hardware refused it or took too long.
  bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) override;
  bool gainsByRuns() const override { return false; }
  /// Failed when hardware refused it or took too long.
  Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) override;
  /// When hardware answers too late its answer is kept for the next call, so that no hit is lost.
  bool hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) override;

 private:
  static constexpr U64 nowhere = ~U64{0};

  struct HitBlock {
    TableHandle table;
    HwIndex first;
    auto operator<=>(const HitBlock&) const = default;
  };
  /// Registers that work together.
  struct Folder {
    std::vector<U64> fields;           ///< Offsets by number of the map's fields, or `nowhere`.
    const Poll* owed = nullptr;        ///< An answer that did not come in time.
    std::optional<HitBlock> hitBlock;  ///< It is that of a read of these hits,
    std::vector<RegisterHandle> hitRegisters;  ///< to these registers.
  };
  struct Register {
    U64 offset;
    U32 folder;
  };
  struct Table {
    const TableProtocol* protocol;
    HwIndex lastIndex;
  };

  U32 folderIs(std::string_view path);
  Folder& folderOf(RegisterHandle reg) { return folders_[registers_[reg].folder]; }
  volatile U32* at(U64 offset) const;
  void store(U64 offset, U32 value) { __atomic_store_n(at(offset), value, __ATOMIC_RELEASE); }
  U32 load(U64 offset) const { return __atomic_load_n(at(offset), __ATOMIC_ACQUIRE); }
  std::optional<U32> wait(Folder& folder, const Poll& poll);
  bool tell(const Folder& folder, const IndexWord& word, HwIndex index);
  std::optional<U32> ask(Folder& folder, const ReadProtocol& protocol, HwIndex index);
  bool settle(Folder& folder);

  const RegisterMap map_;
  U8* bytes_ = nullptr;
  std::size_t size_ = 0;
  std::map<std::string, RegisterHandle, std::less<>> registerHandles_;
  std::vector<Register> registers_;
  std::map<std::string, U32, std::less<>> folderNumbers_;
  std::vector<Folder> folders_;
  std::map<std::string, TableHandle, std::less<>> tableHandles_;
  std::vector<Table> tables_;
  std::map<HitBlock, std::vector<U32>> lateHits_;  ///< What answers that came too late said.
  Errors errors_;
};

}  // namespace VelaBus
