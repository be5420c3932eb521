// Runs the command line tools as a build pipeline would: a child process with its own exit
// status, stdout and stderr together, files read back afterwards.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

extern char** environ;

struct ToolRun {
    int status;          // the exit status; 128 + the signal's number where a signal ended it
    std::string output;  // stdout and stderr in the order written
};

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// A command line's arguments from the words of text.
inline std::vector<std::string> Words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

inline int DecodeWaitStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
}

// Starts program with args, stdout and stderr into log, without waiting for it; -1 if it can't.
inline pid_t SpawnTool(const std::string& program, std::vector<std::string> args, const std::string& log) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    args.insert(args.begin(), program);
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    unsetenv("TENEBRIX_DEBUG");
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

inline ToolRun RunTool(const std::string& program, const std::vector<std::string>& args) {
    std::string log = std::filesystem::absolute("tool-output.txt").string();
    pid_t pid = SpawnTool(program, args, log);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return {-1, "cannot start " + program};
    ToolRun run = {DecodeWaitStatus(status), ReadWholeFile(log)};
    std::filesystem::remove(log);
    return run;
}

inline ToolRun RunBake(const std::string& args) {
    return RunTool(TENEBRIX_BAKE, Words(args));
}

// A map made by tenebrix-mkmap; false (with the tool's output as a test failure) if it failed.
inline bool MakeMap(const std::string& folder, int cells, int seed = 1) {
    ToolRun run = RunTool(TENEBRIX_MKMAP, Words(folder + " --cells " + std::to_string(cells) + " --seed " +
                                                std::to_string(seed)));
    if (run.status != 0) ADD_FAILURE() << "tenebrix-mkmap " << folder << ": " << run.output;
    return run.status == 0;
}

// Temporary files of interrupted or failed writes anywhere below root (".<name>.<random>.partial").
inline std::vector<std::string> PartialFiles(const std::string& root) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.path().extension() == ".partial") found.push_back(entry.path().string());
    return found;
}
