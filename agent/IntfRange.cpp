#include "agent/IntfRange.h"

#include "agent/CommandShell.h"

#include <cctype>

namespace Agent {

namespace {

bool allDigits(const std::string& text) {
  if (text.empty()) return false;
  for (char c : text) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

Nexo::IntfId intf(const std::string& name) {
  try {
    return Nexo::IntfId(name);
  } catch (const std::exception&) {
    throw CommandError("bad interface '" + name + "'");
  }
}

}  // namespace

std::vector<Nexo::IntfId> parseIntfRange(const std::string& text) {
  std::vector<Nexo::IntfId> out;
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t comma = text.find(',', start);
    std::string item = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    start = comma == std::string::npos ? text.size() + 1 : comma + 1;
    if (item.empty()) throw CommandError("empty interface in '" + text + "'");
    // "Ethernet1-4": a dash followed only by digits closes a range.
    std::size_t dash = item.rfind('-');
    if (dash != std::string::npos && allDigits(item.substr(dash + 1))) {
      std::size_t digits = dash;
      while (digits > 0 && std::isdigit(static_cast<unsigned char>(item[digits - 1]))) --digits;
      if (digits == dash) throw CommandError("bad interface range '" + item + "'");
      std::string prefix = item.substr(0, digits);
      std::string firstText = item.substr(digits, dash - digits), lastText = item.substr(dash + 1);
      long first = parseInteger(firstText, 0, 65534);
      long last = parseInteger(lastText, 0, 65534);
      // The ends stand for names, which take no leading zeros ("Ethernet01").
      bool spelledAsNames = std::to_string(first) == firstText && std::to_string(last) == lastText;
      if (!spelledAsNames || last < first || last - first > 4096) {
        throw CommandError("bad interface range '" + item + "'");
      }
      for (long n = first; n <= last; ++n) out.push_back(intf(prefix + std::to_string(n)));
    } else {
      out.push_back(intf(item));
    }
  }
  return out;
}

std::string intfsText(const std::set<Nexo::IntfId>& intfs) {
  std::string text;
  for (const auto& intf : intfs) {
    if (!text.empty()) text += ' ';
    text += intf.stringValue();
  }
  return text.empty() ? "-" : text;
}

}  // namespace Agent
