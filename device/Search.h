#pragma once

#include <functional>

#include "device/Bits.h"
#include "device/DataPath.h"

namespace VelaDevice {

/// The row that holds a key, read as far as the key goes.
struct FoundRow {
  DataPath::Table* table;
  U32 index;
  Bits rest;
  bool onlyLooks;

  void hit() const {
    if (!onlyLooks) table->hit(index) = 1;
  }
};

/// How a table is hashed: rows of a way as a power of two, and ways.
struct HashUnit {
  U32 width;
  U32 ways;
};

/// Whether the row is the one that is searched; takes the key off the row if so.
using RowMatch = std::function<bool(Bits& row)>;

/// Asks the row of each way that the key can lie in; the first one that matches holds it.
std::optional<FoundRow> search(DataPath& path, std::string_view family, DataPath::Table* table,
                               HashUnit unit, const Bits& key, const RowMatch& match);

}  // namespace VelaDevice
