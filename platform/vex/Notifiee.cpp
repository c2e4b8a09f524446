#include "platform/vex/Notifiee.h"

#include <algorithm>

namespace Vex {

void NotifieeList::remove(NotifieeBase* n) {
  auto it = std::find(list_.begin(), list_.end(), n);
  if (it == list_.end()) return;
  if (depth_ > 0) {
    *it = nullptr;
    holes_ = true;
  } else {
    list_.erase(it);
  }
}

std::size_t NotifieeList::size() const {
  return static_cast<std::size_t>(std::count_if(list_.begin(), list_.end(), [](auto* n) { return n != nullptr; }));
}

void NotifieeList::sweep() {
  list_.erase(std::remove(list_.begin(), list_.end(), nullptr), list_.end());
  holes_ = false;
}

}  // namespace Vex
