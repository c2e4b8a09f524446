// Printing and parsing of value types, with nesting, containers and bad text.
#include "platform/vex/Value.h"
#include "platform/types/Bridging.h"
#include "platform/types/Nexo.h"
#include "platform/vex/Time.h"

#include <gtest/gtest.h>
#include <boost/describe/enum.hpp>

#include <map>
#include <optional>
#include <set>
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

TEST(Value, DoublesPrintAsPythonFloats) {
  EXPECT_EQ(Vex::detail::doubleText(60.0), "60.0");
  EXPECT_EQ(Vex::detail::doubleText(1.5), "1.5");
  EXPECT_EQ(Vex::detail::doubleText(Vex::never), "inf");
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
}

}  // namespace
