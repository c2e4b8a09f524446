// `show ... json`: every show command takes a trailing `json` and then
// prints one JSON document instead of its table, so scripts need not parse
// tables.
#pragma once

#include "agent/CommandShell.h"
#include "platform/json/Json.h"

#include <functional>
#include <ostream>

namespace Agent {

using JsonWriter = rapidjson::PrettyWriter<rapidjson::StringBuffer>;

// True when the last argument is `json`, which is then removed.
inline bool takeJsonFlag(Args& args) {
  if (args.empty() || args.back() != "json") return false;
  args.pop_back();
  return true;
}

// Prints the document that `body` writes, followed by a newline.
inline void printJson(std::ostream& out, const std::function<void(JsonWriter&)>& body) {
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.SetIndent(' ', 2);
  body(writer);
  out << buffer.GetString() << "\n";
}

}  // namespace Agent
