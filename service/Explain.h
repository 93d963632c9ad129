#pragma once

#include "agent/Picture.h"
#include "agent/Why.h"
#include "service/RouteTimes.h"
#include "service/Upkeep.h"

/// What operators are told of a running switch beyond what its tables and registers say.
namespace VelaService {

/// Adds to what VelaAgent::Reasons say of routes since when they are desired and as they are.
void addTimes(VelaAgent::Json& reasons, const RouteTimes& times);

/// A picture of a running switch, made part by part, with the marks of its loads.
class LivePicture {
 public:
  /// All must outlive it.
  LivePicture(VelaAgent::Agent& agent, VelaAgent::FitMeter& meter, const Thresholds& thresholds);

  /// Makes a part; returns whether there are more.
  bool step();
  /// All of it, when it is made.
  VelaAgent::Json take();

 private:
  VelaAgent::Picture picture_;
  const Thresholds& thresholds_;
};

}  // namespace VelaService
