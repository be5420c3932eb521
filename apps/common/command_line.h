// The habits every command line tool of the project shares: options parsed by CLI11, with ranges
// and checks declared beside each option; "--name value" and "--name=value"; --help with every
// option and its default; --version; one line naming the option for a usage error, status 2.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

constexpr int ExitFailed = 1, ExitUsage = 2, ExitInterrupted = 130;

// What a command line asks for: a run, or an answer and the status to exit with.
struct CommandLineOutcome {
    bool run = false;
    int status = 0;    // without a run: 0 for an answer, ExitUsage for a usage error
    std::string text;  // the answer (stdout) or the usage error (stderr), ready to print
};

// A tool's command line with the options every tool has.
class CommandLine {
public:
    CommandLine(const char* program, const char* summary, const char* footer);

    CLI::App app;

    // A whole number from lo to hi; the range shows in --help and in the message of a bad value.
    CLI::Option* Whole(const std::string& name, int& value, int lo, int hi,
                       const std::string& description);
    // A finite number above lo (or from lo, where lo is included) up to hi.
    CLI::Option* Real(const std::string& name, double& value, double lo, bool loIncluded,
                      double hi, const std::string& description);
    // A value out of a fixed list of words.
    CLI::Option* Word(const std::string& name, std::string& value,
                      const std::vector<std::string>& words, const std::string& description);
    // A file or folder name (completed as one).
    CLI::Option* Path(const std::string& name, std::string& value, const std::string& typeName,
                      const std::string& description);

    // Parses; `check` may refuse a combination of options with a reason. The answer to --help,
    // --version or --bash-completion, or a usage error, comes back as text.
    CommandLineOutcome Parse(int argc, const char* const* argv,
                             const std::function<std::string()>& check = nullptr);

private:
    std::string program;
    bool completion = false;
};

// Prints the outcome's text where it belongs; the status to exit with.
int PrintOutcome(const CommandLineOutcome& outcome);
