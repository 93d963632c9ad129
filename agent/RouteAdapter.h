#pragma once

#include "agent/RouteEntries.h"
#include "agent/TableAdapter.h"

namespace VelaAgent {

/// Whole routes behind JSON.
class RouteAdapter final : public TableAdapter {
 public:
  explicit RouteAdapter(std::unique_ptr<RouteEntries> routes) : TableAdapter(std::move(routes)) {}

  void explain(VelaDevice::DataPath& dataPath, const Json& key, const Json& hit,
               Json& explanation) const override;
  const TableEntries* levelOf(AnyRef key) const override;
  std::string_view neededKeyField() const override { return "prefix"; }

 private:
  void checkResultForm(const Json& result) const override;
  const Lookup& lookupFor(const Json& asked) const override;
};

}  // namespace VelaAgent
