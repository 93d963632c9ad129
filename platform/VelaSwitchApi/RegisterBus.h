#pragma once

#include <span>
#include <string>
#include <string_view>

#include "Orb/Types.h"

namespace VelaSwitchApi {

/// Number of a hardware table within its software table.
using HwTableId = U32;
/// Number of a row within its hardware table.
using HwIndex = U32;

/// Which hardware table is meant. Several tables share one set of data and control registers, and
/// the control word does not always tell them apart, so the table is named beside the registers.
struct HwTableIdentity {
  std::string family;  ///< The family's name, such as "AclHash".
  U32 instance;        ///< Which of the family's software tables declared it.
  HwTableId id;        ///< Number of the hardware table in that one.
  std::string name;    ///< The framework's name, unique in a switch.
};

/// The only door to hardware. A simulated switch stands behind it, or a driver for a real bus.
///
/// Names are resolved once, when tables are made; what runs per row are handles. Order of calls:
/// (registerIs | tableIs)* then any of rowIs, rowsAre, row, rows, hitBits. Calls are never nested
/// and all come from one thread. Nothing is retained of the arguments. What fails is returned,
/// never thrown.
class VELA_EXPORT RegisterBus {
 public:
  using RegisterHandle = U32;  ///< The bus chooses the numbers.
  using TableHandle = U32;     ///< Likewise.

  /// One register of a row, and its 32 bits.
  struct RegisterValue {
    RegisterHandle reg;  ///< As registerIs() gave it.
    U32 value;           ///< Written, or filled in by a read.
  };
  /// How a read of a row went.
  enum class Read : U8 {
    held,    ///< The row was written once; the values are what it holds.
    absent,  ///< The row was never written.
    failed,  ///< Nothing is known of the row.
  };
  /// One row of several to be written.
  struct RowWrite {
    TableHandle table;                      ///< As tableIs() gave it.
    HwIndex index;                          ///< 0 to the table's last row.
    std::span<const RegisterValue> writes;  ///< In this order; valid during the call.
    U32 entry = 0;                          ///< Which entry of a batch of entries it is for.
    bool written = false;                   ///< How it went; false before.
  };
  /// One row of several to be read.
  struct RowRead {
    TableHandle table;                ///< As tableIs() gave it.
    HwIndex index;                    ///< 0 to the table's last row.
    std::span<RegisterValue> values;  ///< To be filled in; valid during the call.
    Read read = Read::failed;         ///< How it went; failed before.
  };

  virtual ~RegisterBus() = default;

  /// The handle of the register at the path, the same for the same path.
  virtual RegisterHandle registerIs(std::string_view path) = 0;
  /// The handle of a table with rows 0 to `lastIndex`; the same for the same name.
  virtual TableHandle tableIs(const HwTableIdentity& identity, HwIndex lastIndex) = 0;

  /// Writes one row: these values to these registers, in this order. Hardware takes the row over
  /// with the last of them. False when a write failed; what the row then holds is unknown.
  virtual bool rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) = 0;
  /// Reads one row back: fills in the values of the registers given.
  virtual Read row(TableHandle table, HwIndex index, std::span<RegisterValue> values) = 0;
  /// Reads and clears the hit bits of the rows from `first` on, as many as the registers' values
  /// have bits. False when the read failed; the bits then stay set.
  virtual bool hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) = 0;
  /// Writes rows as rowIs() does, in this order, and says of each how it went. One that fails keeps
  /// none of the others back. A bus that is reached by messages can take them in one.
  virtual void rowsAre(std::span<RowWrite> rows) {
    for (RowWrite& row : rows) row.written = rowIs(row.table, row.index, row.writes);
  }
  /// Reads rows as row() does, in this order, and says of each how it went. One that fails ends it:
  /// those behind it stay as they are, and are asked for again.
  virtual void rows(std::span<RowRead> rows) {
    for (RowRead& each : rows) {
      each.read = row(each.table, each.index, each.values);
      if (each.read == Read::failed) return;
    }
  }
  /// Whether rowsAre() takes less than a rowIs() for each row. Where it does not, rows of a batch
  /// are written as they come, which spares gathering them.
  virtual bool gainsByRuns() const { return true; }
};

}  // namespace VelaSwitchApi
