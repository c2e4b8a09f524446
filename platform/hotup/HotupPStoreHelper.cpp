#include "platform/hotup/HotupPStoreHelper.h"

#include <rapidjson/error/en.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace Hotup {

void HotupPStoreHelper::restore(std::string_view text) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  if (document.HasParseError()) {
    throw StoreError("store " + storeName_ + ": " + rapidjson::GetParseError_En(document.GetParseError()) +
                     " at offset " + std::to_string(document.GetErrorOffset()));
  }
  doRestore(document);
}

bool HotupPStoreHelper::restoreFromFile(const std::string& path) {
  auto text = readStoreFile(path);
  if (!text) return false;
  restore(*text);
  return true;
}

std::optional<std::string> readStoreFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    if (errno == ENOENT) return std::nullopt;
    throw StoreError("cannot read " + path + ": " + std::strerror(errno));
  }
  std::ostringstream text;
  text << file.rdbuf();
  if (file.bad()) throw StoreError("cannot read " + path + ": " + std::strerror(errno));
  return text.str();
}

void writeStoreFile(const std::string& path, std::string_view text) {
  std::string temporary = path + ".tmp";
  {
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.flush();
    if (!file) throw StoreError("cannot write " + temporary + ": " + std::strerror(errno));
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    throw StoreError("cannot rename " + temporary + " to " + path + ": " + std::strerror(errno));
  }
}

}  // namespace Hotup
