#pragma once

#include "VelaSwitchApi/RowLayout.h"
#include "device/Memory.h"

/// How a switch lies in its memory. First an ImageHeader, then the tables one behind the other:
/// each an ImageTable, its rows' words, a byte per row that says whether the row was ever written,
/// and a byte per row for its hit bit. Numbers are the machine's own.
///
/// A table exists from when `used` is moved behind it, and a row is written as a whole through
/// `pending`, so that the image is sound at every moment.
namespace VelaDevice {

/// Ends in the version of the layout.
inline constexpr char imageMagic[16] = "vela-switch-2\n";
inline constexpr U32 imageMaxRows = 1u << 20;
inline constexpr U32 imageNameSize = 64;

struct ImageHeader {
  char magic[sizeof imageMagic];
  char model[imageNameSize];  ///< The profile's name; empty while none was said.
  U64 used;                   ///< Bytes up to the end of the last table.
  /// The row write under way.
  struct Pending {
    U32 state;  ///< 1 once the rest is whole, until the row has all of it.
    U32 words;
    U64 table;  ///< Where the ImageTable stands.
    U32 index;
    U32 data[VelaSwitchApi::maxRowWords];
  } pending;
};

struct ImageTable {
  char family[imageNameSize];
  char name[imageNameSize];
  U32 instance;
  U32 id;
  U32 lastIndex;
  U32 rowWords;  ///< Registers of a row; 0 until the first is written.

  std::size_t rows() const { return std::size_t{lastIndex} + 1; }
  /// Bytes from this table to the next.
  std::size_t size() const {
    const std::size_t bytes = sizeof(ImageTable) + rows() * (4 * VelaSwitchApi::maxRowWords + 2);
    return (bytes + 7) / 8 * 8;
  }
  U32* words(U32 index) {
    return reinterpret_cast<U32*>(this + 1) + std::size_t{index} * VelaSwitchApi::maxRowWords;
  }
  U8* present() { return reinterpret_cast<U8*>(words(lastIndex + 1)); }
  U8* hit() { return present() + rows(); }
};

}  // namespace VelaDevice
