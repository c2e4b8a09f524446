// The time slices of long walks: how long chip operations take on
// simulated time, and whether each walk yielded within its quantum.
#include "agent/CoreFeature.h"
#include "agent/JsonOutput.h"
#include "chip/softchip/SoftChip.h"
#include "platform/vex/TimeSlice.h"

#include <fmt/format.h>

namespace Agent {

void CoreFeature::registerSliceCommands() {
  shell_.commandIs("chip operation-time", "SECONDS",
                   "how long each chip table operation takes on simulated time (0: instant)",
                   [this](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "chip operation-time SECONDS");
                     chip_->operationTimeIs(parseSeconds(args[0]));
                   });
  shell_.commandIs("slices check", "on|off", "measure every time slice against its quantum (on clears the counts)",
                   [](const Args& args, std::ostream&) {
                     expectArgs(args, 1, 1, "slices check on|off");
                     if (args[0] != "on" && args[0] != "off")
                       throw CommandError("slices check takes on or off, not '" + args[0] + "'");
                     Vex::TimeSlice::checkingIs(args[0] == "on");
                   });
  shell_.commandIs("show slices", "[json]", "time slices by walk: count, items, longest, overruns",
                   [](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show slices [json]");
                     const auto& records = Vex::TimeSlice::records();
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         w.Key("checking");
                         w.Bool(Vex::TimeSlice::checking());
                         w.Key("slices");
                         w.StartObject();
                         for (const auto& [name, r] : records) {
                           w.Key(name.c_str());
                           w.StartObject();
                           w.Key("slices");
                           w.Uint64(r.slices);
                           w.Key("items");
                           w.Uint64(r.items);
                           w.Key("quantum");
                           w.Double(r.quantum);
                           w.Key("longest");
                           w.Double(r.longest);
                           w.Key("overruns");
                           w.Uint64(r.overruns);
                           w.Key("worstExcess");
                           w.Double(r.worstExcess);
                           w.EndObject();
                         }
                         w.EndObject();
                         w.EndObject();
                       });
                       return;
                     }
                     out << fmt::format("checking {}, overruns {}\n", Vex::TimeSlice::checking() ? "on" : "off",
                                        Vex::TimeSlice::overruns());
                     out << fmt::format("{:<28} {:>8} {:>10} {:>9} {:>9} {:>8}\n", "Walk", "Slices", "Items", "Quantum",
                                        "Longest", "Overruns");
                     for (const auto& [name, r] : records) {
                       out << fmt::format("{:<28} {:>8} {:>10} {:>9.4f} {:>9.4f} {:>8}\n", name, r.slices, r.items,
                                          r.quantum, r.longest, r.overruns);
                     }
                   });
}

}  // namespace Agent
