// The agent's command language: one command per line, shared by the
// interactive shell and scenario files. Features register their
// configuration, chip-event and show commands here.
#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace Agent {

// A command's complaint about its input: the line is refused, nothing else.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Args = std::vector<std::string>;

class CommandShell {
 public:
  // Runs with the words after the command's own words.
  using Handler = std::function<void(const Args& args, std::ostream& out)>;

  // `words` is the command's fixed leading words ("show version"); `usage`
  // the rest of its syntax, for help.
  void commandIs(const std::string& words, const std::string& usage, const std::string& help, Handler handler);
  // Adds a form to a command another feature registers (before or after):
  // `handler` runs the lines `mine` accepts; the others go to the forms
  // added before it, then to the command itself.
  void commandFormIs(const std::string& words, const std::string& usage, std::function<bool(const Args&)> mine,
                     Handler handler);

  // Runs one line. Blank lines and `#` comments do nothing. Throws
  // CommandError on an unknown command or bad arguments.
  void execute(const std::string& line, std::ostream& out);

  void help(std::ostream& out) const;
  bool quitRequested() const { return quit_; }
  void quitIs(bool quit) { quit_ = quit; }

  static Args split(const std::string& line);

 private:
  struct Form {
    std::string usage;
    std::function<bool(const Args&)> mine;
    Handler handler;
  };
  struct Command {
    Args words;
    std::string usage;
    std::string help;
    Handler handler;  // none while only forms are registered
    std::vector<Form> forms;
    void run(const Args& args, std::ostream& out) const;
    std::string fullUsage() const;
  };
  std::map<std::string, Command> commands_;
  bool quit_ = false;
};

// Argument helpers that throw CommandError with a one-line reason.
double parseSeconds(const std::string& text);
long parseInteger(const std::string& text, long min, long max);
void expectArgs(const Args& args, std::size_t min, std::size_t max, const std::string& usage);

}  // namespace Agent
