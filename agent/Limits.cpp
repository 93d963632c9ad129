#include "agent/Limits.h"

#include <algorithm>

#include "agent/Input.h"

namespace VelaAgent {
namespace {

[[noreturn]] void refuse(std::string_view field, U64 count, const char* things, U64 number) {
  throw InputException(
      Orb::text(field, " ", number, ": this switch has ", things, " 0 to ", count - 1));
}

}  // namespace

void refuseBeyond(std::string_view field, U64 number, U64 count, const char* things) {
  if (number >= count) refuse(field, count, things, number);
}

void refuseAbsentPort(std::string_view field, U64 port, const VelaSwitch::ProfileInfo& profile) {
  refuseBeyond(field, port, profile.ports(), "ports");
}

void refuseAbsentPipe(std::string_view field, U64 pipe, const VelaSwitch::ProfileInfo& profile) {
  const auto& pipes = profile.ingressPipeRangeInfos();
  const bool known = std::any_of(pipes.begin(), pipes.end(),
                                 [&](const auto& each) { return each.pipe() == pipe; });
  if (!known) refuse(field, pipes.size(), "ingress pipes", pipe);
}

void refuseAbsentVrf(std::string_view field, U64 vrf, const VelaSwitch::ProfileInfo& profile) {
  refuseBeyond(field, vrf, profile.vrfs(), "VRFs");
}

namespace {

using Orb::AnyRef;
using Orb::FieldShape;
using Orb::Kind;
using Orb::Shape;

bool isNumber(Kind kind) {
  return kind == Kind::flag || kind == Kind::number || kind == Kind::mask;
}

template <class Bits>
void cutNumber(std::string_view name, AnyRef value, const Bits& bitsOf,
               std::vector<std::string>& cuts) {
  const Shape& shape = *value.shape;
  const U64 number = shape.number(value.value);
  // Most are, and need no look at the row.
  if (number == 0) return;
  const unsigned bits = bitsOf();
  if (bits >= 64) return;
  const U64 cut = number & ((U64{1} << bits) - 1);
  if (cut == number) return;
  // A number that stands for none is not cut: hardware has it in as many bits as there are.
  if (shape.rangeText && number == shape.none) return;
  // Masks are of ports, and read as hexadecimal.
  const bool mask = shape.kind == Kind::mask;
  const auto text = [&](U64 n) { return mask ? hexText(n, 0) : std::to_string(n); };
  cuts.push_back(Orb::text(name, " ", text(number), " to ", text(cut)));
}

void cutField(const FieldShape& field, const void* value, const FieldBits& bitsOf,
              std::vector<std::string>& cuts) {
  const Shape& shape = *field.shape;
  const auto bits = [&] {
    return std::min(field.usedBits, bitsOf(field.name, shape.kind == Kind::mask));
  };
  if (shape.kind == Kind::record) {
    cutFields({shape, value}, bitsOf, cuts);
  } else if (shape.kind == Kind::array) {
    for (std::size_t i = 0; i < shape.count(value); ++i) {
      cutFields({*shape.element, shape.at(value, i)}, bitsOf, cuts);
    }
  } else if (shape.kind == Kind::map) {
    shape.forEach(value, [&](U64 pipe, const void* each) {
      cutNumber(Orb::text(field.name, "[", pipe, "]"), {*shape.element, each}, bits, cuts);
    });
  } else if (isNumber(shape.kind)) {
    cutNumber(field.name, {shape, value}, bits, cuts);
  }
}

}  // namespace

void cutFields(AnyRef value, const FieldBits& bitsOf, std::vector<std::string>& cuts) {
  for (const FieldShape& field : value.shape->fields) {
    cutField(field, field.in(value.value), bitsOf, cuts);
  }
}

}  // namespace VelaAgent
