#include "agent/CommandShell.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

namespace Agent {

void CommandShell::commandIs(const std::string& words, const std::string& usage, const std::string& help,
                             Handler handler) {
  Command& command = commands_[words];
  command.words = split(words);
  command.usage = usage;
  command.help = help;
  command.handler = std::move(handler);
}

void CommandShell::commandFormIs(const std::string& words, const std::string& usage,
                                 std::function<bool(const Args&)> mine, Handler handler) {
  Command& command = commands_[words];
  if (command.words.empty()) command.words = split(words);
  command.forms.push_back({usage, std::move(mine), std::move(handler)});
}

void CommandShell::Command::run(const Args& args, std::ostream& out) const {
  for (auto form = forms.rbegin(); form != forms.rend(); ++form) {
    if (form->mine(args)) {
      form->handler(args, out);
      return;
    }
  }
  if (handler) {
    handler(args, out);
  } else if (!forms.empty()) {
    forms.front().handler(args, out);
  }
}

std::string CommandShell::Command::fullUsage() const {
  std::string text = usage;
  for (const auto& form : forms) text += (text.empty() ? "" : " | ") + form.usage;
  return text;
}

Args CommandShell::split(const std::string& line) {
  Args words;
  std::istringstream in(line);
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

void CommandShell::execute(const std::string& line, std::ostream& out) {
  std::string text = line.substr(0, line.find('#'));
  Args words = split(text);
  if (words.empty()) return;
  // The command with the most leading words that match wins.
  const Command* best = nullptr;
  for (const auto& [name, command] : commands_) {
    if (command.words.size() > words.size()) continue;
    if (!std::equal(command.words.begin(), command.words.end(), words.begin())) continue;
    if (!best || command.words.size() > best->words.size()) best = &command;
  }
  if (!best) throw CommandError("unknown command '" + words[0] + "' (try 'help')");
  Args args(words.begin() + static_cast<std::ptrdiff_t>(best->words.size()), words.end());
  best->run(args, out);
}

void CommandShell::help(std::ostream& out) const {
  for (const auto& [name, command] : commands_) {
    const std::string usage = command.fullUsage();
    std::string syntax = name + (usage.empty() ? "" : " " + usage);
    out << "  " << syntax;
    if (syntax.size() < 44) out << std::string(44 - syntax.size(), ' ');
    out << "  " << command.help << "\n";
  }
}

double parseSeconds(const std::string& text) {
  double value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(value) || value < 0) {
    throw CommandError("bad number of seconds '" + text + "'");
  }
  return value;
}

long parseInteger(const std::string& text, long min, long max) {
  long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) throw CommandError("bad number '" + text + "'");
  if (value < min || value > max) {
    throw CommandError("'" + text + "' is out of range " + std::to_string(min) + " to " + std::to_string(max));
  }
  return value;
}

void expectArgs(const Args& args, std::size_t min, std::size_t max, const std::string& usage) {
  if (args.size() < min || args.size() > max) throw CommandError("usage: " + usage);
}

}  // namespace Agent
