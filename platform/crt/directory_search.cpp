#include "platform/crt/directory_search.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Search {
    std::vector<WIN32_FIND_DATAA> entries;
    size_t next = 0;
};

bool LessWithoutCase(const WIN32_FIND_DATAA& a, const WIN32_FIND_DATAA& b) {
    for (size_t i = 0;; ++i) {
        int ca = std::tolower((unsigned char)a.cFileName[i]);
        int cb = std::tolower((unsigned char)b.cFileName[i]);
        if (ca != cb || ca == 0)
            return ca != cb ? ca < cb : std::strcmp(a.cFileName, b.cFileName) < 0;
    }
}

bool Fill(Search& search, WIN32_FIND_DATAA* data) {
    if (search.next >= search.entries.size()) return false;
    *data = search.entries[search.next++];
    return true;
}

}  // namespace

bool MatchesWildcard(const char* pattern, const char* name) {
    // Greedy matching with one step back to the last star: linear, no recursion.
    const char *star = nullptr, *resume = nullptr;
    while (*name) {
        if (*pattern == '*') {
            star = pattern++;
            resume = name;
        } else if (*pattern == '?' || (*pattern && std::tolower((unsigned char)*pattern) ==
                                                       std::tolower((unsigned char)*name))) {
            ++pattern;
            ++name;
        } else if (star) {
            pattern = star + 1;
            name = ++resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*') ++pattern;
    return *pattern == '\0';
}

HANDLE FindFirstFileA(const char* pattern, WIN32_FIND_DATAA* data) {
    if (!pattern || !data) return INVALID_HANDLE_VALUE;
    std::string folder = pattern;
    std::replace(folder.begin(), folder.end(), '\\', '/');
    size_t slash = folder.rfind('/');
    std::string mask = slash == std::string::npos ? folder : folder.substr(slash + 1);
    folder = slash == std::string::npos ? "." : folder.substr(0, slash + 1);

    DIR* dir = opendir(folder.c_str());
    if (!dir) return INVALID_HANDLE_VALUE;
    auto* search = new Search;
    while (dirent* entry = readdir(dir)) {
        if (!std::strcmp(entry->d_name, ".") || !std::strcmp(entry->d_name, "..")) continue;
        if (std::strlen(entry->d_name) >= sizeof data->cFileName) continue;  // can't be named
        if (!MatchesWildcard(mask.c_str(), entry->d_name)) continue;
        WIN32_FIND_DATAA found = {};
        std::snprintf(found.cFileName, sizeof found.cFileName, "%s", entry->d_name);
        struct stat status;
        if (stat((folder + entry->d_name).c_str(), &status) == 0) {
            found.dwFileAttributes = S_ISDIR(status.st_mode) ? uint32_t(FILE_ATTRIBUTE_DIRECTORY)
                                                             : uint32_t(FILE_ATTRIBUTE_NORMAL);
            found.nFileSizeHigh = uint32_t(uint64_t(status.st_size) >> 32);
            found.nFileSizeLow = uint32_t(uint64_t(status.st_size));
        }
        search->entries.push_back(found);
    }
    closedir(dir);
    std::sort(search->entries.begin(), search->entries.end(), LessWithoutCase);
    if (!Fill(*search, data)) {
        delete search;
        return INVALID_HANDLE_VALUE;
    }
    return search;
}

bool FindNextFileA(HANDLE search, WIN32_FIND_DATAA* data) {
    if (!search || search == INVALID_HANDLE_VALUE || !data) return false;
    return Fill(*static_cast<Search*>(search), data);
}

bool FindClose(HANDLE search) {
    if (!search || search == INVALID_HANDLE_VALUE) return false;
    delete static_cast<Search*>(search);
    return true;
}
