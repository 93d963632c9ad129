#pragma once

#include "Orb/Seconds.h"
#include "Orb/Type.h"
#include "Orb/Value.h"
#include "VelaSwitchApi/EntryStore.h"
#include "VelaSwitchApi/FamilyChecks.h"
#include "VelaSwitchApi/RowCheck.h"
#include "VelaSwitchApi/SwTable.h"

/// What table families of every kind have.
namespace VelaSwitchTable {

using VelaSwitchApi::EntryRecord;
using VelaSwitchApi::KeyRecord;
using VelaSwitchApi::KeyRecords;
using VelaSwitchApi::noRowText;
using VelaSwitchApi::RowImage;

/// The named classes of a family, each under what it is: Table, Convertor, … The line that declares
/// them specialises this.
template <class F>
struct ClassesOf;

template <class F>
using TableOf = typename ClassesOf<F>::Table;  ///< The table of a family.

/// What every family is derived from: its unit, the key and the result of its entries.
template <Orb::FixedString Unit, class K, class R>
struct Family : Trace::SourceUnit<Unit> {
  static_assert(VelaSwitchApi::valueChecked<K>() && VelaSwitchApi::valueChecked<R>());
  using Key = K;     ///< What an entry is found by.
  using Result = R;  ///< What is desired of it.
};

/// The status of one entry, under the family's own name.
template <class Key, Orb::FixedString Name>
struct EntryStatusOf {
  static constexpr const char* typeName = Name.chars;
  Orb::Field<"key", Key> key;                                         ///< Whose status it is.
  Orb::Field<"status", VelaSwitchApi::EntryProgrammedStatus> status;  ///< Of the last attempt.
  Orb::Field<"lastHit", Orb::Seconds> lastHit;  ///< Zero when the entry was never hit.
  auto operator<=>(const EntryStatusOf&) const = default;
};

}  // namespace VelaSwitchTable

// A family's named classes differ from each other in their names alone. So each kind of family has
// a list of them (VELA_HASH_LIST and its like, beside the kind's templates): of each what it is to
// the family (Table, Convertor, …), its name, the template that it is an instance of, and what its
// factory ClassIs() takes and hands on. One line declares all of them, VELA_HASH_FAMILY and its
// like, and one, …_DEFINE, defines them in the source file. A family uses by itself, for a class
// that it writes by hand:
//
//   VELA_REGISTERED(Family, Class)        within the class: its name, and its place in the registry
//   VELA_CLASS(Family, Class, Base)       the whole class, as Base<Family> under a name
//   VELA_BASE_CLASS(Family, Class, Base)  the same, for others to derive from
//   VELA_FACTORY(Class, factory, (parameters))
//   VELA_FACTORY_DEFINE(Class, factory, (parameters), (arguments))

/// fwkType() is the class's only member that is not inline, so what all of its members need is
/// compiled once, where the class is defined.
#define VELA_REGISTERED(Family, Class)                                \
  static constexpr const char* typeName = "VelaSwitchTable::" #Class; \
  static constexpr const char* shortName = #Class;                    \
  static constexpr const char* sourceUnit = Family::sourceUnit;       \
  const Orb::Type& fwkType() const override

#define VELA_REGISTERED_DEFINE(Class) \
  const Orb::Type& Class::fwkType() const { return Orb::registeredType<Class>; }

#define VELA_CLASS(Family, Class, Base)                 \
  class VELA_EXPORT Class final : public Base<Family> { \
   public:                                              \
    using Base<Family>::Base;                           \
    VELA_REGISTERED(Family, Class);                     \
  }

#define VELA_BASE_CLASS(Family, Class, Base)      \
  class VELA_EXPORT Class : public Base<Family> { \
   public:                                        \
    using Base<Family>::Base;                     \
    VELA_REGISTERED(Family, Class);               \
  }

/// Takes what VELA_FACTORY_DEFINE takes as well, so that a list of factories serves both.
#define VELA_FACTORY(Class, factory, parameters, ...) VELA_EXPORT Orb::Ptr<Class> factory parameters

#define VELA_FACTORY_DEFINE(Class, factory, parameters, arguments) \
  Orb::Ptr<Class> factory parameters { return Orb::make<Class> arguments; }

// What is made of each class of a list.

#define VELA_FORWARD(Family, What, Class, Base, parameters, arguments) class Class
#define VELA_NAME(Family, What, Class, Base, parameters, arguments) using What = Class
#define VELA_WHOLE(Family, What, Class, Base, parameters, arguments) VELA_CLASS(Family, Class, Base)
#define VELA_DECLARE(Family, What, Class, Base, parameters, arguments) \
  extern template class Base<Family>;                                  \
  VELA_FACTORY(Class, Class##Is, parameters)
#define VELA_DEFINE(Family, What, Class, Base, parameters, arguments) \
  template class Base<Family>;                                        \
  VELA_REGISTERED_DEFINE(Class)                                       \
  VELA_FACTORY_DEFINE(Class, Class##Is, parameters, arguments)

/// The classes of a list by what they are to the family; `more` are others.
#define VELA_NAMES(Family, more, List, ...) \
  List(VELA_FORWARD, __VA_ARGS__);          \
  template <>                               \
  struct ClassesOf<Family> {                \
    List(VELA_NAME, __VA_ARGS__);           \
    more                                    \
  }

/// A parameter's default, in a list that has them: for declarations alone.
#define VELA_OR(value) = value
#define VELA_OR_NOT(value)
