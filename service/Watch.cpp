#include "service/Watch.h"

#include "agent/JsonText.h"
#include "agent/TableAdapter.h"

namespace VelaService {

using VelaAgent::AnyRef;
using VelaAgent::EntryProgrammedStatus;
using VelaAgent::Quoted;
using VelaAgent::TableAdapter;

Watch::Watch(VelaAgent::Agent& agent, RouteService& routes) : agent_(agent), routes_(routes) {
  const TableAdapter& whole = agent_.table("Route", 0);
  routes_.statusListenerIs([&](const VelaSwitch::LpmKey& key, EntryProgrammedStatus status) {
    tellStatus(whole, key, status);
  });
  for (const auto& adapter : agent_.tables()) {
    // Routes are told whole.
    if (whole.fills(adapter->table())) continue;
    adapter->typed().statusListenerIs([this, &table = *adapter](AnyRef key) {
      if (!polling_) tellStatus(table, key, table.typed().status(key));
    });
  }
}

Watch::~Watch() {
  routes_.statusListenerIs(nullptr);
  for (const auto& adapter : agent_.tables()) adapter->typed().statusListenerIs(nullptr);
}

bool Watch::begin(std::string_view event) {
  ++sequence_;
  if (listeners_.empty()) return false;
  line_.clear();
  VelaAgent::append(line_, R"({"sequence":)", sequence_, R"(,"event":)", Quoted{event});
  return true;
}

void Watch::end() {
  for (WatchListener* listener : listeners_) listener->told(sequence_, line_);
}

void Watch::tellStatus(const TableAdapter& table, AnyRef key, EntryProgrammedStatus status) {
  if (!begin("status")) return;
  VelaAgent::append(line_, R"(,"table":)", Quoted{table.name()}, R"(,"instance":)",
                    table.instance(), R"(,"key":)");
  table.appendKey(line_, key);
  VelaAgent::append(line_, R"(,"status":")", VelaSwitchApi::nameOf(status), "\"}");
  end();
}

void Watch::tell(std::string_view event, const VelaAgent::Json& members) {
  if (!begin(event)) return;
  VelaAgent::append(line_, ",", std::string_view(members.dump()).substr(1));
  end();
}

void WatchQueue::told(U64, std::string_view line) {
  if (overrun_) return;
  if (lines_.size() + line.size() >= most_) {
    overrun_ = true;
    lines_ = {};
    return;
  }
  (lines_ += line) += '\n';
}

}  // namespace VelaService
