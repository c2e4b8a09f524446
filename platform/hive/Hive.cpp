#include "platform/hive/Hive.h"

namespace Hive {

std::vector<std::string> Root::paths(const std::string& prefix) const {
  std::vector<std::string> out;
  for (auto it = entity().lower_bound(prefix); it != entity().end(); ++it) {
    if (it->first.compare(0, prefix.size(), prefix) != 0) break;
    if (prefix.empty() || it->first.size() == prefix.size() || it->first[prefix.size()] == '/' ||
        prefix.back() == '/') {
      out.push_back(it->first);
    }
  }
  return out;
}

Vex::Ptr<Root> rootFactory() { return Vex::make<Root>(); }

}  // namespace Hive
