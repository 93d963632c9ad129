#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/FixedString.h"
#include "Orb/Text.h"
#include "Orb/Types.h"

/// The two trace libraries share their handles: Spoor keeps the latest messages in a ring in
/// memory, Twinlog sends leveled messages to a sink. Ring and sink are the process's; threads may
/// trace, read the ring and set the sink at the same time.
namespace Twinlog {

/// Where Twinlog's lines go.
class VELA_EXPORT Sink {
 public:
  /// One message, without a line end. Valid during the call only. Called by whichever thread
  /// traces, by one at a time.
  virtual void line(std::string_view handle, U8 level, std::string_view message) = 0;

 protected:
  ~Sink() = default;
};

/// Sets the sink of all handles; null drops every line. The caller keeps the sink alive until
/// another is set.
VELA_EXPORT void sinkIs(Sink* sink);

}  // namespace Twinlog

namespace Spoor {

/// One message of the ring, cut to what fits.
struct Record {
  U64 sequence = 0;              ///< Counts messages from 1; 0 marks an unused record.
  const char* handle = nullptr;  ///< The handle's name.
  U8 level = 0;                  ///< 0 to 9.
  U8 length = 0;                 ///< Characters of the text.
  char text[110]{};              ///< Without a 0 at its end.
};

inline constexpr std::size_t ringSize = 1024;  ///< Messages that the ring holds.

/// The ring's messages, oldest first.
VELA_EXPORT std::vector<Record> records();
VELA_EXPORT void recordsDelAll();

}  // namespace Spoor

namespace Trace {

/// A named source of messages; table families have one each. Levels run from 0 (always of
/// interest) to 9 (every field). A message above both levels of its handle costs one comparison.
/// Levels are set while no other thread traces.
class VELA_EXPORT Handle {
 public:
  /// The name must outlive the handle; handles live as long as the program.
  explicit Handle(const char* name);
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const char* name() const { return name_; }  ///< As it was given.
  /// Messages up to this level go to Twinlog's sink; -1, the default, for none.
  void twinlogLevelIs(int level);
  /// Messages up to this level go to Spoor's ring; -1, the default, for none.
  void spoorLevelIs(int level);

  /// Whether anybody listens at the level.
  bool enabled(U8 level) const { return level <= threshold_; }

  /// Sends the text forms of the parts, joined, when somebody listens at this level.
  template <class... Parts>
  void operator()(U8 level, const Parts&... parts) const {
    if (!enabled(level)) [[likely]]
      return;
    emitParts(level, parts...);
  }

  static Handle* find(std::string_view name);  ///< The handle of the name, or null.
  static const std::vector<Handle*>& all();    ///< In the order in which they were made.

 private:
  /// Apart, so that those who trace nothing pay with the comparison alone.
  template <class... Parts>
  [[gnu::noinline, gnu::cold]] void emitParts(U8 level, const Parts&... parts) const {
    emit(level, {Orb::TextPart(parts)...});
  }
  void emit(U8 level, std::initializer_list<Orb::TextPart> parts) const;

  const char* name_;
  int threshold_ = -1;  ///< The higher of the two levels.
  int twinlogLevel_ = -1;
  int spoorLevel_ = -1;
};

namespace detail {

/// Of characters: what is made of them is one thing in all libraries, which it is not under GCC
/// when made of an object.
template <char... characters>
struct VELA_EXPORT NamedUnit {
  static constexpr char sourceUnit[] = {characters..., '\0'};
  static inline Handle trace{sourceUnit};
};

}  // namespace detail

/// A source unit's name and the handle called after it.
template <Orb::FixedString Unit>
using SourceUnit = Orb::OfCharacters<detail::NamedUnit, Unit>;

}  // namespace Trace
