// Runs the command line tools as a build pipeline would: a child process with its own exit
// status, stdout and stderr together in a file, files read back afterwards.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

struct ToolRun {
    int status;          // the exit status; 128 + the signal's number where a signal ended it
    std::string output;  // stdout and stderr in the order written
};

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

inline std::string ShellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

inline int DecodeWaitStatus(int status) {
    if (status == -1) return -1;
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

// Runs program with args, standing in folder (empty: the current directory), and waits for it.
inline ToolRun RunTool(const std::string& program, const std::vector<std::string>& args,
                       const std::string& folder = "") {
    std::string log = std::filesystem::absolute("tool-output.txt").string();
    std::string command = "unset TENEBRIX_DEBUG; ";
    if (!folder.empty()) {
        command += "cd ";
        command += ShellQuote(folder);
        command += " && ";
    }
    command += "exec ";
    command += ShellQuote(program);
    for (const std::string& arg : args) {
        command += ' ';
        command += ShellQuote(arg);
    }
    // Appended piece by piece: "literal" + temporary trips a false -Wrestrict in GCC 12 at -O3.
    command += " >";
    command += ShellQuote(log);
    command += " 2>&1 </dev/null";
    ToolRun run = {DecodeWaitStatus(std::system(command.c_str())), ReadWholeFile(log)};
    std::filesystem::remove(log);
    return run;
}

inline ToolRun RunBake(const std::vector<std::string>& args, const std::string& folder = "") {
    return RunTool(TENEBRIX_BAKE, args, folder);
}

// A map made by tenebrix-mkmap; false (with the tool's output as a test failure) if it failed.
inline bool MakeMap(const std::string& folder, int cells, int seed = 1) {
    ToolRun run = RunTool(
        TENEBRIX_MKMAP, {folder, "--cells", std::to_string(cells), "--seed", std::to_string(seed)});
    if (run.status == 0) return true;
    ADD_FAILURE() << "tenebrix-mkmap " << folder << " failed: " << run.output;
    return false;
}

inline long long FileSize(const std::string& path) {
    std::error_code error;
    auto size = std::filesystem::file_size(path, error);
    return error ? -1 : (long long)size;
}

// Temporary files of interrupted or failed writes anywhere below root (".<name>.<random>.partial").
inline std::vector<std::string> PartialFiles(const std::string& root) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.path().extension() == ".partial") found.push_back(entry.path().string());
    return found;
}
