#include <numeric>

#include "Entries.h"
#include "Routes.h"

// Single operations on tables that are more or less full, and what is left to gain where the bus
// takes its time.

namespace {

using namespace VelaBench;

constexpr U32 firstSeed = 7;
constexpr std::size_t manyWaiting = 10'000;

/// How many entries random keys bring in before the first refusal: the mean of several fills.
template <class Subject>
U32 entriesAtRefusal() {
  static const U32 mean = [] {
    constexpr U32 fills = 5;
    U32 sum = 0;
    for (U32 fill = 0; fill < fills; ++fill) {
      Subject subject(firstSeed + fill);
      U32 key = 0;
      while (subject.waiting() == 0) subject.add(key++);
      sum += key - 1;
    }
    return sum / fills;
  }();
  return mean;
}

/// A table that holds some of its keys; which ones changes at random.
template <class Subject>
struct Populated {
  /// As full as `percent` of the refusal load; with 0, so full that many wait.
  explicit Populated(U32 percent) : keys(subject.size()) {
    std::iota(keys.begin(), keys.end(), 0);
    const U32 entries = entriesAtRefusal<Subject>() * percent / 100;
    while (percent > 0 ? present < entries : subject.waiting() < manyWaiting) {
      subject.add(keys[present++]);
    }
  }
  U32 anyPresent() { return keys[random() % present]; }
  struct Exchange {
    U32 gone;
    U32 come;
  };
  /// Which key goes and which one takes its place, the `nth` of its batch: none that has just come.
  Exchange exchange(U32 nth = 0) {
    U32& one = keys[nth];
    std::swap(one, keys[nth + random() % (present - nth)]);
    U32& other = keys[present + random() % (keys.size() - present)];
    std::swap(one, other);
    return {other, one};
  }

  Subject subject{firstSeed};
  std::mt19937 random{firstSeed};
  std::vector<U32> keys;
  U32 present = 0;
};

/// What reading the clock twice takes; it is taken off every sample.
double clockNs() {
  static const double cost = [] {
    std::vector<double> samples(100'001);
    for (double& sample : samples) sample = nsSince(Clock::now());
    std::nth_element(samples.begin(), samples.begin() + 50'000, samples.end());
    return samples[50'000];
  }();
  return cost;
}

void percentiles(benchmark::State& state, const std::string& operation,
                 std::vector<double>& samples) {
  std::sort(samples.begin(), samples.end());
  for (const auto& [name, share] :
       {std::pair{"p50", 0.5}, {"p99", 0.99}, {"p99.9", 0.999}, {"max", 1.0}}) {
    const auto place = static_cast<std::size_t>(share * static_cast<double>(samples.size() - 1));
    state.counters[operation + "/" + name] = std::max(samples[place] - clockNs(), 0.0);
  }
}

/// Single operations, each timed for itself.
template <class Subject>
void latency(benchmark::State& state, U32 percent) {
  constexpr std::size_t count = 50'000;
  Populated<Subject> populated(percent);
  Subject& subject = populated.subject;
  std::map<std::string, std::vector<double>> samples;
  const auto sample = [](std::vector<double>& into, const auto& operation) {
    const auto begin = Clock::now();
    operation();
    into.push_back(nsSince(begin));
  };
  for (auto _ : state) {
    auto& del = samples["del"];
    auto& add = samples["add"];
    auto& replace = samples["replace"];
    for (auto* each : {&del, &add, &replace}) each->reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
      const auto [gone, come] = populated.exchange();
      const U32 other = populated.anyPresent();
      sample(del, [&, key = gone] { subject.del(key); });
      sample(add, [&, key = come] { subject.add(key); });
      sample(replace, [&] { subject.replace(other); });
    }
    state.SetIterationTime(1);
  }
  for (auto& [operation, each] : samples) percentiles(state, operation, each);
  state.counters["entries"] = populated.present;
  state.counters["waiting"] = static_cast<double>(subject.waiting());
}

/// Entries that come into a table of that load in place of others: what each one takes, how often
/// it needs the bus, for rows that are written and hit bits that are read, and what each access
/// takes.
template <class Subject>
void atLoad(benchmark::State& state, U32 percent) {
  Populated<Subject> populated(percent);
  std::vector<U32> coming(64);
  const MemoryBus& bus = populated.subject.bus;
  U64 rows = 0;
  U64 reads = 0;
  double took = 0;
  timed(
      state, coming.size(),
      [&] {
        for (U32 i = 0; i < coming.size(); ++i) {
          const auto [gone, come] = populated.exchange(i);
          populated.subject.del(gone);
          coming[i] = come;
        }
        rows -= bus.rowWrites();
        reads -= bus.hitReads;
        return &populated.subject;
      },
      [&](Subject& subject) {
        for (const U32 key : coming) subject.add(key);
      },
      [&](const Subject&, double ns) {
        rows += bus.rowWrites();
        reads += bus.hitReads;
        took += ns;
      });
  const auto entries = static_cast<double>(state.iterations()) * static_cast<double>(coming.size());
  state.counters["rows"] = static_cast<double>(rows) / entries;
  state.counters["hit_reads"] = static_cast<double>(reads) / entries;
  state.counters["access_ns"] = took / static_cast<double>(rows + reads);
}

/// Fills a table while every row takes `waitNs`; whatever does not wait is the software's share.
template <class Subject>
void onBus(benchmark::State& state, U32 entries, U32 waitNs) {
  double waited = 0;
  double took = 0;
  timed(
      state, entries,
      [&] {
        auto subject = std::make_unique<Subject>();
        subject->bus.waitNs = waitNs;
        return subject;
      },
      [&](Subject& subject) {
        for (U32 i = 0; i < entries; ++i) subject.add(i);
      },
      [&](const Subject& subject, double ns) {
        waited += subject.bus.waited;
        took += ns;
      });
  state.counters["software_percent"] = 100 * (1 - waited / took);
}

template <class Subject>
void registerSubject(const std::string& name, U32 entries) {
  const auto once = [&](U32 percent) {
    const std::string load = percent == 0 ? "waiting" : std::to_string(percent);
    bench(Orb::text("latency/", name, "/", load),
          [=](benchmark::State& state) { latency<Subject>(state, percent); })
        ->Iterations(1)
        ->Repetitions(3);
  };
  for (const U32 percent : {10, 45, 95}) {
    bench(Orb::text(name, "/at/", percent),
          [=](benchmark::State& state) { atLoad<Subject>(state, percent); });
    once(percent);
  }
  once(0);
  for (const U32 waitNs : {0, 100, 1000}) {
    bench(Orb::text(name, "/bus/", waitNs),
          [=](benchmark::State& state) { onBus<Subject>(state, entries, waitNs); });
  }
}

const bool latencyRegistered = [] {
  registerSubject<Vela<Acl>>("acl", Acl::entries);
  registerSubject<Vela<Nat>>("nat", Nat::entries);
  registerSubject<LadderRoutes<>>("route", static_cast<U32>(fittingRoutes().size()));
  bench("latency/clock",
        [](benchmark::State& state) {
          for (auto _ : state) state.SetIterationTime(1);
          state.counters["p50"] = clockNs();
        })
      ->Iterations(1)
      ->Repetitions(3);
  return true;
}();

}  // namespace
