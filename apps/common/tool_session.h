// A command line tool's run of the base library, from its start to its close: the library's
// reports on stderr behind the program's name (a quiet run keeps only errors), every error
// counted, a broken assertion or a fatal report ending the program with status 1, and interrupts.
#pragma once

struct ToolSessionOptions {
    const char* program = "";
    bool quiet = false;
    // An interrupt asks a bake to stop between rows, and a second one ends the program at once;
    // without it an interrupt ends the program as it would any other.
    bool cancelOnInterrupt = false;
    void (*beforeMessage)() = nullptr;  // clears what the tool draws on the terminal
};

class ToolSession {
public:
    explicit ToolSession(const ToolSessionOptions& options);
    ~ToolSession();
    ToolSession(const ToolSession&) = delete;
    ToolSession& operator=(const ToolSession&) = delete;

    static int Errors();  // errors the library reported since the start
    static int Interrupts();
};
