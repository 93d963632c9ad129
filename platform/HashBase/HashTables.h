#pragma once

#include "VelaSwitchApi/HashTable.h"
#include "VelaSwitchApi/TableConstants.h"

/// What a hash family says of its tables, and the hardware tables that follow from it.
namespace VelaSwitchTable {

/// Which pipelines hold a family's rows.
enum class HashPlacement : U8 {
  everyPipeline,  ///< The same rows in every ingress pipeline's processor.
  ownPipeline,    ///< One table per pipeline; each serves its own.
  once,           ///< One table in the whole switch.
};

/// Of a family whose hardware does not tell hits.
inline constexpr U32 noHitTable = 0xffffffff;

struct HashFamilyTraits {
  /// The number of the family's first physical table. It must be no other table's.
  TableIdentity table;
  HashPlacement placement{};
  const char* prefix = nullptr;  ///< Register prefix with a place for the processor's number.
  /// Words of the row image: the data words, the control word behind them, and words that have no
  /// register, in which the table keeps what hardware does not.
  U8 rowWords = 0;
  U8 dataWords = 4;  ///< Unless the family says dataWords(profile).
  U8 hashBits = 0;   ///< A way has 2 to the power of this rows.
  U8 ways = 0;
  /// Whether keys are hashed with the most significant bit first.
  bool leftAligned = false;
  U8 keyStart = 0;  ///< Zero bits in front of the hashed key.
  /// Whether rows leave out as many of the key's lowest bits as the hash has: row, way and the
  /// other bits say what they are.
  bool rowImpliesKey = false;
  bool hitBits = false;  ///< Whether the software table declares hit bits. Hits may come without.
  /// Where the hit bits lie among those of the processor's tables.
  U32 hitTableOffset = noHitTable;
  /// The control word of the image, or -1. Rows that differ in it alone are not written again.
  int staticWord = -1;
  /// Words whose bits, the parity bit among them, are even in number; 0 when rows have no parity.
  U8 parityWords = 0;
  U8 sharing = 1;  ///< So many software tables have one physical table.
  U8 stride = 1;   ///< From one physical table's number to the next one's; 0: there is one.
  const char* decodedText = "Decoded entry is ";  ///< Begins the trace of a decoded row.
  bool tracesKeys = false;                        ///< Whether each field of a hashed key is traced.
  bool tracesItems = false;  ///< Whether entries are traced with their results.

  constexpr U32 tableId(U8 tableIdx) const { return table.number + tableIdx / sharing * stride; }
  /// The number that the rows go by; tables that share them go by that of the first.
  constexpr U32 instance(U8 tableIdx) const { return tableIdx / sharing * sharing; }
};

/// Declares the hardware tables of a hash table's rows and of their hit bits.
class VELA_EXPORT HashTableConvertor : public VelaSwitchApi::PhysicalHashTableConvertor {
 public:
  void doCreateHwTables(VelaSwitchApi::TableState state) override;
  void handleInitialized() override;

 protected:
  explicit HashTableConvertor(const HashFamilyTraits& traits) : traits_(traits) {}

  /// The registers of a row in a processor.
  virtual VelaSwitchApi::HwAddressColl registers(U32 processor) const = 0;
  /// How the hit bits of so many rows are read there, so many at a time.
  virtual Orb::PtrConst<VelaSwitchApi::HitBitReadInfoWrapper> hitBits(U32 processor, U32 rows,
                                                                      U32 bitsPerRead) const = 0;

  /// The table that the rows belong to.
  virtual TableIdentity table() const { return traits_.table; }
  /// Where the hit bits lie, in a family that has them.
  virtual U32 hitTableOffset() const { return traits_.hitTableOffset; }

 private:
  void createHwTable(VelaSwitchApi::HwTableId id, U32 processor, VelaSwitchApi::TableState state);
  void makeHwTable(VelaSwitchApi::HwTableId id, U32 processor, VelaSwitchApi::TableState state);

  const HashFamilyTraits& traits_;
};

}  // namespace VelaSwitchTable
