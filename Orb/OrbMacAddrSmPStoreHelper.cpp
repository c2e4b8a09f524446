#include "Orb/OrbMacAddrSmPStoreHelper.h"

#include "Orb/OrbAssert.h"
#include "Orb/OrbTrace.h"
#include "platform/vex/Time.h"
#include "platform/vex/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace Orb {

namespace {

Blip::Handle& trace() {
  static Blip::Handle& handle = orbTraceHandle("OrbMacAddrSmPStoreHelper");
  return handle;
}

}  // namespace

std::string pStoreAddrText(const Nexo::EthAddr& addr) {
  std::uint64_t value = addr.value();
  return fmt::format("{:04x}.{:04x}.{:04x}", (value >> 32) & 0xffff, (value >> 16) & 0xffff, value & 0xffff);
}

bool pStoreAddrParse(const char* text, Nexo::EthAddr& addr) {
  unsigned high = 0, middle = 0, low = 0;
  int consumed = 0;
  if (std::sscanf(text, "%x.%x.%x%n", &high, &middle, &low, &consumed) != 3 || text[consumed] != '\0') return false;
  if (high > 0xffff || middle > 0xffff || low > 0xffff) return false;
  addr = Nexo::EthAddr((std::uint64_t(high) << 32) | (std::uint64_t(middle) << 16) | low);
  return true;
}

void MacAddrSmPStoreHelper::doRestore(const rapidjson::Document& document) {
  for (const auto& member : document.GetObject()) {
    std::string key = member.name.GetString();
    ORB_ASSERT(key == "fdbStatus");
    const rapidjson::Value& fdbEntries = member.value;
    ORB_ASSERT(fdbEntries.GetType() == rapidjson::kObjectType);
    for (const auto& fidMember : fdbEntries.GetObject()) {
      int id = std::stoi(fidMember.name.GetString());
      if (id < 0) throw Vex::RangeError(fmt::format("filtering id {} out of range", id));
      auto fid = Bridging::Fid::fromVexRep(static_cast<std::uint32_t>(id));
      auto fdb = bridgingStatus_->fdbStatusIs(fid);
      std::size_t count = 0;
      for (const auto& record : fidMember.value.GetArray()) {
        const auto& fields = record.GetArray();
        ORB_ASSERT(fields.Size() >= 2);
        Nexo::EthAddr addr;
        const char* addrText = fields[0].GetString();
        ORB_ASSERT(pStoreAddrParse(addrText, addr));
        Nexo::IntfId intf(std::string_view(fields[1].GetString(), fields[1].GetStringLength()));
        Bridging::LearnedHost host{intf, Bridging::EntryType::entryDynamic, {}, Vex::now()};
        BLIP(trace(), 8, "Adding {} {} to fdbStatus.", addr.stringValue(), intf.stringValue());
        fdb->learnedHostIs(addr, host);
        ++count;
      }
      BLIP(trace(), 5, "Added {} in fid {}", count, id);
    }
  }
}

Vex::Ptr<MacAddrSmPStoreHelper> macAddrSmPStoreHelperFactory(const Vex::Ptr<Bridging::Status>& bridgingStatus) {
  return Vex::make<MacAddrSmPStoreHelper>(bridgingStatus);
}

std::string macAddrSmPStoreDocument(const Bridging::Status& status) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  std::vector<Bridging::Fid> fids;
  for (const auto& [fid, fdb] : status.fdbStatus()) fids.push_back(fid);
  std::sort(fids.begin(), fids.end());
  writer.StartObject();
  writer.Key("fdbStatus");
  writer.StartObject();
  std::vector<std::pair<Nexo::EthAddr, const Bridging::LearnedHost*>> hosts;
  for (auto fid : fids) {
    hosts.clear();
    for (const auto& [addr, host] : status.fdbStatus(fid)->learnedHost()) {
      if (host.entryType == Bridging::EntryType::entryDynamic) hosts.emplace_back(addr, &host);
    }
    if (hosts.empty()) continue;
    std::sort(hosts.begin(), hosts.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string name = std::to_string(fid.value());
    writer.Key(name.c_str(), static_cast<rapidjson::SizeType>(name.size()));
    writer.StartArray();
    for (const auto& [addr, host] : hosts) {
      writer.StartArray();
      writer.String(pStoreAddrText(addr));
      writer.String(host->intf.stringValue());
      writer.EndArray();
    }
    writer.EndArray();
  }
  writer.EndObject();
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace Orb
