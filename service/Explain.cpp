#include "service/Explain.h"

namespace VelaService {

using VelaAgent::Json;
using VelaSwitch::LpmKey;

namespace {

void addLifeOf(Json& entry, const RouteService& routes, const RouteTimes& times) {
  const auto route = VelaAgent::fromJson<LpmKey>(entry["key"]);
  if (const auto since = times.of(route)) {
    entry["seconds"] = {{"desired", since->desired}, {"status", since->status}};
    entry["says"].push_back("it is desired for " + std::to_string(since->desired) +
                            " s, and has its status for " + std::to_string(since->status) + " s");
  }
  const char* why = routes.whyNotTold(route);
  if (!why) return;
  entry["notTold"] = why;
  if (entry["desired"] == true) return;
  // The tables do not know that it is.
  entry["desired"] = true;
  entry["causes"][0] = "notTold";
  entry["says"][0] = "a source wants " + entry["key"].dump() +
                     ", but the switch's tables were not told of it: " + why;
}

}  // namespace

void addLife(Json& reasons, const RouteService& routes, const RouteTimes& times) {
  if (reasons.value("table", "") == "Route") addLifeOf(reasons, routes, times);
  const auto better = reasons.find("better");
  if (better == reasons.end()) return;
  for (Json& each : *better) addLifeOf(each, routes, times);
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
