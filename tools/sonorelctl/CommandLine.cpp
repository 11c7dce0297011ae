#include "CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>

namespace sonorel::ctl {
namespace {

// In front of a word or a value, which then starts with nothing that the library knows.
constexpr char kMark = '\x01';

// The library makes a list of the items of "[a,b]", and ends the subcommand at "++". The mark
// itself is marked, so that removing one mark always yields what was typed.
bool needsMark(const std::string& text) {
    return text == "++" || (!text.empty() && (text.front() == '[' || text.front() == kMark));
}

std::string marked(const std::string& text) {
    return kMark + text;
}

std::string protect(const std::string& word) {
    if (needsMark(word)) return marked(word);
    const size_t equals = word.find('=');
    if (word.compare(0, 2, "--") != 0 || equals == std::string::npos) return word;
    // "--name=" would take the next word as its value.
    const std::string value = word.substr(equals + 1);
    if (!value.empty() && !needsMark(value)) return word;
    return word.substr(0, equals + 1) + marked(value);
}

}  // namespace

CommandLine readCommandLine(int argc, char** argv) {
    const std::vector<std::string> typed(argv + std::min(argc, 1), argv + argc);
    const auto mark = std::find(typed.begin(), typed.end(), "--");
    CommandLine line;
    std::transform(typed.begin(), mark, std::back_inserter(line.words), protect);
    if (mark != typed.end()) {
        std::transform(mark + 1, typed.end(), std::back_inserter(line.words), marked);
        line.behindMark = static_cast<size_t>(typed.end() - mark) - 1;
    }
    std::reverse(line.words.begin(), line.words.end());
    return line;
}

void takeTextsAsTyped(CLI::App& app) {
    for (CLI::Option* const option : app.get_options()) {
        // Runs before the checks of the option.
        option->transform(CLI::Validator(
                [](std::string& text) {
                    if (!text.empty() && text.front() == kMark) text.erase(0, 1);
                    return std::string();  // no complaint
                },
                ""));
    }
    for (CLI::App* const verb : app.get_subcommands(nullptr))
        takeTextsAsTyped(*verb);
}

std::string withoutMarks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), kMark), text.end());
    return text;
}

}  // namespace sonorel::ctl
