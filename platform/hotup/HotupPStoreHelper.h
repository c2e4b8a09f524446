// The persistent store of agents restarting for an upgrade: each client
// names its store, saves a JSON document before the restart and gets it
// back at start through doRestore.
#pragma once

#include "platform/json/Json.h"
#include "platform/vex/Ptr.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Hotup {

// A store that cannot be read at all: not JSON, or an unreadable file.
class StoreError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class HotupPStoreHelper : public Vex::PtrInterface {
 public:
  explicit HotupPStoreHelper(std::string storeName) : storeName_(std::move(storeName)) {}
  const std::string& storeName() const { return storeName_; }

  // Parses `text` and hands the document to doRestore. Throws StoreError,
  // restoring nothing, when the text is not JSON.
  void restore(std::string_view text);
  // The same from a file; false, restoring nothing, when there is no file.
  bool restoreFromFile(const std::string& path);

 protected:
  virtual void doRestore(const rapidjson::Document& document) = 0;

 private:
  std::string storeName_;
};

// The text of the store file at `path`; nothing when there is no file.
// Throws StoreError when the file is there but cannot be read.
std::optional<std::string> readStoreFile(const std::string& path);

// Writes `text` to `path` whole or not at all: through a temporary file
// beside it and a rename. Throws StoreError when it cannot.
void writeStoreFile(const std::string& path, std::string_view text);

}  // namespace Hotup
