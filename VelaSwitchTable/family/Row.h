#pragma once

#include "VelaSwitchApi/FamilyChecks.h"

/// The rows of families: see RowFields.h. A row field that has the name of a field of the key or of
/// the result holds it. The rest is packed and unpacked by the family's own functions. Fields of
/// the result that no field of the row has the name of are listed, lest one is forgotten, and so is
/// one that hardware does not have:
///
///   static constexpr std::array handPacked{"proto"};
///   static constexpr std::string_view notInHardware = "lagGroupId";
namespace VelaSwitchTable {

using VelaSwitchApi::announced;
using VelaSwitchApi::fieldNumber;
using VelaSwitchApi::findField;
using VelaSwitchApi::fromRowBits;
using VelaSwitchApi::hasField;
using VelaSwitchApi::RowField;
using VelaSwitchApi::RowLayout;
using VelaSwitchApi::rowLayout;
using VelaSwitchApi::RowReader;
using VelaSwitchApi::RowReaderOf;
using VelaSwitchApi::RowShape;
using VelaSwitchApi::rowShape;
using VelaSwitchApi::RowWriter;
using VelaSwitchApi::RowWriterOf;

}  // namespace VelaSwitchTable
