// Commands that make a scenario check itself: `expect` runs a command and
// fails the line unless its output holds a text, and `show logging` lists
// the log events raised so far, so that scenarios can expect those too.
#include "agent/CoreFeature.h"
#include "agent/JsonOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

namespace Agent {

namespace {

// Runs of blanks become one space, so that expectations need not copy a
// table's column padding.
std::string squeezeBlanks(const std::string& text) {
  std::string result;
  bool blank = false;
  for (char c : text) {
    if (c == ' ' || c == '\t') {
      blank = true;
      continue;
    }
    if (blank && !result.empty() && result.back() != '\n' && c != '\n') result += ' ';
    blank = false;
    result += c;
  }
  return result;
}

struct Expectation {
  std::string command;
  std::string text;
};

Expectation splitExpectation(const Args& args, const std::string& usage) {
  auto tilde = std::find(args.begin(), args.end(), "~");
  if (tilde == args.begin() || tilde == args.end() || tilde + 1 == args.end()) throw CommandError("usage: " + usage);
  Expectation e;
  for (auto it = args.begin(); it != tilde; ++it) e.command += (it == args.begin() ? "" : " ") + *it;
  for (auto it = tilde + 1; it != args.end(); ++it) e.text += (it == tilde + 1 ? "" : " ") + *it;
  return e;
}

}  // namespace

void RecentLogSink::write(const Log::EventDef& def, const Log::Event& event) {
  Log::StderrSink().write(def, event);
  if (lines_.size() == capacity) lines_.pop_front();
  lines_.push_back({Vex::EventLoop::current() ? Vex::EventLoop::current()->now() : 0.0, event});
}

void CoreFeature::registerCheckCommands() {
  auto expectation = [this](bool wanted, const std::string& usage) {
    return [this, wanted, usage](const Args& args, std::ostream&) {
      auto e = splitExpectation(args, usage);
      std::ostringstream output;
      shell_.execute(e.command, output);
      loop_->runUntilIdle();
      bool found = squeezeBlanks(output.str()).find(squeezeBlanks(e.text)) != std::string::npos;
      if (found == wanted) return;
      throw CommandError(fmt::format("expected '{}' {}in the output of '{}', which was:\n{}", e.text,
                                     wanted ? "" : "not ", e.command, output.str()));
    };
  };
  shell_.commandIs("expect", "COMMAND... ~ TEXT...", "fail unless the command's output holds the text",
                   expectation(true, "expect COMMAND... ~ TEXT..."));
  shell_.commandIs("expect-not", "COMMAND... ~ TEXT...", "fail when the command's output holds the text",
                   expectation(false, "expect-not COMMAND... ~ TEXT..."));
  shell_.commandIs("show logging", "[json]", "the log events raised since the start, oldest first",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "show logging [json]");
                     if (!json) {
                       for (const auto& [time, event] : logSink_->lines())
                         out << fmt::format("{:.3f} %{}: {}\n", time, event.id, event.message);
                       return;
                     }
                     printJson(out, [&](JsonWriter& w) {
                       w.StartArray();
                       for (const auto& [time, event] : logSink_->lines()) {
                         w.StartObject();
                         w.Key("time");
                         w.Double(time);
                         w.Key("id");
                         w.String(event.id);
                         w.Key("message");
                         w.String(event.message);
                         w.EndObject();
                       }
                       w.EndArray();
                     });
                   });
  shell_.commandIs("verify", "[json]", "compare what the machines hold with the chip; one line per difference",
                   [this](Args args, std::ostream& out) {
                     bool json = takeJsonFlag(args);
                     expectArgs(args, 0, 0, "verify [json]");
                     const auto& data = ocsd_->verifyData();
                     data->requestIdInc();
                     loop_->runUntilIdle();
                     if (json) {
                       printJson(out, [&](JsonWriter& w) {
                         w.StartObject();
                         for (const auto& [check, lines] : data->output()) {
                           w.Key(check.c_str());
                           w.StartArray();
                           for (const auto& line : lines) w.String(line.c_str());
                           w.EndArray();
                         }
                         w.EndObject();
                       });
                       return;
                     }
                     std::size_t differences = 0;
                     for (const auto& [check, lines] : data->output()) {
                       for (const auto& line : lines) out << check << ": " << line << "\n";
                       differences += lines.size();
                     }
                     out << fmt::format("verify: {} difference{}\n", differences, differences == 1 ? "" : "s");
                   });
  shell_.commandIs("clear logging", "", "forget the log events raised so far", [this](const Args& args, std::ostream&) {
    expectArgs(args, 0, 0, "clear logging");
    logSink_->clear();
  });
}

}  // namespace Agent
