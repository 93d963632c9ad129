#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "device/SimulatedSwitch.h"

// A saved switch is a text file:
//
//   vela-switch-image 1
//   model NAME                                     the profile's name
//   register VALUE PATH                            every register that is not 0
//   table FAMILY INSTANCE ID LASTINDEX WORDS NAME  then the table's rows
//   row INDEX HIT WORD...                          every row that was written
//
// Numbers are decimal but for register values and words, which are hexadecimal.

namespace VelaDevice {
namespace {

constexpr const char* header = "vela-switch-image 1";
constexpr U32 maxRows = 1u << 20;
constexpr U32 maxWords = 8;

[[noreturn]] void refuse(const std::string& file, U64 line, const std::string& why) {
  throw ImageException(file + ":" + std::to_string(line) + ": " + why);
}

}  // namespace

void SimulatedSwitch::save(const std::string& file) const {
  const std::string beside = file + ".new";
  std::FILE* out = std::fopen(beside.c_str(), "w");
  if (!out) throw std::runtime_error("cannot write " + beside);
  std::fprintf(out, "%s\n", header);
  if (!model_.empty()) std::fprintf(out, "model %s\n", model_.c_str());
  for (const auto& [path, handle] : registerHandles_) {
    if (registers_[handle] != 0) {
      std::fprintf(out, "register %x %s\n", registers_[handle], path.c_str());
    }
  }
  for (const Table& table : tables_) {
    std::fprintf(out, "table %s %u %u %u %u %s\n", table.identity.family.c_str(),
                 table.identity.instance, table.identity.id, table.lastIndex, table.rowWords,
                 table.identity.name.c_str());
    for (HwIndex index = 0; index <= table.lastIndex; ++index) {
      const U32* words = table.row(index);
      if (!words) continue;
      std::fprintf(out, "row %u %u", index, table.hit[index]);
      for (U32 i = 0; i < table.rowWords; ++i) std::fprintf(out, " %x", words[i]);
      std::fputc('\n', out);
    }
  }
  bool good = std::ferror(out) == 0 && std::fflush(out) == 0 && fsync(fileno(out)) == 0;
  good = std::fclose(out) == 0 && good;
  if (!good || std::rename(beside.c_str(), file.c_str()) != 0) {
    std::remove(beside.c_str());
    throw std::runtime_error("cannot write " + file);
  }
}

void SimulatedSwitch::load(const std::string& file) {
  std::ifstream in(file);
  if (!in) throw ImageException("cannot read " + file);
  std::string text;
  U64 line = 1;
  if (!std::getline(in, text) || text != header) {
    refuse(file, line, "this is not a saved switch");
  }
  Table* table = nullptr;
  while (std::getline(in, text)) {
    ++line;
    std::istringstream words(text);
    std::string kind;
    words >> kind;
    if (kind == "model") {
      if (!std::getline(words >> std::ws, model_)) refuse(file, line, "a model needs a name");
    } else if (kind == "register") {
      U32 value = 0;
      std::string path;
      if (!(words >> std::hex >> value >> path)) refuse(file, line, "a register needs value, path");
      const RegisterHandle handle = registerIs(path);
      registers_[handle] = value;
    } else if (kind == "table") {
      VelaSwitchApi::HwTableIdentity identity;
      HwIndex lastIndex = 0;
      U32 rowWords = 0;
      if (!(words >> identity.family >> identity.instance >> identity.id >> lastIndex >> rowWords >>
            identity.name) ||
          lastIndex >= maxRows || rowWords > maxWords || tableHandles_.contains(identity.name)) {
        refuse(file, line, "a table needs family, instance, id, last row, words and a new name");
      }
      table = &tables_[tableIs(identity, lastIndex)];
      table->rowWords = rowWords;
      table->words.resize(std::size_t{lastIndex + 1} * rowWords);
    } else if (kind == "row" && table) {
      HwIndex index = 0;
      unsigned hit = 0;
      if (!(words >> index >> hit) || index > table->lastIndex || hit > 1 || table->rowWords == 0) {
        refuse(file, line, "a row needs an index of its table and a hit bit");
      }
      table->hit[index] = static_cast<U8>(hit);
      table->present[index] = 1;
      words >> std::hex;
      for (U32 i = 0; i < table->rowWords; ++i) {
        if (!(words >> table->words[std::size_t{index} * table->rowWords + i])) {
          refuse(file, line, "the row has too few words");
        }
      }
    } else {
      refuse(file, line, "unknown line \"" + text.substr(0, 40) + "\"");
    }
    if (std::string rest; words >> rest) refuse(file, line, "unexpected \"" + rest + "\"");
  }
}

}  // namespace VelaDevice
