// Files of the source tree (the README, the sample map), for tests that read real data.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline std::vector<uint8_t> ReadSourceFile(const std::string& relative) {
    std::ifstream in(std::string(TENEBRIX_SOURCE_DIR) + "/" + relative, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}
