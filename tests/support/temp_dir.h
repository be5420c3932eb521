// A fresh directory for one test, made current while the object lives and removed afterwards.
#pragma once

#include <string>

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path; }
    std::string File(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
    std::string previous;
};

std::string ReadWholeFile(const std::string& path);  // empty if missing
void WriteWholeFile(const std::string& path, const std::string& bytes);
