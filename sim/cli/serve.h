#pragma once
// What every `vmio-sim MAKE` run shares: read the options, start the device, then serve until
// stopped while standard input changes its states.
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vmio::sim::cli {

// Answers one control line from standard input with a line to print, or "" for none.
using LineControl = std::function<std::string(const std::string& line)>;

// Takes the option at args[i], moving i past any value it takes. Returns false for an option it
// does not know, or for a bad value once i is on it; throws std::invalid_argument with the whole
// message when it has a better one.
using OptionReader = std::function<bool(const std::vector<std::string>& args, size_t& i)>;

// Reads a make's options through read_option, answering --help and -h with help. Returns the exit
// code when the run ends here: 0 after the help, 2 after a bad option (message and usage go to
// standard error). Returns nothing when the simulator should start.
std::optional<int> ReadOptions(std::string_view make, std::string_view help, std::string_view usage,
                               const std::vector<std::string>& args, const OptionReader& read_option);

// Prints "vmio-sim MAKE: MESSAGE" and the usage to standard error; returns 2, the exit code of a
// bad command line.
int BadCommandLine(std::string_view make, std::string_view message, std::string_view usage);

// "bad argument 'TEXT'": what a bad option or value is reported as.
std::invalid_argument BadArgument(const std::string& text);

// The value after the option at args[i], moving i onto it; throws BadArgument(option) when the
// option comes last.
const std::string& TakeValue(const std::vector<std::string>& args, size_t& i);

// A whole decimal number, 0 or more; throws BadArgument(text) for anything else.
int ParseCount(const std::string& text);

// HOST:PORT into host and port (0 to 65535); throws std::invalid_argument otherwise.
void ParseListen(const std::string& value, std::string& host, int& port);

// Runs start, which starts the simulator and returns what to give Connect, then serves it. When
// start throws, prints "vmio-sim MAKE: WHY" and returns 1.
int StartAndServe(std::string_view make, const std::function<std::string()>& start, const LineControl& control);

// Prints "device: DEVICE" (what to give Connect), then serves until SIGINT or SIGTERM.
// Meanwhile each line read from standard input goes to control (to change input states while
// running). The end of standard input does not stop the simulator.
int ServeUntilStopped(const std::string& device, const LineControl& control);

}  // namespace vmio::sim::cli
