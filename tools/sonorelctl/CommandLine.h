#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace sonorel::ctl {

// The words of a command line.
struct CommandLine {
    // In the order in which CLI::App::parse takes them, the last one first. Words that the
    // command-line library would take apart are marked, and the first "--" is left out: what stands
    // behind it is marked as well, so that it is never taken for an option.
    std::vector<std::string> words;
    // How many of them stood behind the "--".
    size_t behindMark = 0;
};
CommandLine readCommandLine(int argc, char** argv);

// Gives every option of `app` and of its subcommands its texts as they were typed: without the mark
// of readCommandLine. Call it once all options are there.
void takeTextsAsTyped(CLI::App& app);

// What the library says about a word, without the marks.
std::string withoutMarks(std::string text);

}  // namespace sonorel::ctl
