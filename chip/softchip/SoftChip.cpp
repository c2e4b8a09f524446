#include "chip/softchip/SoftChip.h"

#include <stdexcept>

namespace SoftChip {

void SoftChip::tableIs(SoftTable* table) {
  tables_[table->name()] = table;
  ++tablesGeneration_;
}

void SoftChip::tableDel(SoftTable* table) {
  auto it = tables_.find(table->name());
  if (it != tables_.end() && it->second == table) tables_.erase(it);
  ++tablesGeneration_;
}

SoftTable* SoftChip::table(std::string_view name) const {
  auto it = tables_.find(name);
  return it == tables_.end() ? nullptr : it->second;
}

SoftTable& SoftChip::tableNamed(std::string_view name) const {
  if (SoftTable* found = table(name)) return *found;
  std::string names;
  for (const auto& [known, table] : tables_) names += (names.empty() ? "" : ", ") + known;
  throw std::invalid_argument("the chip has no table '" + std::string(name) + "' (tables: " + names + ")");
}

std::vector<std::string> SoftChip::tableNames() const {
  std::vector<std::string> names;
  for (const auto& [name, table] : tables_) names.push_back(name);
  return names;
}

std::size_t SoftChip::pendingAcks() const {
  std::size_t pending = 0;
  for (const auto& [name, table] : tables_) pending += table->pendingAcks();
  return pending;
}

std::string SoftChip::json() const {
  rapidjson::StringBuffer buffer;
  JsonWriter writer(buffer);
  writer.StartObject();
  writer.Key("tables");
  writer.StartObject();
  for (const auto& [name, table] : tables_) {
    writer.Key(name.c_str());
    table->dump(writer);
  }
  writer.EndObject();
  writer.Key("pendingAcks");
  writer.Uint64(pendingAcks());
  writer.EndObject();
  return buffer.GetString();
}

Vex::Ptr<SoftChip> softChipFactory() { return Vex::make<SoftChip>(); }

}  // namespace SoftChip
