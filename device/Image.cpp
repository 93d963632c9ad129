#include "device/Image.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "device/ControlWord.h"
#include "device/SimulatedSwitch.h"

namespace VelaDevice {
namespace {

[[noreturn]] void refuse(const std::string& why) {
  throw ImageException("this is no saved switch: " + why);
}

/// What it begins with is not what it should: another layout, or no saved switch at all.
[[noreturn]] void refuseOther(const char* magic) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const std::ptrdiff_t at = std::find_if(imageMagic, std::end(imageMagic), isDigit) - imageMagic;
  if (!std::equal(imageMagic, imageMagic + at, magic) || !isDigit(magic[at])) {
    refuse("it begins with something else");
  }
  throw ImageException(
      Orb::text("this switch was saved in layout ", std::string(1, magic[at]),
                ", and this program knows layout ", std::string(1, imageMagic[at]),
                " alone: decode it with a program of its own time, and apply the events anew"));
}

/// A text that ends, and fits into one line of a message.
bool isName(const char (&text)[imageNameSize]) {
  const void* end = std::memchr(text, 0, imageNameSize);
  return end && std::none_of(text, static_cast<const char*>(end),
                             [](char c) { return static_cast<U8>(c) < ' ' || c == 0x7f; });
}

/// The next change to memory is not made before those that stand before it.
void inOrder() { std::atomic_signal_fence(std::memory_order_seq_cst); }

void copyName(char (&to)[imageNameSize], const std::string& name) {
  if (name.size() >= imageNameSize) throw ImageException("\"" + name + "\" is too long a name");
  std::copy(name.begin(), name.end(), to);
}

}  // namespace

SimulatedSwitch::SimulatedSwitch() { format(); }

SimulatedSwitch::SimulatedSwitch(Memory memory) : memory_(std::move(memory)) {
  if (memory_.size() == 0) {
    format();
  } else {
    load();
  }
}

SimulatedSwitch::SimulatedSwitch(const SimulatedSwitch& other)
    : memory_(other.memory_), state_(other.state_) {
  for (Table& table : state_.tables) table.image = imageAt(table.place);
}

SimulatedSwitch& SimulatedSwitch::operator=(const SimulatedSwitch& other) {
  if (this != &other) {
    SimulatedSwitch copy(other);
    std::swap(memory_, copy.memory_);
    std::swap(state_, copy.state_);
  }
  return *this;
}

ImageHeader& SimulatedSwitch::header() const {
  return *reinterpret_cast<ImageHeader*>(memory_.bytes());
}

ImageTable* SimulatedSwitch::imageAt(U64 place) const {
  return reinterpret_cast<ImageTable*>(memory_.bytes() + place);
}

void SimulatedSwitch::format() {
  memory_.sizeIs(sizeof(ImageHeader));
  header().used = sizeof(ImageHeader);
  inOrder();
  std::copy(std::begin(imageMagic), std::end(imageMagic), header().magic);
}

/// Takes up what the memory holds. It may come from anywhere: nothing in it is believed unseen.
void SimulatedSwitch::load() {
  if (memory_.size() < sizeof(ImageHeader)) refuse("it is too short");
  ImageHeader& image = header();
  if (std::all_of(image.magic, std::end(image.magic), [](char c) { return c == 0; })) {
    return format();  // killed while it was made
  }
  if (!std::equal(std::begin(imageMagic), std::end(imageMagic), image.magic)) {
    refuseOther(image.magic);
  }
  if (!isName(image.model)) refuse("its model is no name");
  if (image.used < sizeof(ImageHeader) || image.used > memory_.size()) refuse("it ends early");
  for (std::size_t at = sizeof(ImageHeader); at != image.used;) {
    const auto what = [&](const char* why) {
      return "the table at byte " + std::to_string(at) + " " + why;
    };
    if (image.used - at < sizeof(ImageTable)) refuse(what("ends early"));
    ImageTable* table = imageAt(at);
    if (!isName(table->family) || !isName(table->name)) refuse(what("has no name"));
    if (table->lastIndex >= imageMaxRows) refuse(what("has too many rows"));
    if (image.used - at < table->size()) refuse(what("ends early"));
    if (table->rowWords > VelaSwitchApi::maxRowWords) refuse(what("has rows too long"));
    const U8* flags = table->present();
    if (!std::all_of(flags, flags + 2 * table->rows(), [](U8 flag) { return flag <= 1; })) {
      refuse(what("has rows that are neither written nor not"));
    }
    if (table->rowWords == 0 &&
        std::find(flags, flags + table->rows(), 1) != flags + table->rows()) {
      refuse(what("has rows without words"));
    }
    if (state_.tableHandles.contains(table->name)) refuse(what("has the name of another"));
    tableAt(at);
    at += table->size();
  }
  if (image.pending.state == 1) {
    const auto at = std::find_if(state_.tables.begin(), state_.tables.end(),
                                 [&](const Table& t) { return t.place == image.pending.table; });
    if (at == state_.tables.end() || image.pending.index > at->lastIndex ||
        image.pending.words > VelaSwitchApi::maxRowWords) {
      refuse("the row that was being written is none");
    }
    finishPending();
  }
}

void SimulatedSwitch::modelIs(const std::string& model) {
  const std::string known = header().model;
  if (known.empty()) {
    copyName(header().model, model);
  } else if (known != model) {
    throw ImageException("the saved switch is a " + known + ", not a " + model);
  }
}

SimulatedSwitch::Table& SimulatedSwitch::tableAt(U64 place) {
  ImageTable* image = imageAt(place);
  Table table;
  table.identity = {image->family, image->instance, image->id, image->name};
  table.lastIndex = image->lastIndex;
  table.control = ControlWord::of(table.identity.family);
  table.place = place;
  table.image = image;
  state_.tableHandles.emplace(table.identity.name, static_cast<TableHandle>(state_.tables.size()));
  return state_.tables.emplace_back(std::move(table));
}

SimulatedSwitch::TableHandle SimulatedSwitch::tableIs(
    const VelaSwitchApi::HwTableIdentity& identity, HwIndex lastIndex) {
  const auto known = state_.tableHandles.find(identity.name);
  if (known != state_.tableHandles.end()) {
    const Table& table = state_.tables[known->second];
    if (table.lastIndex != lastIndex || table.identity.family != identity.family ||
        table.identity.instance != identity.instance || table.identity.id != identity.id) {
      throw ImageException("table " + identity.name +
                           " is another one in the saved switch: it was saved with another "
                           "profile");
    }
    return known->second;
  }
  ImageTable image{};
  copyName(image.family, identity.family);
  copyName(image.name, identity.name);
  image.instance = identity.instance;
  image.id = identity.id;
  image.lastIndex = lastIndex;
  const U64 place = header().used;
  memory_.sizeIs(place + image.size());
  *reinterpret_cast<ImageTable*>(memory_.bytes() + place) = image;
  inOrder();
  header().used = place + image.size();
  tableAt(place);
  return static_cast<TableHandle>(state_.tables.size() - 1);
}

/// A row changes as a whole: a process killed on the way leaves the old one or the new one.
void SimulatedSwitch::writeRow(const Table& table, HwIndex index,
                               std::span<const RegisterValue> writes) {
  ImageHeader::Pending& pending = header().pending;
  pending.table = table.place;
  pending.index = index;
  pending.words = static_cast<U32>(std::min<std::size_t>(writes.size(), std::size(pending.data)));
  for (U32 i = 0; i < pending.words; ++i) pending.data[i] = writes[i].value;
  inOrder();
  pending.state = 1;
  inOrder();
  finishPending();
}

void SimulatedSwitch::finishPending() {
  ImageHeader::Pending& pending = header().pending;
  ImageTable* table = imageAt(pending.table);
  table->rowWords = std::max(table->rowWords, pending.words);
  std::copy_n(pending.data, pending.words, table->words(pending.index));
  table->present()[pending.index] = 1;
  inOrder();
  pending.state = 0;
}

}  // namespace VelaDevice
