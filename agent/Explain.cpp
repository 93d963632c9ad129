#include "agent/Explain.h"

#include <algorithm>

namespace VelaAgent {

using VelaDevice::LookupStep;
using VelaDevice::SimulatedSwitch;

std::string fieldText(RowImage image, const VelaSwitchApi::RowField& field) {
  constexpr U32 part = 32;
  std::string text;
  for (U32 end = field.width; end > 0;) {
    const U32 begin = (end - 1) / part * part;
    const U64 bits = bitStreamGet(image.data(), field.first + begin, field.first + end - 1);
    text += text.empty() ? hexText(bits, 0) : hexText(bits, 8).substr(2);
    end = begin;
  }
  return text;
}

std::optional<RowImage> heldImage(const SimulatedSwitch& chip,
                                  const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index) {
  const auto& identity = hwTable.descriptor().identity;
  const auto* memory = chip.find(identity.family, identity.instance, identity.id);
  const U32* words = memory ? memory->row(index) : nullptr;
  if (!words) return std::nullopt;
  RowImage image{};
  for (const auto& mapped : hwTable.mapped(index)) image[mapped.word] = *words++;
  return image;
}

std::vector<VelaSwitchApi::RowField> heldFields(const HwTableAdapter& table,
                                                VelaSwitchApi::HwTableId id, HwIndex index) {
  const auto& mapped = table.convertor().hwTable(id)->mapped(index);
  std::vector<VelaSwitchApi::RowField> fields = table.convertor().rowLayout(id, index).fields();
  std::erase_if(fields, [&](const auto& field) {
    return field.width == 0 || std::none_of(mapped.begin(), mapped.end(), [&](const auto& each) {
             return each.word == field.first / 32;
           });
  });
  return fields;
}

bool saysSomething(const HwTableAdapter& table, const VelaSwitchApi::HwTableConfig& hwTable,
                   HwIndex index, const U32* image) {
  const RowImage zeros{};
  RowImage absent{};
  table.convertor().expectedImage(hwTable.descriptor().identity.id, index, absent.data());
  return !hwTable.same(index, image, zeros.data()) && !hwTable.same(index, image, absent.data());
}

Json describeRow(const SimulatedSwitch& chip, const HwTableAdapter& table,
                 VelaSwitchApi::HwTableId id, HwIndex index) {
  const auto& hwTable = *table.convertor().hwTable(id);
  const auto image = heldImage(chip, hwTable, index);
  if (!image) return nullptr;
  Json row = {{"table", table.name()},
              {"instance", table.instance()},
              {"hwTable", hwTable.descriptor().identity.name},
              {"index", index}};
  if (const auto location = table.location(index)) {
    row["way"] = location->way;
    row["row"] = location->row;
  }
  Json& fields = row["fields"] = Json::object();
  for (const auto& field : heldFields(table, id, index)) {
    fields[field.name] = fieldText(*image, field);
  }
  return row;
}

Json heldRegisters(const Agent& agent, const VelaSwitchApi::HwTableConfig& hwTable, HwIndex index) {
  Json registers = Json::array();
  const auto image = heldImage(agent.chip(), hwTable, index);
  if (!image) return registers;
  for (const auto& mapped : hwTable.mapped(index)) {
    registers.push_back({agent.recorder().path(mapped.reg), hexText((*image)[mapped.word], 8)});
  }
  return registers;
}

std::vector<Json> announcedAt(const Agent& agent, const TableAdapter& table,
                              const Competitor& competitor) {
  const HwTableAdapter& owner = agent.adapterOf(*competitor.table);
  Json key = owner.keyAt(competitor.index);
  if (table.fills(*competitor.table)) {
    std::vector<Json> routes = agent.routesAt(owner, key);
    if (!routes.empty()) return routes;
  }
  if (&owner == &table) return {std::move(key)};
  return {{{"table", owner.name()}, {"key", std::move(key)}}};
}

const HwTableAdapter* askedTable(const Agent& agent, const LookupStep& step) {
  if (!step.table) return nullptr;
  for (const auto& table : agent.tables()) {
    if (table->name() != step.family) continue;
    for (const auto& [id, hwTable] : table->convertor().hwTables()) {
      if (hwTable->descriptor().identity.name == step.table->identity.name) return table.get();
    }
  }
  return nullptr;
}

Json describeSteps(const Agent& agent, const VelaDevice::DataPath::Steps& steps) {
  Json asked = Json::array();
  for (const LookupStep& step : steps) {
    Json line = {{"table", std::string(step.family)}};
    const HwTableAdapter* table = askedTable(agent, step);
    if (table && step.index) {
      line = describeRow(agent.chip(), *table, step.table->identity.id, *step.index);
    }
    if (step.refusal) line["why"] = step.refusal;
    asked.push_back(std::move(line));
  }
  return asked;
}

Json endOf(const VelaDevice::DataPath::Steps& steps) {
  if (steps.size() < 2 || !steps.back().refusal) return nullptr;
  return {{"table", std::string(steps.back().family)}, {"why", steps.back().refusal}};
}

}  // namespace VelaAgent
