// The MAC store document on the restore path. A document of the wrong form
// stops the process by design (the JSON library's and the helper's
// assertions), so such documents are recognised here and skipped; every
// other document either restores or raises an exception with a message.
// What restored saves a document that restores to the same table.
#include "Orb/OrbMacAddrSmPStoreHelper.h"
#include "platform/vex/EventLoop.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

// The form the restore asserts: {"fdbStatus": {ID: [[ADDR, INTF, ...], ...]}}
// with string addresses in dotted groups and string interface names.
bool hasRestorableForm(const std::string& input) {
  rapidjson::Document parsed;
  parsed.Parse(input.data(), input.size());
  if (parsed.HasParseError()) return true;  // refused as a whole: StoreError
  const rapidjson::Document& document = parsed;
  if (!document.IsObject()) return false;
  for (const auto& member : document.GetObject()) {
    if (std::string_view(member.name.GetString(), member.name.GetStringLength()) != "fdbStatus") return false;
    if (!member.value.IsObject()) return false;
    for (const auto& fid : member.value.GetObject()) {
      if (!fid.value.IsArray()) return false;
      for (const auto& record : fid.value.GetArray()) {
        if (!record.IsArray() || record.Size() < 2 || !record[0].IsString() || !record[1].IsString()) return false;
        Nexo::EthAddr addr;
        if (!Orb::pStoreAddrParse(record[0].GetString(), addr)) return false;
      }
    }
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input = Fuzz::text(data, size);
  if (!hasRestorableForm(input)) return 0;
  Vex::EventLoop loop;
  auto status = Vex::make<Bridging::Status>("status");
  try {
    Orb::macAddrSmPStoreHelperFactory(status)->restore(input);
  } catch (const std::exception& e) {
    Fuzz::check(*e.what() != '\0', "a refusal without a message", input);
    return 0;
  }
  std::string saved = Orb::macAddrSmPStoreDocument(*status);
  auto again = Vex::make<Bridging::Status>("again");
  try {
    Orb::macAddrSmPStoreHelperFactory(again)->restore(saved);
  } catch (const std::exception& e) {
    Fuzz::fail("saved document does not restore: " + saved + ": " + e.what(), input);
  }
  Fuzz::check(again->learnedHostCount() == status->learnedHostCount(), "restore of the saved document lost hosts",
              input);
  Fuzz::check(Orb::macAddrSmPStoreDocument(*again) == saved, "saved document restores to another table: " + saved,
              input);
  return 0;
}
