#include "Orb/Type.h"

namespace Orb {
namespace {

std::vector<const Type*>& registry() {
  static std::vector<const Type*> types;
  return types;
}

}  // namespace

Type::Type(const char* name, const char* sourceUnit) : name_(name), sourceUnit_(sourceUnit) {
  registry().push_back(this);
}

const Type* Type::find(std::string_view name) {
  for (const Type* type : registry()) {
    if (type->name() == name) return type;
  }
  return nullptr;
}

const std::vector<const Type*>& Type::all() { return registry(); }

}  // namespace Orb
