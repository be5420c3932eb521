// Walks a command line the way the project's tools take it: "--name value", "--name=value",
// switches, and plain arguments.
#pragma once

#include <string>

class ArgumentReader {
public:
    ArgumentReader(int argc, const char* const* argv) : count(argc), values(argv) {}

    // Moves to the next argument; false behind the last.
    bool Next() {
        if (++index >= count) return false;
        name = values[index];
        inlineValue.clear();
        hasInlineValue = false;
        size_t equals = name.find('=');
        if (name.rfind("--", 0) == 0 && equals != std::string::npos) {
            inlineValue = name.substr(equals + 1);
            name.resize(equals);
            hasInlineValue = true;
        }
        return true;
    }

    const std::string& Name() const { return name; }  // the option, or the plain argument
    bool IsOption() const { return name.size() > 1 && name[0] == '-'; }
    bool HasInlineValue() const { return hasInlineValue; }

    // The option's value, from "=value" or the next argument; false where there is none or it
    // is empty.
    bool TakeValue(std::string& value) {
        if (hasInlineValue) {
            value = inlineValue;
        } else {
            if (index + 1 >= count) return false;
            value = values[++index];
        }
        return !value.empty();
    }

private:
    int count;
    const char* const* values;
    int index = 0;
    std::string name, inlineValue;
    bool hasInlineValue = false;
};
