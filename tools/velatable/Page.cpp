#include <iostream>

#include "Commands.h"
#include "Input.h"
#include "agent/Picture.h"
#include "agent/Profiles.h"
#include "tools/page/Page.h"

namespace VelaTool {

int report(const Options& options) {
  const bool saved = options.device != "sim";
  if (!saved && options.events.empty()) {
    throw InputException("report takes --events, --device or both");
  }
  if (options.output.empty() && !options.json) throw InputException("report takes -o or --json");
  checkFiles(options);
  SimulatedSwitch chip = saved ? copySaved(options.device) : SimulatedSwitch();
  MadeAgent agent(VelaAgent::loadProfile(options.profile), chip);
  if (!readDesires(agent, options)) return exitBadInput;
  VelaAgent::Picture picture(agent, !options.events.empty(), VelaAgent::Picture::Audit::now);
  picture.finish();
  if (auto file = outputFile(options.output)) {
    *file << VelaPage::pageOf(picture.json());
    finish(*file, options.output);
  }
  if (options.json) std::cout << picture.json().dump() << '\n';
  return exitGood;
}

}  // namespace VelaTool
