#pragma once

#include "VelaSwitchApi/HashBase.h"

namespace VelaSwitchApi {

/// A hash table that programs its entries, whatever their keys and results are, and keeps what
/// became of them.
class VELA_EXPORT HashTable : public HashBaseTable {
 public:
  void reactorTeardown() override;
  void lastHitByHashItemIs(HashItem& hashItem, Orb::Seconds time) override;
  void entryStatusIsByHashItem(HashItem& hashItem) override;

 protected:
  /// How a table is told from others.
  struct Options {
    const Trace::Handle& trace;
    bool everyPipeline;  ///< Every pipeline has the same rows.
    bool hitBits;        ///< Whether it declares hit bits.
    bool hits;           ///< Whether hits are recorded: they may be without.
    bool tracesItems;    ///< Whether entries are traced with their results, not by their keys.
  };

  HashTable(std::string name, U8 tableIdx, U8 pipeline, const Options& options);

  /// Programs the item of a key that has an entry, or removes that of one that has none.
  void handleItem(HashBaseCuckooEntry& item);
  /// The item of the same key that the physical table has, or null.
  HashBaseCuckooEntry* placedItem(const HashBaseCuckooEntry& item) const;

  virtual std::string keyText(const HashBaseCuckooEntry& item) const = 0;
  /// Stores the item's status as that of its key.
  virtual void statusIs(const HashBaseCuckooEntry& item) = 0;
  virtual void statusDel(const HashBaseCuckooEntry& item) = 0;
  /// The last hit that the status of the item's key tells.
  virtual Orb::Seconds recordedHit(const HashBaseCuckooEntry& item) const = 0;

  void recordStatus(const HashBaseCuckooEntry& item) {
    if (statusSupported()) statusIs(item);
  }
  /// Whether the item is its key's entry, not one that was withdrawn.
  bool isCurrent(const HashBaseCuckooEntry& item) const;

 private:
  void program(HashBaseCuckooEntry& item);
  void remove(HashBaseCuckooEntry& item);
  void traceItem(const char* what, const HashBaseCuckooEntry& item) const;

  Options options_;
};

}  // namespace VelaSwitchApi
