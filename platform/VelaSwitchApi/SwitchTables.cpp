#include "VelaSwitchApi/SwitchTables.h"

namespace VelaSwitchApi {

void SwitchTables::make() {
  for (const auto& table : tables_) table->doSetProfileConvertor(types_);
  for (const auto& table : tables_) table->doCreateHwTable();
}

void SwitchTables::rebuild() {
  for (const auto& table : tables_) table->syncEntries();
}

void SwitchTables::start(bool overwrite) {
  if (overwrite) {
    for (const auto& table : tables_) table->initHwEntries(true);
  }
  for (const auto& table : tables_) {
    table->initializedIs(true);
    table->doInitComplete();
  }
}

void SwitchTables::complete() {
  for (const auto& table : tables_) table->initHwEntries(false);
}

bool SwitchTables::pollHitBits(Orb::Seconds now) {
  bool good = true;
  for (const auto& table : tables_) good = table->profileConvertorPtr()->pollHitBits(now) && good;
  return good;
}

}  // namespace VelaSwitchApi
