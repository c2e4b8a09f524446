// Value types: hashable, totally ordered, printable and parsable.
//
// A value type is a struct declared once:
//
//   struct OrbLagPort {
//     bool collecting = false;
//     bool distributing = false;
//     auto operator<=>(const OrbLagPort&) const = default;
//   };
//   VEX_VALUE(OrbLagPort, "Orb::OrbLagPort", (collecting, distributing))
//
// and then prints as
//   Value('Orb::OrbLagPort', ** {'collecting': True, 'distributing': False})
// (Vex::toStrep), parses back from that text (Vex::fromStrep<T>), hashes
// (boost::hash / hash_value) and formats with fmt and ostreams.
//
// Fields may be bool, integers, doubles, strings, described enumerations
// (printed through valueToStrep as their quoted name), other value types,
// std::vector, std::set, std::map, std::optional, Vex::HashMap and
// Vex::HashSet. Sets and maps print in key order whatever their container,
// so that equal values print the same. Parsing accepts fields in any order
// and leaves missing ones at their defaults.
//
// Types with their own compact representation (interface ids, addresses,
// bounded numbers) print as a value with one field: they declare
// VEX_SCALAR_VALUE(Type, "Full::Name", "field") and provide
// `Rep vexRep() const`, `static Type fromVexRep(const Rep&)` (which
// validates, throwing on a bad representation) and `hash_value`, where Rep is
// a printable type (a number or a string).
//
// Every value type also hashes with std::hash and formats with fmt ("{}"
// gives the printed form); described enumerations format as their name.
#pragma once

#include <fmt/format.h>
#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>
#include <boost/describe/enum_from_string.hpp>
#include <boost/describe/enum_to_string.hpp>
#include <boost/describe/enumerators.hpp>
#include <boost/describe/members.hpp>
#include <boost/mp11/algorithm.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <boost/unordered/unordered_flat_set.hpp>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Vex {

// Text that does not parse as the value it should be.
class ParseError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// A bounded value outside its bounds.
class RangeError : public std::range_error {
 public:
  using std::range_error::range_error;
};

template <class T>
concept DescribedValue = requires(const T* p) {
  { vexTypeName(p) } -> std::convertible_to<const char*>;
}
&&boost::describe::has_describe_members<T>::value;

template <class T>
concept ScalarValue = requires(const T& v, const T* p) {
  { vexTypeName(p) } -> std::convertible_to<const char*>;
  { vexFieldName(p) } -> std::convertible_to<const char*>;
  v.vexRep();
  T::fromVexRep(v.vexRep());
};

template <class T>
concept ValueType = DescribedValue<T> || ScalarValue<T>;

// A field type that is only a different storage of another printable type
// (a 4-byte aligned double in a shared-memory row, say) prints and parses
// exactly as that type: it provides `vexPlain()` and `fromVexPlain(plain)`.
template <class T>
concept PlainValue = requires(const T& v) {
  v.vexPlain();
  T::fromVexPlain(v.vexPlain());
};

template <class E>
concept DescribedEnum = std::is_enum_v<E> && boost::describe::has_describe_enumerators<E>::value;

// The name of an enumerator, or its number when it has none.
template <DescribedEnum E>
std::string valueToStrep(E e) {
  const char* name = boost::describe::enum_to_string(e, nullptr);
  return name ? name : std::to_string(static_cast<long long>(e));
}

namespace detail {

std::string quote(std::string_view text);
std::string doubleText(double value);

// A cursor over printed text, with errors that name the type being parsed.
class Parser {
 public:
  Parser(std::string_view text, const char* typeName) : text_(text), typeName_(typeName) {}

  [[noreturn]] void fail(const std::string& expected) const;
  void skipSpace();
  bool consume(std::string_view token);
  void expect(std::string_view token);
  bool atEnd();
  std::string parseString();
  std::string parseNumberText();
  bool parseBool();
  const char* typeName() const { return typeName_; }
  void typeNameIs(const char* name) { typeName_ = name; }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  const char* typeName_;
};

template <class T>
struct IsVector : std::false_type {};
template <class T, class A>
struct IsVector<std::vector<T, A>> : std::true_type {};
template <class T>
struct IsSet : std::false_type {};
template <class T, class C, class A>
struct IsSet<std::set<T, C, A>> : std::true_type {};
template <class T, class H, class E, class A>
struct IsSet<boost::unordered_flat_set<T, H, E, A>> : std::true_type {};
template <class T>
struct IsMap : std::false_type {};
template <class K, class V, class C, class A>
struct IsMap<std::map<K, V, C, A>> : std::true_type {};
template <class K, class V, class H, class E, class A>
struct IsMap<boost::unordered_flat_map<K, V, H, E, A>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <class T>
void print(std::string& out, const T& value);
template <class T>
void parse(Parser& in, T& value);

template <class T>
void print(std::string& out, const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    out += value ? "True" : "False";
  } else if constexpr (std::is_integral_v<T>) {
    out += std::to_string(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    out += doubleText(static_cast<double>(value));
  } else if constexpr (PlainValue<T>) {
    print(out, value.vexPlain());
  } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    out += quote(value);
  } else if constexpr (DescribedEnum<T>) {
    out += quote(valueToStrep(value));
  } else if constexpr (ScalarValue<T>) {
    out += "Value('";
    out += vexTypeName(static_cast<const T*>(nullptr));
    out += "', ** {'";
    out += vexFieldName(static_cast<const T*>(nullptr));
    out += "': ";
    print(out, value.vexRep());
    out += "})";
  } else if constexpr (DescribedValue<T>) {
    out += "Value('";
    out += vexTypeName(static_cast<const T*>(nullptr));
    out += "', ** {";
    bool first = true;
    boost::mp11::mp_for_each<boost::describe::describe_members<T, boost::describe::mod_public>>([&](auto member) {
      if (!first) out += ", ";
      first = false;
      out += '\'';
      out += member.name;
      out += "': ";
      print(out, value.*member.pointer);
    });
    out += "})";
  } else if constexpr (IsVector<T>::value || IsSet<T>::value) {
    std::vector<const typename T::value_type*> items;
    items.reserve(value.size());
    for (const auto& item : value) items.push_back(&item);
    if constexpr (IsSet<T>::value) {
      std::sort(items.begin(), items.end(), [](auto* a, auto* b) { return *a < *b; });
    }
    out += '[';
    bool first = true;
    for (const auto* item : items) {
      if (!first) out += ", ";
      first = false;
      print(out, *item);
    }
    out += ']';
  } else if constexpr (IsMap<T>::value) {
    // Keys in order, so that the printed form is canonical.
    std::map<typename T::key_type, const typename T::mapped_type*> sorted;
    for (const auto& [k, v] : value) sorted.emplace(k, &v);
    out += '{';
    bool first = true;
    for (const auto& [k, v] : sorted) {
      if (!first) out += ", ";
      first = false;
      print(out, k);
      out += ": ";
      print(out, *v);
    }
    out += '}';
  } else if constexpr (IsOptional<T>::value) {
    if (value) {
      print(out, *value);
    } else {
      out += "None";
    }
  } else {
    static_assert(sizeof(T) == 0, "not a printable value field");
  }
}

template <class T>
void parseInteger(Parser& in, T& value) {
  std::string text = in.parseNumberText();
  // from_chars refuses a sign on unsigned types and anything out of range.
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) in.fail("an integer in range, not '" + text + "'");
}

double parseDouble(Parser& in);

template <class T>
void parse(Parser& in, T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    value = in.parseBool();
  } else if constexpr (std::is_integral_v<T>) {
    parseInteger(in, value);
  } else if constexpr (std::is_floating_point_v<T>) {
    value = static_cast<T>(parseDouble(in));
  } else if constexpr (PlainValue<T>) {
    std::decay_t<decltype(std::declval<const T&>().vexPlain())> plain{};
    parse(in, plain);
    value = T::fromVexPlain(plain);
  } else if constexpr (std::is_same_v<T, std::string>) {
    value = in.parseString();
  } else if constexpr (DescribedEnum<T>) {
    std::string name = in.parseString();
    if (!boost::describe::enum_from_string(name.c_str(), value)) {
      // Values without a name print as their number; take them back too.
      std::underlying_type_t<T> number{};
      auto [end, ec] = std::from_chars(name.data(), name.data() + name.size(), number);
      if (name.empty() || ec != std::errc() || end != name.data() + name.size()) {
        in.fail("an enumerator, not '" + name + "'");
      }
      value = static_cast<T>(number);
    }
  } else if constexpr (ScalarValue<T>) {
    const char* outer = in.typeName();
    in.typeNameIs(vexTypeName(static_cast<const T*>(nullptr)));
    in.expect("Value(");
    std::string name = in.parseString();
    if (name != vexTypeName(static_cast<const T*>(nullptr))) in.fail("the type name, not '" + name + "'");
    in.expect(",");
    in.expect("**");
    in.expect("{");
    std::string field = in.parseString();
    if (field != vexFieldName(static_cast<const T*>(nullptr))) in.fail("a field name, not '" + field + "'");
    in.expect(":");
    std::decay_t<decltype(std::declval<const T&>().vexRep())> rep{};
    parse(in, rep);
    in.expect("}");
    in.expect(")");
    try {
      value = T::fromVexRep(rep);
    } catch (const std::exception& e) {
      in.fail(std::string("a valid value (") + e.what() + ")");
    }
    in.typeNameIs(outer);
  } else if constexpr (DescribedValue<T>) {
    const char* outer = in.typeName();
    const char* name = vexTypeName(static_cast<const T*>(nullptr));
    in.typeNameIs(name);
    in.expect("Value(");
    std::string printed = in.parseString();
    if (printed != name) in.fail("the type name, not '" + printed + "'");
    in.expect(",");
    in.expect("**");
    in.expect("{");
    bool first = true;
    while (!in.consume("}")) {
      if (!first) in.expect(",");
      first = false;
      std::string field = in.parseString();
      in.expect(":");
      bool known = false;
      boost::mp11::mp_for_each<boost::describe::describe_members<T, boost::describe::mod_public>>([&](auto member) {
        if (!known && field == member.name) {
          known = true;
          parse(in, value.*member.pointer);
        }
      });
      if (!known) in.fail("a field name, not '" + field + "'");
    }
    in.expect(")");
    in.typeNameIs(outer);
  } else if constexpr (IsVector<T>::value || IsSet<T>::value) {
    value.clear();
    in.expect("[");
    bool first = true;
    while (!in.consume("]")) {
      if (!first) in.expect(",");
      first = false;
      typename T::value_type item{};
      parse(in, item);
      if constexpr (IsVector<T>::value) {
        value.push_back(std::move(item));
      } else {
        value.insert(std::move(item));
      }
    }
  } else if constexpr (IsMap<T>::value) {
    value.clear();
    in.expect("{");
    bool first = true;
    while (!in.consume("}")) {
      if (!first) in.expect(",");
      first = false;
      typename T::key_type key{};
      parse(in, key);
      in.expect(":");
      typename T::mapped_type mapped{};
      parse(in, mapped);
      value.insert_or_assign(std::move(key), std::move(mapped));
    }
  } else if constexpr (IsOptional<T>::value) {
    if (in.consume("None")) {
      value.reset();
    } else {
      typename T::value_type inner{};
      parse(in, inner);
      value = std::move(inner);
    }
  } else {
    static_assert(sizeof(T) == 0, "not a parsable value field");
  }
}

template <class T>
const char* nameOf() {
  if constexpr (ValueType<T>) {
    return vexTypeName(static_cast<const T*>(nullptr));
  } else if constexpr (DescribedEnum<T>) {
    return "enumeration";
  } else {
    return "value";
  }
}

}  // namespace detail

// The printed form of a value.
template <class T>
std::string toStrep(const T& value) {
  std::string out;
  detail::print(out, value);
  return out;
}

// Parses the printed form back; throws ParseError naming the type and text.
template <class T>
T fromStrep(std::string_view text) {
  detail::Parser in(text, detail::nameOf<T>());
  T value{};
  detail::parse(in, value);
  if (!in.atEnd()) in.fail("end of text");
  return value;
}

// Hash of a described value over its fields.
template <DescribedValue T>
std::size_t hashFields(const T& value) {
  std::size_t seed = 0;
  boost::mp11::mp_for_each<boost::describe::describe_members<T, boost::describe::mod_public>>(
      [&](auto member) { boost::hash_combine(seed, value.*member.pointer); });
  return seed;
}

}  // namespace Vex

// Declares a value type's fields and name; at namespace scope, in the
// type's namespace, after the struct.
#define VEX_VALUE(Type, fullName, fields)                                                        \
  BOOST_DESCRIBE_STRUCT(Type, (), fields)                                                        \
  [[maybe_unused]] inline const char* vexTypeName(const Type*) { return fullName; }              \
  [[maybe_unused]] inline std::size_t hash_value(const Type& v) { return ::Vex::hashFields(v); } \
  [[maybe_unused]] inline std::ostream& operator<<(std::ostream& os, const Type& v) { return os << ::Vex::toStrep(v); }

// Declares a value type with its own representation (see above).
#define VEX_SCALAR_VALUE(Type, fullName, fieldName)                                   \
  [[maybe_unused]] inline const char* vexTypeName(const Type*) { return fullName; }   \
  [[maybe_unused]] inline const char* vexFieldName(const Type*) { return fieldName; } \
  [[maybe_unused]] inline std::ostream& operator<<(std::ostream& os, const Type& v) { return os << ::Vex::toStrep(v); }

// Every value type formats with fmt as its printed form.
template <Vex::ValueType T>
struct fmt::formatter<T> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const T& value, Context& ctx) const {
    std::string text = Vex::toStrep(value);
    return fmt::formatter<std::string_view>::format(text, ctx);
  }
};

// Described enumerations format as their enumerator name, as in traces.
template <Vex::DescribedEnum E>
struct fmt::formatter<E> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(E value, Context& ctx) const {
    std::string text = Vex::valueToStrep(value);
    return fmt::formatter<std::string_view>::format(text, ctx);
  }
};

// Value types are keys of standard unordered containers too.
template <Vex::ValueType T>
struct std::hash<T> {
  std::size_t operator()(const T& value) const noexcept { return boost::hash<T>()(value); }
};
