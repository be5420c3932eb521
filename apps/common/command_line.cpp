#include "apps/common/command_line.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

// A value from the command line as a message shows it: short, and nothing that would act on the
// terminal.
std::string Shown(const std::string& text) {
    std::string shown;
    for (unsigned char c : text.substr(0, 40))
        shown += c >= 0x20 && c < 0x7F ? std::string(1, char(c)) : "?";
    return text.size() > 40 ? shown + "..." : shown;
}

std::string NumberText(double x) {
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", x);
    return text;
}

// Digits behind an optional sign.
bool IsWholeNumber(const std::string& text) {
    size_t digits = !text.empty() && (text[0] == '+' || text[0] == '-') ? 1 : 0;
    return text.size() > digits &&
           text.find_first_not_of("0123456789", digits) == std::string::npos;
}

constexpr size_t HelpWidth = 80, OptionColumn = 24;

// Words of text in lines that fit beside the option column; a newline in the text stands.
std::string Wrapped(const std::string& text, size_t width) {
    std::string out, line, word;
    auto flushLine = [&] {
        out += line;
        line.clear();
    };
    std::istringstream paragraphs(text);
    std::string paragraph;
    bool firstParagraph = true;
    while (std::getline(paragraphs, paragraph)) {
        if (!firstParagraph) out += "\n";
        firstParagraph = false;
        std::istringstream words(paragraph);
        while (words >> word) {
            if (!line.empty() && line.size() + 1 + word.size() > width) {
                flushLine();
                out += "\n";
            }
            line += (line.empty() ? "" : " ") + word;
        }
        flushLine();
    }
    return out;
}

// The project's help: usage first (where manual page tools look for it), then the summary, the
// options with their texts wrapped to the terminal's customary width.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_description(const CLI::App*) const override { return ""; }
    std::string make_usage(const CLI::App* app, std::string name) const override {
        return CLI::Formatter::make_usage(app, name) + "\n" +
               Wrapped(app->get_description(), HelpWidth) + "\n";
    }
    std::string make_footer(const CLI::App* app) const override {
        return Wrapped(app->get_footer(), HelpWidth) + "\n";
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        return Wrapped(CLI::Formatter::make_option_desc(option), HelpWidth - OptionColumn);
    }
};

std::string FileCompletion(const std::string& typeName) {
    return typeName == "DIR" || typeName == "MAPDIR" || typeName == "OUTDIR" ? "_filedir -d"
                                                                              : "_filedir";
}

}  // namespace

CommandLine::CommandLine(const char* name, const char* summary, const char* footer)
    : app(summary, name), program(name) {
    app.footer(footer);
    app.set_version_flag("--version", std::string(name) + " " TENEBRIX_VERSION,
                         "the program's version");
    app.set_help_flag("-h,--help", "this text");
    app.add_flag("--bash-completion", completion,
                 "print the bash completion script of the options")
        ->group("");
    app.allow_extras();  // an unknown word gets our own message below
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(OptionColumn);
    app.formatter(formatter);
}

CLI::Option* CommandLine::Whole(const std::string& name, int& value, int lo, int hi,
                                const std::string& description) {
    std::string range = std::to_string(lo) + " to " + std::to_string(hi);
    auto check = [lo, hi, range](std::string& text) -> std::string {
        if (!IsWholeNumber(text))
            return Shown(text) + " is not a number; give a whole number from " + range;
        long n = std::strtol(text.c_str(), nullptr, 10);  // saturates: far out stays out
        if (n < lo || n > hi)
            return Shown(text) + " is out of range; give a whole number from " + range;
        return "";
    };
    return app.add_option(name, value, description + " (" + range + ")")
        ->type_name("N")
        ->check(CLI::Validator(check, ""));
}

CLI::Option* CommandLine::Real(const std::string& name, double& value, double lo,
                               bool loIncluded, double hi, const std::string& description) {
    // An upper bound past any real use goes unsaid.
    std::string range = (loIncluded ? "from " : "above ") + NumberText(lo) +
                        (hi < 1e30 ? " to " + NumberText(hi) : "");
    auto check = [=](std::string& text) -> std::string {
        char* end = nullptr;
        double x = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != 0 || !std::isfinite(x))
            return Shown(text) + " is not a number; give one " + range;
        if (x < lo || (x == lo && !loIncluded) || x > hi)
            return Shown(text) + " is out of range; give a number " + range;
        return "";
    };
    return app.add_option(name, value, description + " (" + range + ")")
        ->type_name("X")
        ->check(CLI::Validator(check, ""));
}

CLI::Option* CommandLine::Word(const std::string& name, std::string& value,
                               const std::vector<std::string>& words,
                               const std::string& description) {
    std::string list;
    for (const std::string& word : words) list += (list.empty() ? "" : ", ") + word;
    auto check = [words, list](std::string& text) -> std::string {
        for (const std::string& word : words)
            if (text == word) return "";
        return Shown(text) + " is none of " + list;
    };
    CLI::Option* option = app.add_option(name, value, description)->check(CLI::Validator(check, ""));
    std::string typeName;
    for (const std::string& word : words) typeName += (typeName.empty() ? "" : "|") + word;
    return option->type_name(typeName);
}

CLI::Option* CommandLine::Path(const std::string& name, std::string& value,
                               const std::string& typeName, const std::string& description) {
    auto check = [](std::string& text) -> std::string {
        return text.empty() ? "needs a name, not an empty word" : "";
    };
    return app.add_option(name, value, description)
        ->type_name(typeName)
        ->check(CLI::Validator(check, ""));
}

namespace {

// The completion script of a tool's options, for bash-completion's loader.
std::string BashCompletion(const CLI::App& app) {
    std::string function = "_" + app.get_name();
    for (char& c : function)
        if (c == '-') c = '_';
    std::string words, cases;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) continue;
        std::string names;
        for (const std::string& name : option->get_snames()) names += "|-" + name;
        for (const std::string& name : option->get_lnames()) names += "|--" + name;
        if (names.empty()) continue;
        for (char& c : names)
            if (c == '|') c = ' ';
        words += names;
        if (option->get_expected_max() == 0) continue;  // a flag takes no value
        std::string type = option->get_type_name(), action = "return";
        if (type.find('|') != std::string::npos) {
            std::string choices = type;
            for (char& c : choices)
                if (c == '|') c = ' ';
            action = "COMPREPLY=($(compgen -W '" + choices + "' -- \"$cur\")); return";
        } else if (type != "N" && type != "X" && type != "WxH") {
            action = FileCompletion(type) + "; return";
        }
        std::string pattern = names.substr(1);
        for (char& c : pattern)
            if (c == ' ') c = '|';
        cases += "        " + pattern + ") " + action + " ;;\n";
    }
    return "# bash completion for " + app.get_name() + ", made by " + app.get_name() +
           " --bash-completion\n" + function +
           "() {\n"
           "    local cur prev words cword split\n"
           "    _init_completion -s || return\n"
           "    case $prev in\n" +
           cases +
           "    esac\n"
           "    $split && return\n"
           "    if [[ $cur == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W '" +
           words.substr(1) +
           "' -- \"$cur\"))\n"
           "        return\n"
           "    fi\n"
           "    _filedir\n"
           "}\n"
           "complete -F " +
           function + " " + app.get_name() + "\n";
}

}  // namespace

CommandLineOutcome CommandLine::Parse(int argc, const char* const* argv,
                                      const std::function<std::string()>& check) {
    CommandLineOutcome outcome;
    std::string error;
    try {
        app.parse(argc, argv);
        if (completion) {
            outcome.text = BashCompletion(app);
            return outcome;
        }
        if (!app.remaining().empty()) {
            std::string word = app.remaining().front();
            error = word.size() > 1 && word[0] == '-'
                        ? "unknown option " + Shown(word.substr(0, word.find('=')))
                        : "unexpected argument " + Shown(word);
        } else if (check) {
            error = check();
        }
    } catch (const CLI::CallForHelp&) {
        outcome.text = app.help();
        return outcome;
    } catch (const CLI::CallForVersion& version) {
        outcome.text = std::string(version.what()) + "\n";
        return outcome;
    } catch (const CLI::ArgumentMismatch& mismatch) {
        std::string what = mismatch.what();
        error = what.substr(0, what.find(':')) + " needs a value";
    } catch (const CLI::ConversionError& conversion) {
        // "Could not convert: NAME = VALUE": a switch given a value it can't read.
        std::string what = conversion.what();
        size_t start = what.find(": ") + 2, equals = what.find(" = ", start);
        error = what.substr(start, equals - start) + " takes no value";
    } catch (const CLI::ParseError& parse) {
        error = parse.what();
    }
    if (error.empty()) {
        outcome.run = true;
        return outcome;
    }
    outcome.status = ExitUsage;
    outcome.text = program + ": " + error + "\nTry '" + program + " --help'.\n";
    return outcome;
}

int PrintOutcome(const CommandLineOutcome& outcome) {
    std::fputs(outcome.text.c_str(), outcome.status == 0 ? stdout : stderr);
    return outcome.status;
}
