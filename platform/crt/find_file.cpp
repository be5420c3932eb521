#include "platform/crt/find_file.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/crt/strings.h"

namespace {

// Splits on both separators; empty parts (doubled or leading separators) are dropped.
std::vector<std::string> SplitPath(const char* text) {
    std::vector<std::string> parts;
    std::string part;
    for (const char* p = text;; ++p) {
        if (*p == '/' || *p == '\\' || *p == 0) {
            if (!part.empty()) parts.push_back(part);
            part.clear();
            if (*p == 0) break;
        } else {
            part += *p;
        }
    }
    return parts;
}

bool Exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

bool IsFile(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && !S_ISDIR(info.st_mode);
}

bool MatchAnyCase(const std::string& folder, const std::string& wanted, std::string* found) {
    DIR* dir = opendir(folder.empty() ? "." : folder.c_str());
    if (!dir) return false;
    bool any = false;
    while (const dirent* entry = readdir(dir)) {
        if (_stricmp(entry->d_name, wanted.c_str()) != 0) continue;
        if (!any || std::strcmp(entry->d_name, found->c_str()) < 0) *found = entry->d_name;
        any = true;
    }
    closedir(dir);
    return any;
}

void AppendPart(std::string* path, const std::string& part) {
    if (!path->empty() && path->back() != '/') *path += '/';
    *path += part;
}

}  // namespace

bool FileExistsAnyCase(const char* folder, const char* name, char* out, size_t outSize) {
    if (!name || !out || outSize == 0) return false;
    std::string base = folder ? folder : "";
    for (char& c : base) {
        if (c == '\\') c = '/';
    }
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    const std::vector<std::string> parts = SplitPath(name);
    if (parts.empty()) return false;

    std::string path = base;
    for (const std::string& part : parts) AppendPart(&path, part);
    // A match in another case has the same length, so this bound holds for both tries.
    if (path.size() >= outSize) return false;

    if (!IsFile(path)) {
        path = base;
        for (const std::string& part : parts) {
            const std::string folderSoFar = path;
            AppendPart(&path, part);
            if (Exists(path)) continue;
            std::string found;
            if (!MatchAnyCase(folderSoFar, part, &found)) return false;
            path.resize(path.size() - part.size());
            path += found;
        }
        if (!IsFile(path)) return false;
    }
    std::memcpy(out, path.c_str(), path.size() + 1);
    return true;
}
