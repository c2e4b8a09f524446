// Intrusive counted pointers: the only way entities and state machines are
// held. Nobody frees explicitly; an object goes when its last Ptr goes.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <utility>

#ifdef VEX_THREADSAFE_PTR
#include <atomic>
#endif

namespace Vex {

template <class T>
using Ptr = boost::intrusive_ptr<T>;

class PtrInterface {
 public:
  PtrInterface() = default;
  // A copy is a new object: it starts with no references of its own.
  PtrInterface(const PtrInterface&) {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }
  virtual ~PtrInterface() = default;

  long references() const { return references_; }

  // Called when the last reference goes; the default deletes the object.
  virtual void zeroReferencesIs(bool zero) {
    if (zero) delete this;
  }

  friend void intrusive_ptr_add_ref(const PtrInterface* p) { ++p->references_; }
  friend void intrusive_ptr_release(const PtrInterface* p) {
    if (--p->references_ == 0) const_cast<PtrInterface*>(p)->zeroReferencesIs(true);
  }

 private:
#ifdef VEX_THREADSAFE_PTR
  mutable std::atomic<long> references_{0};
#else
  mutable long references_ = 0;
#endif
};

// Every factory (`xFactory(...)`) is a thin wrapper over this.
template <class T, class... Args>
Ptr<T> make(Args&&... args) {
  return Ptr<T>(new T(std::forward<Args>(args)...));
}

}  // namespace Vex
