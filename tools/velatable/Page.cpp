#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "Progress.h"
#include "agent/Picture.h"
#include "tools/page/Page.h"

namespace VelaTool {

namespace {

/// What events or a saved switch look like.
std::optional<Json> pictureOf(const Options& options) {
  AskedSwitch asked(options, "report");
  if (!asked.good) return std::nullopt;
  VelaAgent::FitMeter meter;
  VelaAgent::Picture picture(asked.agent, meter, asked.desiresKnown,
                             VelaAgent::Picture::Audit::now);
  Progress progress;
  picture.finish([&](double share) { progress.is(share); });
  return picture.take();
}

}  // namespace

int report(const Options& options) {
  if (options.output.empty() && !options.json) throw InputException("report takes -o or --json");
  const std::optional<Json> picture = options.connect.empty()
                                          ? pictureOf(options)
                                          : answerTo(options.connect, {{"request", "picture"}});
  if (!picture) return exitBadInput;
  if (auto file = outputFile(options.output)) {
    *file << VelaPage::pageOf(*picture);
    finish(*file, options.output);
  }
  if (options.json) std::cout << picture->dump() << '\n';
  return exitGood;
}

}  // namespace VelaTool
