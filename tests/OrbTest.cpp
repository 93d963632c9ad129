#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>

#include "Orb/Attribute.h"
#include "Orb/Map.h"
#include "Orb/Ptr.h"
#include "Orb/RecordIndex.h"
#include "Orb/Slab.h"
#include "Support.h"
#include "Trace/Trace.h"
#include "VelaSwitch/Keys.h"
#include "VelaSwitch/PortMask.h"
#include "VelaSwitchTable/VelaTableAclHashes.h"
#include "VelaSwitchTable/VelaTableLagMembership.h"
#include "VelaSwitchTable/VelaTableVlanMembership.h"
#include "agent/Json.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;
using VelaTest::errorText;
using VelaTest::fatalText;

class Counted : public Orb::PtrInterface {
 public:
  explicit Counted(int& alive) : alive_(alive) { ++alive_; }
  ~Counted() override { --alive_; }

 private:
  int& alive_;
};

TEST(Ptr, lastHandleDeletesWhateverTheFlags) {
  for (const bool threadSafe : {false, true}) {
    Orb::threadSafePointersIs(threadSafe);
    int alive = 0;
    Orb::Ptr<Counted> first = Orb::make<Counted>(alive);
    first->hasNotificationActiveIs(true);
    Orb::PtrConst<Orb::PtrInterface> second = first;
    EXPECT_EQ(first->references(), 2u);
    first = nullptr;
    EXPECT_EQ(alive, 1);
    EXPECT_TRUE(second->hasNotificationActive());
    second = nullptr;
    EXPECT_EQ(alive, 0);
  }
  Orb::threadSafePointersIs(false);
}

TEST(Range, refusesWithItsOwnText) {
  for (const U32 none : {0u, 4095u}) {
    EXPECT_EQ(errorText([&] { Bridging::VlanId{none}; }),
              "Bridging::VlanId::value < 1 or > 4094 not allowed");
  }
  EXPECT_EQ(errorText([] { Bridging::VlanIdOrNone(4095); }),
            "Bridging::VlanIdOrNone::value > 4094 not allowed");
  const auto bounds = [](const std::string& type, const char* least, const char* most) {
    const std::string name = "VelaSwitch::" + type + "::";
    return name + "value < " + name + least + " or > " + name + most + " not allowed";
  };
  using namespace VelaSwitch;
  EXPECT_EQ(errorText([] { HwAclPriority(256); }), bounds("HwAclPriority", "invalid", "max"));
  EXPECT_EQ(errorText([] { HwCounterIndex(4096); }), bounds("HwCounterIndex", "invalid", "max"));
  EXPECT_EQ(errorText([] { ChipPortId(50); }), bounds("ChipPortId", "min", "null"));
  EXPECT_EQ(errorText([] { L3LagIndex(64); }), bounds("L3LagIndex", "min", "mcastSnat"));
  EXPECT_EQ(errorText([] { L3FloodId(200); }), bounds("L3FloodId", "min", "null"));
  EXPECT_EQ(Bridging::VlanId().value(), 1);
  EXPECT_EQ(VelaSwitch::ChipPortId().value(), 49);
  EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
}

VelaSwitchTable::AclHashEntryStatus exampleStatus() {
  VelaSwitchTable::AclHashEntryStatus status;
  status.key.value.type = 11;
  status.key.value.srcIp = Ipnet::IpAddr(0x0a000001);
  status.status = VelaSwitchApi::EntryProgrammedStatus::tableFull;
  status.lastHit = Orb::Seconds(2.5);
  return status;
}

TEST(Value, textFormReadsBack) {
  const auto status = exampleStatus();
  const std::string text = Orb::text(status);
  EXPECT_EQ(text,
            "Value('VelaSwitchTable::AclHashEntryStatus', ** {'key': "
            "Value('VelaSwitch::AclHashKey', ** {'aclId': 0, 'type': 11, 'srcIp': 10.0.0.1, "
            "'dstIp': 0.0.0.0, 'qualifier': 0, 'l4Port': 0, 'natId': 0, 'natDirection': 0}), "
            "'status': tableFull, 'lastHit': 2.5})");
  EXPECT_EQ(Orb::fromText<VelaSwitchTable::AclHashEntryStatus>(text), status);
}

TEST(Value, oneFieldHasTheTextFormOfAll) {
  const VelaSwitch::AclIndirectCounterHashKey counter{U16{7}};
  EXPECT_EQ(Orb::text(counter),
            "Value('VelaSwitch::AclIndirectCounterHashKey', ** {'counterKey': 7})");
  EXPECT_EQ(Orb::fromText<VelaSwitch::AclIndirectCounterHashKey>(Orb::text(counter)), counter);
  EXPECT_THROW(Orb::fromText<VelaSwitch::AclIndirectCounterHashKey>("7"), Orb::TextException);
  EXPECT_EQ(VelaAgent::toJson(counter), 7) << "JSON stays bare";

  const VelaSwitchTable::VlanMembershipKey vlan{Bridging::VlanId(9)};
  EXPECT_EQ(Orb::text(vlan), "9");
  EXPECT_EQ(Orb::fromText<VelaSwitchTable::VlanMembershipKey>("9"), vlan);
}

template <class V>
void expectFieldsFound(const V& value) {
  auto field = Orb::shapeOf<V>.fields.begin();
  Orb::forEachField(value, [&](const auto& each) {
    EXPECT_EQ(field->in(static_cast<const void*>(&value)), &each.value) << V::typeName << each.name;
    EXPECT_EQ((field++)->name, each.name);
  });
  EXPECT_EQ(field, Orb::shapeOf<V>.fields.end());
}

TEST(Value, tableOfFieldsSaysWhereTheyLie) {
  expectFieldsFound(VelaSwitchTable::VlanMembershipResult());
  expectFieldsFound(VelaSwitchTable::LagMembershipResult());
  expectFieldsFound(VelaSwitch::ProfileFields());
  expectFieldsFound(exampleStatus());
}

TEST(Value, badTextIsRefusedWithTheAttributesName) {
  std::string text = Orb::text(exampleStatus());
  EXPECT_THROW(Orb::fromText<VelaSwitchTable::AclHashEntryStatus>(text + "x"), Orb::TextException);
  text.replace(text.find("'aclId': 0"), 10, "'aclId': 17");
  EXPECT_EQ(errorText([&] { Orb::fromText<VelaSwitchTable::AclHashEntryStatus>(text); }),
            "key: aclId: VelaSwitch::HwAclId::value < VelaSwitch::HwAclId::min or > "
            "VelaSwitch::HwAclId::invalid not allowed");
  for (const char* address : {"1.2.3", "1.2.3.256", "1.2.3.4.5", "01.2.3.0004", "a.b.c.d", ""}) {
    EXPECT_THROW(Orb::fromText<Ipnet::IpAddr>(address), Orb::TextException) << address;
  }
  EXPECT_THROW(Orb::fromText<Ipnet::IpPrefix>("10.0.0.0/33"), Orb::TextException);
  EXPECT_THROW(Orb::fromText<Ipnet::IpPrefix>("10.0.0.1/24"), Orb::TextException);
  EXPECT_EQ(Orb::text(Orb::fromText<Ipnet::IpPrefix>("10.1.0.0/16")), "10.1.0.0/16");
}

TEST(Value, ordersAndHashesByEveryField) {
  const auto status = exampleStatus();
  auto later = status;
  later.lastHit = Orb::Seconds(3);
  EXPECT_LT(status, later);
  auto otherKey = status;
  otherKey.key.value.natDirection = 1;
  EXPECT_LT(status, otherKey);
  EXPECT_NE(Orb::hashOf(status.key()), Orb::hashOf(otherKey.key()));
}

TEST(Value, keysHashWithASeed) {
  VelaSwitch::NatMatchKey nat;
  const U32 hash = nat.hash(1);
  EXPECT_NE(nat.hash(2), hash);
  nat.qualifier = 1;
  EXPECT_NE(nat.hash(1), hash);
  const VelaSwitch::LpmKey first{U8{1}, Ipnet::IpPrefix()}, second{U8{2}, Ipnet::IpPrefix()};
  EXPECT_NE(first.hash(1), second.hash(1));
}

/// Keys as they are met: numbers that follow each other in one field and another, the rest alike.
/// Buckets of tables of some sizes, and the halves of tags that records are told apart by, get no
/// more of them than by chance.
TEST(Value, realKeysFallEvenly) {
  std::vector<VelaSwitch::NatMatchKey> flows;
  std::vector<VelaSwitch::AclHashKey> acls;
  std::vector<VelaSwitch::LpmKey> prefixes;
  for (U32 i = 0; i < 4096; ++i) {
    for (const U32 address : {0x0a000000 + i, 0x0a000000 + (i << 8), 0xc0a80000 ^ i << 20}) {
      flows.push_back({U8{1}, U8{2}, {}, Ipnet::IpAddr(address), {}, U16{80}, {}});
      acls.push_back(
          {{}, U8{11}, Ipnet::IpAddr(address), Ipnet::IpAddr(0x0a000001), {}, {}, {}, {}});
      acls.push_back(
          {{}, U8{11}, Ipnet::IpAddr(~0u), Ipnet::IpAddr(address), {}, U16{443}, {}, {}});
    }
    flows.push_back({U8{1}, {}, {}, Ipnet::IpAddr(0x0a000001), {}, static_cast<U16>(i), {}});
    prefixes.push_back({U8{1}, Ipnet::IpPrefix(Ipnet::IpAddr(0x0a000000 + (i << 8)), 24)});
  }
  const auto expectEven = [](const auto& keys) {
    std::set<U64> hashes;
    std::map<U32, U32> high, low;
    for (const auto& key : keys) {
      const U32 tag = VelaSwitchApi::entryTag(key);
      if (!hashes.insert(tag).second) continue;
      ++high[tag >> 16 & 0x1ff];
      ++low[tag & 0x1ff];
    }
    // Fewer than that share all of a tag by chance, ...
    EXPECT_GT(hashes.size(), std::set(keys.begin(), keys.end()).size() - 10);
    // ... and the sum of squares of 512 counts is this far from their mean in one of a million
    // cases.
    for (const auto& counts : {high, low}) {
      const double mean = static_cast<double>(hashes.size()) / 512;
      double squares = 0;
      for (U32 i = 0; i < 512; ++i) {
        const double count = counts.contains(i) ? counts.at(i) : 0;
        squares += (count - mean) * (count - mean) / mean;
      }
      EXPECT_LT(squares, 511 + 6 * 32) << keys.size();
    }
  };
  expectEven(flows);
  expectEven(acls);
  expectEven(prefixes);
}

/// Gaps between fields count for nothing, each bit of a field does.
TEST(Value, wordsAreThoseOfTheFields) {
  using Key = VelaSwitch::NatMatchKey;
  alignas(Key) std::array<U8, sizeof(Key)> memory[2];
  const std::array at{new (&memory[0]) Key, new (&memory[1]) Key};
  for (const int i : {0, 1}) {
    memory[i].fill(i == 0 ? 0 : 0xff);
    Orb::forEachField(*at[i], [](auto& field) { field.value = {}; });
  }
  const auto same = [&] {
    return VelaSwitchApi::sameKey(*at[0], *at[1]) &&
           VelaSwitchApi::entryTag(*at[0]) == VelaSwitchApi::entryTag(*at[1]) &&
           Orb::storedWords(*at[0]) == Orb::gatheredWords(*at[1]);
  };
  ASSERT_TRUE(same());
  Orb::forEachField(*at[0], [&](auto& field) {
    for (std::size_t byte = 0; byte < sizeof field; ++byte) {
      U8& flipped = reinterpret_cast<U8*>(&field)[byte];
      flipped ^= 0x10;
      EXPECT_FALSE(VelaSwitchApi::sameKey(*at[0], *at[1]));
      EXPECT_NE(VelaSwitchApi::entryTag(*at[0]), VelaSwitchApi::entryTag(*at[1]));
      flipped ^= 0x10;
    }
  });
  EXPECT_TRUE(same());
}

/// The map against the standard library's, over operations that make long runs and many holes.
TEST(Map, behavesLikeAnUnorderedMap) {
  VelaTest::Random random;
  Orb::Map<U32, U32> map;
  std::unordered_map<U32, U32> model;
  for (U32 step = 0; step < 200000; ++step) {
    const U32 key = random() % 3000;
    if (random() % 2 == 0) {
      const auto [value, inserted] = map.insert(key);
      EXPECT_EQ(inserted, !model.contains(key));
      *value = step;
      model[key] = step;
    } else {
      EXPECT_EQ(map.erase(key), model.erase(key) == 1);
    }
    const U32 probe = random() % 3000;
    const auto expected = model.find(probe);
    const U32* found = map.find(probe);
    ASSERT_EQ(found != nullptr, expected != model.end());
    if (found) {
      ASSERT_EQ(*found, expected->second);
    }
  }
  EXPECT_EQ(map.size(), model.size());
  std::size_t visited = 0;
  map.forEach([&](U32 key, U32 value) {
    ++visited;
    EXPECT_EQ(model.at(key), value);
  });
  EXPECT_EQ(visited, model.size());
}

/// Records of a slab under tags of which many are alike, against a map of what is there.
TEST(RecordIndex, findsWhatIsThereAndNothingElse) {
  VelaTest::Random random;
  const auto slab = std::make_unique<Orb::Slab>();
  const auto tagOf = [](U32 key) { return key % 29 * 0x12347; };
  Orb::RecordIndex index(
      [](const void* record) { return *static_cast<const U32*>(record) % 29 * 0x12347; });
  std::map<U32, U32*> model;
  const auto isKey = [](U32 key) {
    return [key](const void* at) { return *static_cast<const U32*>(at) == key; };
  };
  const auto find = [&](U32 key) { return index.find(tagOf(key), isKey(key)); };
  const auto make = [&](U32 key) { return new (Orb::Slab::take(slab.get(), sizeof key)) U32(key); };
  for (U32 step = 0; step < 20000; ++step) {
    const U32 key = random() % 300;
    const auto at = model.find(key);
    ASSERT_EQ(find(key), at == model.end() ? nullptr : at->second);
    const U32 how = random() % 8;
    if (at == model.end() && how == 0) {
      ASSERT_ANY_THROW(index.findOrAdd(tagOf(key), isKey(key), []() -> void* { throw 0; }));
    } else if (at == model.end() && how < 4) {
      index.add(tagOf(key), model[key] = make(key));
    } else if (at == model.end() || how == 0) {
      void* made = nullptr;
      void* record = index.findOrAdd(tagOf(key), isKey(key), [&] { return made = make(key); });
      ASSERT_EQ(record, at == model.end() ? made : at->second);
      model[key] = static_cast<U32*>(record);
    } else if (random() % 4 == 0) {
      U32* next = make(key);
      index.replace(tagOf(key), at->second, next);
      Orb::Slab::give(std::exchange(at->second, next));
    } else {
      index.remove(tagOf(key), at->second);
      Orb::Slab::give(at->second);
      model.erase(at);
    }
    ASSERT_EQ(index.size(), model.size());
  }
  for (const auto& [key, record] : model) Orb::Slab::give(record);
}

/// The memory goes with the last object of a slab that is gone; of another size each has its own.
TEST(Slab, objectsOutliveIt) {
  auto slab = std::make_unique<Orb::Slab>();
  slab->reserve(3, 24);
  std::vector<void*> objects;
  for (const std::size_t size : {24, 24, 40, 24, 24}) {
    objects.push_back(Orb::Slab::take(slab.get(), size));
    std::memset(objects.back(), 0x5a, size);
  }
  Orb::Slab::give(objects.back());
  objects.back() = Orb::Slab::take(slab.get(), 24);
  slab = nullptr;
  for (void* object : objects) Orb::Slab::give(object);
}

TEST(Attribute, tellsObserversOfChangesAlone) {
  struct Watcher final : Orb::AttributeObserver {
    explicit Watcher(const Orb::Attribute<U32>& watched) : attribute(watched) {}
    const Orb::Attribute<U32>& attribute;
    std::vector<U32> heard;
    void handleAttribute() override { heard.push_back(attribute.value()); }
  };
  Orb::Attribute<U32> attribute(4);
  Watcher watcher(attribute);
  attribute.observerIs(&watcher);
  EXPECT_FALSE(attribute.is(4));
  EXPECT_TRUE(attribute.is(5));
  EXPECT_FALSE(attribute.is(5));
  EXPECT_THAT(watcher.heard, ElementsAre(5));
  attribute.observerDel(&watcher);
  attribute.is(6);
  EXPECT_EQ(watcher.heard.size(), 1u);
}

class TraceTest : public testing::Test, protected Twinlog::Sink {
 protected:
  TraceTest() {
    Twinlog::sinkIs(this);
    Spoor::recordsDelAll();
  }
  ~TraceTest() override { Twinlog::sinkIs(nullptr); }
  void line(std::string_view handle, U8 level, std::string_view message) override {
    lines.push_back(Orb::text(handle, "/", level, " ", message));
  }
  std::vector<std::string> lines;
};

/// Counts how often it is turned into text.
struct Formatted {
  int* times;
};
void appendText(Orb::TextSink& sink, const Formatted& formatted) {
  ++*formatted.times;
  sink.append("formatted");
}

TEST_F(TraceTest, formatsOnlyForThoseWhoListen) {
  static Trace::Handle handle("TraceTest");
  int times = 0;
  handle(0, Formatted{&times});
  EXPECT_EQ(times, 0);
  handle.twinlogLevelIs(5);
  handle(6, Formatted{&times});
  handle(5, "level ", 5, " ", Formatted{&times});
  EXPECT_EQ(times, 1);
  handle.twinlogLevelIs(-1);
  EXPECT_THAT(lines, ElementsAre("TraceTest/5 level 5 formatted"));
}

TEST_F(TraceTest, spoorKeepsTheLatestMessages) {
  static Trace::Handle handle("SpoorTest");
  handle.spoorLevelIs(9);
  for (U32 i = 0; i < Spoor::ringSize + 10; ++i) handle(9, "message ", i);
  handle(9, std::string(500, 'x'));
  handle.spoorLevelIs(-1);
  const auto records = Spoor::records();
  ASSERT_EQ(records.size(), Spoor::ringSize);
  EXPECT_EQ(std::string(records.front().text, records.front().length), "message 11");
  EXPECT_EQ(records.back().length, sizeof records.back().text);
  EXPECT_TRUE(lines.empty());
}

TEST(Assert, handlerGetsExpressionAndFunction) {
  const std::string text = fatalText([] { ORB_ASSERT(1 + 1 == 3); });
  EXPECT_THAT(text, StartsWith("1 + 1 == 3 in "));
  EXPECT_DEATH(Orb::assertFailed("a == b", "void f()"), "assertion \"a == b\" failed in \"void f");
}

}  // namespace
