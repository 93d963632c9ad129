#include "bus/MappedBus.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace VelaBus {
namespace {

std::size_t partsOfRow(std::span<const VelaSwitchApi::RegisterBus::RegisterValue> values) {
  return partsOf(values, [](const auto& a, const auto& b) { return a.reg == b.reg; });
}

/// Bytes to be mapped. Behind a file's end an access would kill the process.
U64 sizeOf(int descriptor, const MappedBus::File& file) {
  struct stat status {};
  const bool sized = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  if (!sized && file.size == 0) throw MapException("the size of " + file.path + " is to be given");
  if (!sized) return file.size;
  const auto there = static_cast<U64>(status.st_size);
  if (file.offset >= there || file.size > there - file.offset) {
    throw MapException(file.path + " has " + std::to_string(there) + " bytes, and " +
                       std::to_string(file.size) + " from " + std::to_string(file.offset) +
                       " on are to be mapped");
  }
  return file.size != 0 ? file.size : there - file.offset;
}

}  // namespace

MappedBus::MappedBus(RegisterMap map, const File& file) : map_(std::move(map)) {
  const int descriptor = ::open(file.path.c_str(), O_RDWR | O_SYNC | O_CLOEXEC);
  const auto fail = [&] {
    throw MapException("cannot map " + file.path + ": " + std::strerror(errno));
  };
  if (descriptor < 0) fail();
  struct Closing {
    int descriptor;
    ~Closing() { ::close(descriptor); }
  } const closing{descriptor};
  const U64 size = sizeOf(descriptor, file);
  const auto& [path, end] = map_.end();
  if (end > size) {
    throw MapException(path + " ends at byte " + std::to_string(end) + ", and the mapping of " +
                       file.path + " has " + std::to_string(size));
  }
  void* bytes = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor,
                       static_cast<off_t>(file.offset));
  if (bytes == MAP_FAILED) fail();
  bytes_ = static_cast<U8*>(bytes);
  size_ = size;
}

MappedBus::~MappedBus() { ::munmap(bytes_, size_); }

volatile U32* MappedBus::at(U64 offset) const {
  return reinterpret_cast<volatile U32*>(bytes_ + offset);
}

U32 MappedBus::folderIs(std::string_view path) {
  const std::string name(VelaBus::folderOf(path));
  const auto [known, added] = folderNumbers_.emplace(name, static_cast<U32>(folderNumbers_.size()));
  if (added) {
    Folder& folder = folders_.emplace_back();
    for (const std::string& field : map_.fields()) {
      const auto* reg = map_.find(name + field);
      folder.fields.push_back(reg ? reg->offset : nowhere);
    }
  }
  return known->second;
}

MappedBus::RegisterHandle MappedBus::registerIs(std::string_view path) {
  const auto known = registerHandles_.find(path);
  if (known != registerHandles_.end()) return known->second;
  const auto* reg = map_.find(path);
  if (!reg) throw MapException("the register map has no pattern for " + std::string(path));
  const auto handle = static_cast<RegisterHandle>(registers_.size());
  registers_.push_back({reg->offset, folderIs(path)});
  registerHandles_.emplace(path, handle);
  return handle;
}

MappedBus::TableHandle MappedBus::tableIs(const VelaSwitchApi::HwTableIdentity& identity,
                                          HwIndex lastIndex) {
  const auto known = tableHandles_.find(identity.name);
  if (known != tableHandles_.end()) return known->second;
  const auto handle = static_cast<TableHandle>(tables_.size());
  tables_.push_back({&map_.protocolOf(identity.name), lastIndex});
  tableHandles_.emplace(identity.name, handle);
  return handle;
}

bool MappedBus::rowIs(TableHandle table, HwIndex index, std::span<const RegisterValue> writes) {
  if (writes.empty()) return true;
  const TableProtocol& protocol = *tables_[table].protocol;
  Folder& folder = folderOf(writes.front().reg);
  if (!settle(folder)) return false;
  const std::size_t parts = partsOfRow(writes);
  const std::size_t length = writes.size() / parts;
  for (std::size_t part = 0; part < parts; ++part) {
    const auto partIndex = static_cast<HwIndex>(index * parts + part);
    if (protocol.select && !tell(folder, *protocol.select, partIndex)) return false;
    for (const RegisterValue& write : writes.subspan(part * length, length)) {
      store(registers_[write.reg].offset, write.value);
    }
    if (protocol.written && !wait(folder, *protocol.written)) return false;
  }
  return true;
}

MappedBus::Read MappedBus::row(TableHandle table, HwIndex index, std::span<RegisterValue> values) {
  if (values.empty()) return Read::held;
  const TableProtocol& protocol = *tables_[table].protocol;
  Folder& folder = folderOf(values.front().reg);
  if (!settle(folder)) return Read::failed;
  const std::size_t parts = partsOfRow(values);
  const std::size_t length = values.size() / parts;
  for (std::size_t part = 0; part < parts; ++part) {
    const auto partIndex = static_cast<HwIndex>(index * parts + part);
    if (protocol.read) {
      const auto answer = ask(folder, *protocol.read, partIndex);
      if (!answer) return Read::failed;
      if ((*answer & protocol.read->poll.absent) != 0) return Read::absent;
    }
    for (RegisterValue& value : values.subspan(part * length, length)) {
      const U64 offset = registers_[value.reg].offset;
      const bool computed = protocol.control && folder.fields[protocol.control->field] == offset;
      value.value = computed ? protocol.control->of(partIndex) : load(offset);
    }
  }
  return Read::held;
}

bool MappedBus::hitBits(TableHandle table, HwIndex first, std::span<RegisterValue> values) {
  if (values.empty()) return true;
  const auto& [protocol, lastIndex] = tables_[table];
  if (!protocol->hits) {
    ++errors_.unmapped;
    return false;
  }
  Folder& folder = folderOf(values.front().reg);
  if (!settle(folder)) return false;
  const HitBlock block{table, first};
  if (!ask(folder, *protocol->hits, first)) {
    if (!folder.owed) return false;
    folder.hitBlock = block;
    folder.hitRegisters.clear();
    for (const RegisterValue& value : values) folder.hitRegisters.push_back(value.reg);
    return false;
  }
  const auto late = lateHits_.find(block);
  for (std::size_t i = 0; i < values.size(); ++i) {
    U32 bits = load(registers_[values[i].reg].offset);
    if (late != lateHits_.end() && i < late->second.size()) bits |= late->second[i];
    const U64 row = U64{first} + i * 32;
    const U64 rows = row > lastIndex ? 0 : lastIndex + U64{1} - row;
    if (rows < 32) bits &= (U32{1} << rows) - 1;
    values[i].value = bits;
  }
  if (late != lateHits_.end()) lateHits_.erase(late);
  return true;
}

/// Reads the register until hardware is done. Nothing when it took too long, or it could not do it.
std::optional<U32> MappedBus::wait(Folder& folder, const Poll& poll) {
  const U64 offset = folder.fields[poll.field];
  if (offset == nowhere) {
    ++errors_.unmapped;
    return std::nullopt;
  }
  using Clock = std::chrono::steady_clock;
  const auto limit = Clock::now() + std::chrono::microseconds(poll.limit);
  // It is asked once more after the limit: this process may have been kept waiting, not hardware.
  for (bool late = false;; late = Clock::now() >= limit) {
    const U32 word = load(offset);
    if ((word & poll.mask) == poll.done) {
      folder.owed = nullptr;
      if ((word & poll.failed) == 0) return word;
      ++errors_.refusals;
      return std::nullopt;
    }
    if (late) {
      ++errors_.timeouts;
      folder.owed = &poll;
      return std::nullopt;
    }
    std::this_thread::yield();
  }
}

bool MappedBus::tell(const Folder& folder, const IndexWord& word, HwIndex index) {
  const U64 offset = folder.fields[word.field];
  if (offset == nowhere) {
    ++errors_.unmapped;
    return false;
  }
  store(offset, word.of(index));
  return true;
}

std::optional<U32> MappedBus::ask(Folder& folder, const ReadProtocol& protocol, HwIndex index) {
  if (!tell(folder, protocol.trigger, index)) return std::nullopt;
  return wait(folder, protocol.poll);
}

/// Waits for an answer that is still owed. False when it does not come.
bool MappedBus::settle(Folder& folder) {
  if (!folder.owed) return true;
  const bool good = wait(folder, *folder.owed).has_value();
  if (folder.owed) return false;
  if (good && folder.hitBlock) {
    std::vector<U32>& bits = lateHits_[*folder.hitBlock];
    bits.resize(folder.hitRegisters.size());
    for (std::size_t i = 0; i < bits.size(); ++i) {
      bits[i] |= load(registers_[folder.hitRegisters[i]].offset);
    }
  }
  folder.hitBlock.reset();
  return true;
}

}  // namespace VelaBus
