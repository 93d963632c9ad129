#include "service/Explain.h"

namespace VelaService {

using VelaAgent::Json;
using VelaSwitch::LpmKey;

namespace {

void addTimesOf(Json& entry, const RouteTimes& times) {
  const auto since = times.of(VelaAgent::fromJson<LpmKey>(entry["key"]));
  if (!since) return;
  entry["seconds"] = {{"desired", since->desired}, {"status", since->status}};
  entry["says"].push_back("it is desired for " + std::to_string(since->desired) +
                          " s, and has its status for " + std::to_string(since->status) + " s");
}

}  // namespace

void addTimes(Json& reasons, const RouteTimes& times) {
  if (reasons.value("table", "") == "Route") addTimesOf(reasons, times);
  const auto better = reasons.find("better");
  if (better == reasons.end()) return;
  for (Json& each : *better) addTimesOf(each, times);
}

LivePicture::LivePicture(VelaAgent::Agent& agent, VelaAgent::FitMeter& meter,
                         const Thresholds& thresholds)
    : picture_(agent, meter, true, VelaAgent::Picture::Audit::known), thresholds_(thresholds) {}

bool LivePicture::step() { return picture_.step(); }

Json LivePicture::take() {
  Json picture = picture_.take();
  for (Json& table : picture["tables"]) {
    if (!table.contains("capacity")) continue;
    const Marks& marks = thresholds_.marks(table["table"].get<std::string>());
    table["marks"] = {{"high", marks.high}, {"low", marks.low}};
  }
  return picture;
}

}  // namespace VelaService
