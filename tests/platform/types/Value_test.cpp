// Printing and parsing of value types, with nesting, containers and bad text.
#include "platform/vex/Value.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Time.h"

#include <gtest/gtest.h>
#include <boost/describe/enum.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Probe {

enum class Color : std::uint8_t { red, green };
BOOST_DESCRIBE_ENUM(Color, red, green)

struct Inner {
  std::int32_t count = 0;
  std::string label;
  auto operator<=>(const Inner&) const = default;
};
VEX_VALUE(Inner, "Probe::Inner", (count, label))

struct Outer {
  bool flag = false;
  double ratio = 0.0;
  Color color = Color::red;
  Inner inner;
  Nexo::IntfId intf;
  std::vector<std::uint16_t> list;
  std::set<Bridging::VlanId> vlans;
  std::map<std::string, Inner> byName;
  std::optional<std::uint32_t> maybe;
  auto operator<=>(const Outer&) const = default;
};
VEX_VALUE(Outer, "Probe::Outer", (flag, ratio, color, inner, intf, list, vlans, byName, maybe))

struct Hashed {
  boost::unordered_flat_map<std::string, std::int8_t> counts;
  boost::unordered_flat_set<std::uint64_t> ids;
  auto operator<=>(const Hashed&) const = default;
};
VEX_VALUE(Hashed, "Probe::Hashed", (counts, ids))

}  // namespace Probe

namespace {

Probe::Outer sample() {
  Probe::Outer v;
  v.flag = true;
  v.ratio = 0.25;
  v.color = Probe::Color::green;
  v.inner = {-3, "it's \\ here"};
  v.intf = Nexo::IntfId("Ethernet3/1");
  v.list = {1, 2};
  v.vlans = {Bridging::VlanId(20), Bridging::VlanId(10)};
  v.byName = {{"b", {2, "two"}}, {"a", {1, "one"}}};
  v.maybe = 7;
  return v;
}

TEST(Value, PrintsPythonLikeLiterals) {
  EXPECT_EQ(Vex::toStrep(Probe::Inner{5, "x"}), "Value('Probe::Inner', ** {'count': 5, 'label': 'x'})");
  EXPECT_EQ(Vex::toStrep(sample()),
            "Value('Probe::Outer', ** {'flag': True, 'ratio': 0.25, 'color': 'green', "
            "'inner': Value('Probe::Inner', ** {'count': -3, 'label': 'it\\'s \\\\ here'}), "
            "'intf': Value('Nexo::IntfId', ** {'name': 'Ethernet3/1'}), 'list': [1, 2], "
            "'vlans': [Value('Bridging::VlanId', ** {'value': 10}), Value('Bridging::VlanId', ** {'value': 20})], "
            "'byName': {'a': Value('Probe::Inner', ** {'count': 1, 'label': 'one'}), "
            "'b': Value('Probe::Inner', ** {'count': 2, 'label': 'two'})}, 'maybe': 7})");
}

TEST(Value, ScalarsPrintAsPythonLiteralsAndParseBack) {
  EXPECT_EQ(Vex::toStrep(60.0), "60.0");
  EXPECT_EQ(Vex::toStrep(1.5), "1.5");
  EXPECT_EQ(Vex::toStrep(1e16), "1e+16");
  EXPECT_EQ(Vex::toStrep(Vex::never), "inf");
  for (double d : {0.1, -0.0, 1e-7, 123456789.125, Vex::never, -Vex::never}) {
    EXPECT_EQ(Vex::fromStrep<double>(Vex::toStrep(d)), d) << d;
  }
  EXPECT_EQ(Vex::toStrep(std::string("a'b\\c\n\r\t\x01\x7f")), "'a\\'b\\\\c\\n\\r\\t\\x01\\x7f'");
  std::string allBytes;
  for (int c = 0; c < 256; ++c) allBytes += static_cast<char>(c);
  EXPECT_EQ(Vex::fromStrep<std::string>(Vex::toStrep(allBytes)), allBytes);
  EXPECT_EQ(Vex::fromStrep<std::int64_t>("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(Vex::fromStrep<bool>("False"), false);
  for (const char* bad : {"256", "-1", "1.0", "+1", "0x10"}) {
    EXPECT_THROW(Vex::fromStrep<std::uint8_t>(bad), Vex::ParseError) << bad;
  }
  EXPECT_THROW(Vex::fromStrep<bool>("true"), Vex::ParseError);
}

TEST(Value, HashContainersPrintInKeyOrderWhateverTheirHistory) {
  Probe::Hashed a, b;
  for (int i = 0; i < 40; ++i) {
    a.counts[std::to_string(i)] = static_cast<std::int8_t>(-i);
    a.ids.insert(1000 - i);
  }
  for (int i = 39; i >= 0; --i) {
    b.counts[std::to_string(i)] = static_cast<std::int8_t>(-i);
    b.ids.insert(1000 - i);
  }
  ASSERT_EQ(a, b);
  EXPECT_EQ(Vex::toStrep(a), Vex::toStrep(b));
  EXPECT_EQ(boost::hash<Probe::Hashed>()(a), boost::hash<Probe::Hashed>()(b));
  EXPECT_EQ(std::hash<Probe::Hashed>()(a), std::hash<Probe::Hashed>()(b));
  EXPECT_EQ(Vex::fromStrep<Probe::Hashed>(Vex::toStrep(a)), a);
  Probe::Hashed small;
  small.counts = {{"z", 1}, {"a", -2}};
  small.ids = {7, 3};
  EXPECT_EQ(Vex::toStrep(small), "Value('Probe::Hashed', ** {'counts': {'a': -2, 'z': 1}, 'ids': [3, 7]})");
}

TEST(Value, RoundTripsEveryField) {
  auto v = sample();
  EXPECT_EQ(Vex::fromStrep<Probe::Outer>(Vex::toStrep(v)), v);
  Probe::Outer empty;
  EXPECT_EQ(Vex::fromStrep<Probe::Outer>(Vex::toStrep(empty)), empty);
}

TEST(Value, ParsingAcceptsFieldsInAnyOrderAndSpacing) {
  auto v = Vex::fromStrep<Probe::Inner>("Value( 'Probe::Inner' , ** { 'label' : \"y\" ,'count':9 } )");
  EXPECT_EQ(v, (Probe::Inner{9, "y"}));
}

TEST(Value, BadTextNamesTheTypeAndTheText) {
  auto expectError = [](const std::string& text, const std::string& fragment) {
    try {
      Vex::fromStrep<Probe::Inner>(text);
      ADD_FAILURE() << "parsed: " << text;
    } catch (const Vex::ParseError& e) {
      std::string what = e.what();
      EXPECT_NE(what.find("cannot parse Probe::Inner from '" + text + "'"), std::string::npos) << what;
      EXPECT_NE(what.find(fragment), std::string::npos) << what;
    }
  };
  expectError("xyz", "'Value('");
  expectError("Value('Probe::Other', ** {})", "type name");
  expectError("Value('Probe::Inner', ** {'count': 'a'})", "a number");
  expectError("Value('Probe::Inner', ** {'bogus': 1})", "a field name");
  expectError("Value('Probe::Inner', ** {'count': 99999999999})", "an integer in range");
  expectError("Value('Probe::Inner', ** {'count': 1}) trailing", "end of text");
  expectError("Value('Probe::Inner', ** {'label': 'open", "a closing quote");
}

TEST(Value, NestedScalarErrorsNameTheInnerType) {
  try {
    Vex::fromStrep<Probe::Outer>("Value('Probe::Outer', ** {'intf': Value('Nexo::IntfId', ** {'name': 'Bogus7'})})");
    ADD_FAILURE();
  } catch (const Vex::ParseError& e) {
    EXPECT_NE(std::string(e.what()).find("cannot parse Nexo::IntfId"), std::string::npos) << e.what();
  }
}

TEST(Value, EnumerationsPrintThroughValueToStrep) {
  EXPECT_EQ(Vex::valueToStrep(Probe::Color::green), "green");
  EXPECT_EQ(Vex::fromStrep<Probe::Color>("'red'"), Probe::Color::red);
  EXPECT_THROW(Vex::fromStrep<Probe::Color>("'blue'"), Vex::ParseError);
  EXPECT_EQ(fmt::format("{}/{}", Probe::Color::red, Probe::Color::green), "red/green");
  // A value outside the enumeration still round-trips, as its number.
  auto stray = static_cast<Probe::Color>(9);
  EXPECT_EQ(Vex::toStrep(stray), "'9'");
  EXPECT_EQ(Vex::fromStrep<Probe::Color>(Vex::toStrep(stray)), stray);
}

TEST(Value, HashFollowsEquality) {
  boost::hash<Probe::Outer> hash;
  auto a = sample(), b = sample();
  EXPECT_EQ(hash(a), hash(b));
  b.inner.count = 4;
  EXPECT_NE(a, b);
  EXPECT_NE(hash(a), hash(b));
}

TEST(Value, FormatsWithFmtAndStreams) {
  EXPECT_EQ(fmt::format("{}", Bridging::VlanId(5)), "Value('Bridging::VlanId', ** {'value': 5})");
  std::ostringstream out;
  out << Nexo::EthAddr("00:11:22:33:44:55");
  EXPECT_EQ(out.str(), "Value('Nexo::EthAddr', ** {'addr': '00:11:22:33:44:55'})");
  EXPECT_EQ(fmt::format("{}", Probe::Inner{1, "a"}), "Value('Probe::Inner', ** {'count': 1, 'label': 'a'})");
}

TEST(Value, KeysStandardUnorderedContainers) {
  std::unordered_set<Probe::Inner> seen{{1, "a"}, {1, "a"}, {2, "a"}};
  EXPECT_EQ(seen.size(), 2u);
  std::unordered_map<Nexo::IntfId, int> byIntf{{Nexo::IntfId("Ethernet1"), 1}};
  EXPECT_EQ(byIntf.at(Nexo::IntfId("Ethernet1")), 1);
}

}  // namespace
