// Shared by the resource library tests: reports kept in order, volumes written by hand, sample
// data from the source tree.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/reslibrary_header.h"
#include "tests/support/temp_dir.h"

// Warnings and alerts, kept while the object lives; the old handlers come back at its end.
class WarningLog {
public:
    WarningLog() {
        active = this;
        oldWarning = CorvaneSetWarningHandler([](const char* t) { active->texts.push_back(t); });
        oldAlert = CorvaneSetAlertHandler([](const char* t) { active->texts.push_back(t); });
    }
    ~WarningLog() {
        CorvaneSetWarningHandler(oldWarning);
        CorvaneSetAlertHandler(oldAlert);
        active = nullptr;
    }
    WarningLog(const WarningLog&) = delete;
    WarningLog& operator=(const WarningLog&) = delete;

    bool Has(const std::string& part) const {
        for (const std::string& text : texts)
            if (text.find(part) != std::string::npos) return true;
        return false;
    }
    std::vector<std::string> texts;

private:
    static inline WarningLog* active = nullptr;
    CorvaneTextHandler oldWarning, oldAlert;
};

struct HandEntry {
    std::string name;
    int32_t time;
    std::string bytes;     // stored bytes
    uint32_t method = 0;
    uint32_t size = 0;     // 0: the stored bytes' length
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
        const size_t length = WriteResourceHeaderRecord(record, entry.name.c_str(), bytes,
                                                        sizeof bytes);
        header.append(reinterpret_cast<const char*>(bytes), length);
        data += entry.bytes;
    }
    WriteWholeFile(root + number + ".RFH", header);
    WriteWholeFile(root + number + ".RFD", data);
}

inline void SetFileTime(const std::string& path, int32_t seconds) {
    using namespace std::chrono;
    std::filesystem::last_write_time(
        path, file_clock::from_sys(sys_seconds(std::chrono::seconds(seconds))));
}

inline std::string SampleFile(const char* relative) {
    const std::string here = __FILE__;
    const std::string top = here.substr(0, here.rfind("/tests/"));
    return ReadWholeFile(top + "/" + relative);
}
