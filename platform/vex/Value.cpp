#include "platform/vex/Value.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace Vex::detail {

std::string quote(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    switch (c) {
      case '\'':
        out += "\\'";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
          out += fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
        } else {
          out += c;
        }
    }
  }
  return out + "'";
}

// Python's repr of a float: shortest round trip, always with a point.
std::string doubleText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  std::string text = fmt::format("{}", value);
  if (text.find_first_of(".en") == std::string::npos) text += ".0";
  return text;
}

void Parser::fail(const std::string& expected) const {
  std::string rest(text_.substr(std::min(pos_, text_.size()), 40));
  throw ParseError(fmt::format("cannot parse {} from '{}': expected {} at offset {} ('{}')", typeName_, text_, expected,
                               pos_, rest));
}

void Parser::skipSpace() {
  while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
}

bool Parser::consume(std::string_view token) {
  skipSpace();
  if (text_.substr(pos_, token.size()) != token) return false;
  pos_ += token.size();
  return true;
}

void Parser::expect(std::string_view token) {
  if (!consume(token)) fail("'" + std::string(token) + "'");
}

bool Parser::atEnd() {
  skipSpace();
  return pos_ == text_.size();
}

std::string Parser::parseString() {
  skipSpace();
  if (pos_ >= text_.size() || (text_[pos_] != '\'' && text_[pos_] != '"')) fail("a quoted string");
  char delimiter = text_[pos_++];
  std::string out;
  while (pos_ < text_.size() && text_[pos_] != delimiter) {
    char c = text_[pos_++];
    if (c != '\\') {
      out += c;
      continue;
    }
    if (pos_ >= text_.size()) fail("an escaped character");
    char e = text_[pos_++];
    switch (e) {
      case 'n':
        out += '\n';
        break;
      case 't':
        out += '\t';
        break;
      case 'r':
        out += '\r';
        break;
      case 'x': {
        if (pos_ + 2 > text_.size()) fail("two hex digits");
        unsigned value = 0;
        auto [end, ec] = std::from_chars(text_.data() + pos_, text_.data() + pos_ + 2, value, 16);
        if (ec != std::errc() || end != text_.data() + pos_ + 2) fail("two hex digits");
        out += static_cast<char>(value);
        pos_ += 2;
        break;
      }
      default:
        out += e;
    }
  }
  if (pos_ >= text_.size()) fail("a closing quote");
  ++pos_;
  return out;
}

std::string Parser::parseNumberText() {
  skipSpace();
  std::size_t start = pos_;
  while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '-' ||
                                 text_[pos_] == '+' || text_[pos_] == '.')) {
    ++pos_;
  }
  if (start == pos_) fail("a number");
  return std::string(text_.substr(start, pos_ - start));
}

bool Parser::parseBool() {
  if (consume("True")) return true;
  if (consume("False")) return false;
  fail("True or False");
}

double parseDouble(Parser& in) {
  std::string text = in.parseNumberText();
  if (text == "inf") return INFINITY;
  if (text == "-inf") return -INFINITY;
  if (text == "nan") return NAN;
  double value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) in.fail("a number, not '" + text + "'");
  return value;
}

}  // namespace Vex::detail
