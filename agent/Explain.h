#pragma once

#include "agent/Agent.h"
#include "agent/TableAdapter.h"

/// What rows hold and why lookups end where they do, field by field.
namespace VelaAgent {

using RowImage = std::array<U32, VelaSwitchApi::maxRowWords>;
/// A field's value in the image of a row, in hexadecimal.
std::string fieldText(RowImage image, const VelaSwitchApi::RowField& field);

/// What the switch holds in a row, or nothing when it was never written.
std::optional<RowImage> heldImage(const VelaDevice::SimulatedSwitch& chip,
                                  const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index);

/// The fields of a row that hardware holds: those of words without a register are software's own.
std::vector<VelaSwitchApi::RowField> heldFields(const HwTableAdapter& table,
                                                VelaSwitchApi::HwTableId id, HwIndex index);

/// Whether an image of the row holds neither nothing nor what the table writes where there is no
/// entry.
bool saysSomething(const HwTableAdapter& table, const VelaSwitchApi::HwTableConfig& hwTable,
                   HwIndex index, const U32* image);

/// A row as the switch holds it: its table, its place and its fields by name. Null when it was
/// never written.
Json describeRow(const VelaDevice::SimulatedSwitch& chip, const HwTableAdapter& table,
                 VelaSwitchApi::HwTableId id, HwIndex index);

/// The registers of a row with what the switch holds in them; empty when it was never written.
Json heldRegisters(const Agent& agent, const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index);

/// What stands in the row of a competitor of the table's entry, as it was announced: several routes
/// may share one. What another table announced says whose it is.
std::vector<Json> announcedAt(const Agent& agent, const TableAdapter& table,
                              const Competitor& competitor);

/// The table that a lookup asked, as it was asked: several may share its rows. Null when there is
/// none.
const HwTableAdapter* askedTable(const Agent& agent, const VelaDevice::LookupStep& step);

/// The tables that a lookup asked, in order: the row that answered, or why none did.
Json describeSteps(const Agent& agent, const VelaDevice::DataPath::Steps& steps);

/// Where a lookup through several tables ended, and why; null when it came to its end, or asked one
/// table alone.
Json endOf(const VelaDevice::DataPath::Steps& steps);

}  // namespace VelaAgent
