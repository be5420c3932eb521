// Shared by the resource library tests: volumes written by hand and sample data from the source
// tree.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "base/reslibrary_header.h"
#include "tests/base/report_log.h"
#include "tests/support/temp_dir.h"

struct HandEntry {
    std::string name;
    int32_t time;
    std::string bytes;  // stored bytes
    uint32_t method = 0;
    uint32_t size = 0;  // 0: the stored bytes' length
};

// Writes root%04u.RFH/.RFD with the entries one behind the other.
inline void WriteVolume(const std::string& root, uint32_t volume,
                        const std::vector<HandEntry>& entries) {
    char number[8];
    std::snprintf(number, sizeof number, "%04u", volume);
    std::string header, data;
    for (const HandEntry& entry : entries) {
        ResourceRecord record{};
        record.time = entry.time;
        record.method = entry.method;
        record.storedSize = uint32_t(entry.bytes.size());
        record.size = entry.size ? entry.size : uint32_t(entry.bytes.size());
        record.offset = uint32_t(data.size());
        uint8_t bytes[1024];
        const size_t length =
            WriteResourceHeaderRecord(record, entry.name.c_str(), bytes, sizeof bytes);
        header.append(reinterpret_cast<const char*>(bytes), length);
        data += entry.bytes;
    }
    WriteWholeFile(root + number + ".RFH", header);
    WriteWholeFile(root + number + ".RFD", data);
}

inline void SetFileTime(const std::string& path, int32_t seconds) {
    using namespace std::chrono;
    std::filesystem::last_write_time(path, file_clock::from_sys(sys_seconds(seconds * 1s)));
}

inline std::string SampleFile(const char* relative) {
    return ReadWholeFile(std::string(TENEBRIX_SOURCE_DIR) + "/" + relative);
}
