#include "tests/support/temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tenebrix-test-XXXXXX").string();
    char* made = mkdtemp(pattern.data());
    if (!made) std::abort();
    path = made;
    previous = std::filesystem::current_path().string();
    std::filesystem::current_path(path);
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::current_path(previous, ignored);
    std::filesystem::remove_all(path, ignored);
}

std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), std::streamsize(bytes.size()));
}
