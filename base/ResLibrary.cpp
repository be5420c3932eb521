#include "base/ResLibrary.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/MemoryFile.h"
#include "base/compression/method.h"
#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/reslibrary_header.h"
#include "base/reslibrary_shared.h"
#include "base/services.h"
#include "platform/crt/find_file.h"
#include "platform/debug/debug_output.h"

namespace {

enum : uint32_t {
    PathSize = 1024,
    // Deeper trees are left out: a loop of links must not recurse without end.
    ScanDepthLimit = 64,
};

// No method expands further than this, so an entry that claims more is damaged, and is refused
// before its size is allocated.
constexpr uint64_t ExpansionLimit = 1100;

HANDLE OpenForReading(const char* path) {
    return CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

void CloseData(HANDLE* file) {
    if (*file != INVALID_HANDLE_VALUE) CloseHandle(*file);
    *file = INVALID_HANDLE_VALUE;
}

}  // namespace

ResourceLibrary::ResourceLibrary() {
    ResourceLibraryCreated();
    for (uint32_t i = 0; i < ResourceVolumeLimit; ++i) {
        dataFiles[i] = INVALID_HANDLE_VALUE;
        images[i] = nullptr;
        dataSizes[i] = 0;
    }
}

ResourceLibrary::~ResourceLibrary() {
    DeInitialise();
    ResourceLibraryDestroyed();
}

bool ResourceLibrary::Initialise(const char* path, uint32_t /*unused*/, bool isCached,
                                 bool scan) {
    ASSERT(path);  // the library's root
    if (root) {
        CorvaneDebug("ResourceLibrary DeInitialise %s", root);
        DeInitialise();
    }
    if (!path) return true;
    CorvaneDebug("ResourceLibrary Initialise %s", path);
    root = CopyString(path);
    if (!root) return true;
    const size_t length = std::strlen(root);
    if (length > 0 && (root[length - 1] == '\\' || root[length - 1] == '/')) root[length - 1] = 0;
    cached = isCached;
    LoadHeaders();
    if (scan) Scan(nullptr);
    return true;
}

void ResourceLibrary::DeInitialise() {
    Close();
    for (auto& entry : table) FreeResourceRecord(entry.second);
    table.clear();
    if (root) FREE(root);
    root = nullptr;
    nextVolume = 1;
}

void ResourceLibrary::VolumeFileName(char* out, uint32_t volume, const char* extension) const {
    const int written = std::snprintf(out, PathSize, "%s%04lu%s", root, (unsigned long)volume,
                                      extension);
    // A name that does not fit names no file.
    if (written < 0 || written >= int(PathSize)) out[0] = 0;
    for (char* c = out; *c; ++c) {
        if (*c == '\\') *c = '/';
    }
}

void ResourceLibrary::LoadHeaders() {
    uint32_t volume = 1;
    for (; volume < ResourceVolumeLimit; ++volume) {
        if (!LoadHeader(volume)) break;
    }
    nextVolume = volume;
    if (volume == ResourceVolumeLimit) {
        char path[PathSize];
        VolumeFileName(path, volume, ".RFH");
        HANDLE file = OpenForReading(path);
        if (file != INVALID_HANDLE_VALUE) {
            CloseData(&file);
            CorvaneWarning("Resource library %s has more than %u volumes; the rest are left out\n",
                           root, unsigned(ResourceVolumeLimit - 1));
        }
    }
}

bool ResourceLibrary::LoadHeader(uint32_t volume) {
    char path[PathSize];
    VolumeFileName(path, volume, ".RFH");
    HANDLE file = OpenForReading(path);
    if (file == INVALID_HANDLE_VALUE) return false;
    const uint32_t size = GetFileSize(file, nullptr);
    uint8_t* bytes = size != INVALID_FILE_SIZE ? static_cast<uint8_t*>(MALLOC(size ? size : 1))
                                               : nullptr;
    uint32_t got = 0;
    if (!bytes || !ReadFile(file, bytes, size, &got, nullptr) || got != size) {
        CorvaneWarning("Could not read resource header %s\n", path);
    } else {
        size_t damageAt = 0;
        const auto sink = [](void* self, ResourceRecord* record) {
            static_cast<ResourceLibrary*>(self)->Insert(record);
        };
        if (!ReadResourceHeader(bytes, size, volume, sink, this, &damageAt))
            CorvaneWarning("Resource header %s is damaged at byte %zu; the records from there "
                           "on are left out\n",
                           path, damageAt);
    }
    if (bytes) FREE(bytes);
    CloseData(&file);
    return true;
}

void ResourceLibrary::Scan(const char* subDirectory) {
    namespace fs = std::filesystem;
    static thread_local uint32_t depth = 0;
    if (depth >= ScanDepthLimit) return;
    std::string folder = ResourceDiskPath(root);
    if (subDirectory) folder += "/" + ResourceDiskPath(subDirectory);
    // Two passes, files first, as the enumeration of the original platform ran.
    for (int pass = 0; pass < 2; ++pass) {
        std::error_code error;
        fs::directory_iterator entries(folder.empty() ? "." : folder, error);
        if (error) return;
        for (const fs::directory_entry& entry : entries) {
            std::error_code kindError;
            const bool isDirectory = entry.is_directory(kindError);
            if (kindError || isDirectory != (pass == 1)) continue;
            const std::string fileName = entry.path().filename().string();
            const std::string relative =
                subDirectory ? std::string(subDirectory) + "\\" + fileName : fileName;
            if (isDirectory) {
                ++depth;
                Scan(relative.c_str());
                --depth;
                continue;
            }
            const std::string path = folder + "/" + fileName;
            uint32_t size = 0;
            int32_t time = 0;
            if (!ResourceFileStatus(path.c_str(), &size, &time)) continue;
            if (ResourceRecord* record =
                    NewResourceRecord(relative.c_str(), time, CompressionRaw, size, size, 0, 0))
                Insert(record);
        }
    }
}

void ResourceLibrary::Insert(ResourceRecord* record) {
    auto found = table.find(record->name);
    if (found == table.end()) {
        table.emplace(record->name, record);
        return;
    }
    if (record->time > found->second->time) {
        FreeResourceRecord(found->second);
        table.erase(found);
        table.emplace(record->name, record);
        return;
    }
    // The older or equal copy that came first keeps the name.
    FreeResourceRecord(record);
}

ResourceRecord* ResourceLibrary::Lookup(const char* name) {
    char normal[ResourceNameBufferSize];
    std::snprintf(normal, sizeof normal, "%s", name);
    NormaliseResourceName(normal);
    auto found = table.find(normal);
    return found == table.end() ? nullptr : found->second;
}

const ResourceRecord* ResourceLibrary::Find(const char* name) {
    ASSERT(name);
    return name ? Lookup(name) : nullptr;
}

bool ResourceLibrary::Exists(const char* name, uint32_t* sizeOut) {
    ASSERT(name);
    const ResourceRecord* record = name ? Lookup(name) : nullptr;
    if (record && sizeOut) *sizeOut = record->size;
    return record != nullptr;
}

bool ResourceLibrary::IsPacked(const char* name) {
    ASSERT(name);
    const ResourceRecord* record = name ? Lookup(name) : nullptr;
    return record && record->volume > 0;
}

bool ResourceLibrary::Open() {
    if (isOpen) CorvaneWarning("Resource %s already open\n", root);
    if (!root) return false;
    Close();
    useCount = 0;
    for (uint32_t volume = 1; volume < nextVolume; ++volume) {
        char path[PathSize];
        VolumeFileName(path, volume, ".RFD");
        dataFiles[volume] = OpenForReading(path);
        if (dataFiles[volume] == INVALID_HANDLE_VALUE) return false;
        const uint32_t size = GetFileSize(dataFiles[volume], nullptr);
        dataSizes[volume] = size == INVALID_FILE_SIZE ? 0 : size;
        if (!cached || size == INVALID_FILE_SIZE) continue;
        uint8_t* image = static_cast<uint8_t*>(MALLOC(size ? size : 1));
        uint32_t got = 0;
        // Without memory for the image the volume is read from its stream.
        if (!image) continue;
        ReadFile(dataFiles[volume], image, size, &got, nullptr);
        images[volume] = image;
        dataSizes[volume] = got;
        CloseData(&dataFiles[volume]);
    }
    isOpen = true;
    return true;
}

bool ResourceLibrary::Close() {
    if (isOpen && useCount == 0)
        CorvaneWarning("ResourceLibrary %s Has not been used since it was opened", root);
    for (uint32_t i = 0; i < ResourceVolumeLimit; ++i) {
        if (images[i]) FREE(images[i]);
        images[i] = nullptr;
        CloseData(&dataFiles[i]);
        dataSizes[i] = 0;
    }
    isOpen = false;
    return true;
}

bool ResourceLibrary::CheckEntry(const ResourceRecord* record, const char* name) {
    const uint32_t length = record->volume == 0 ? GetFileSize(dataFiles[0], nullptr)
                                                : dataSizes[record->volume];
    const char* problem = nullptr;
    if (record->method >= CompressionMethodCount)
        problem = "has an unknown method";
    else if (length == INVALID_FILE_SIZE || record->offset > length ||
             record->storedSize > length - record->offset)
        problem = "lies past the end of its data";
    else if (record->method == CompressionRaw && record->storedSize != record->size)
        problem = "is raw with a stored size unlike its size";
    else if (record->method != CompressionRaw &&
             record->size > uint64_t(record->storedSize) * ExpansionLimit + 1024)
        problem = "claims more than its stored bytes can hold";
    if (!problem) return true;
    CorvaneWarning("Resource %s of %s %s; refused\n", name, root, problem);
    return false;
}

bool ResourceLibrary::ReadStored(const ResourceRecord* record, uint8_t* target) {
    const uint32_t volume = record->volume;
    if (volume > 0 && images[volume]) {
        std::memcpy(target, images[volume] + record->offset, record->storedSize);
        return true;
    }
    HANDLE file = dataFiles[volume];
    uint32_t got = 0;
    // Entries read in the order of the data file need no seek.
    if (SetFilePointer(file, 0, nullptr, FILE_CURRENT) != record->offset &&
        SetFilePointer(file, int32_t(record->offset), nullptr, FILE_BEGIN) != record->offset) {
        got = 0;
    } else {
        ReadFile(file, target, record->storedSize, &got, nullptr);
    }
    if (got == record->storedSize) return true;
    CorvaneWarning("Resource %s of %s is cut short; refused\n", record->name, root);
    return false;
}

uint8_t* ResourceLibrary::OutputBlock(uint32_t size, uint8_t** buffer, uint32_t* capacity) {
    const size_t blockSize = size ? size : 1;
    if (!buffer) return static_cast<uint8_t*>(MALLOC(blockSize));
    ASSERT(capacity);  // a reused block needs its capacity beside it
    if (!capacity) return nullptr;
    if (*capacity < size || !*buffer) {
        *buffer = static_cast<uint8_t*>(CvReallocCopy(*buffer, *capacity, blockSize));
        *capacity = *buffer ? size : 0;
    }
    return *buffer;
}

uint8_t* ResourceLibrary::Extract(const char* name, uint32_t* sizeOut, uint8_t** buffer,
                                  uint32_t* capacity) {
    ASSERT(sizeOut && name);
    if (!sizeOut || !name) return nullptr;
    ++useCount;
    ResourceRecord* record = Lookup(name);
    if (!record) return nullptr;
    if (record->volume == 0) {
        CloseData(&dataFiles[0]);
        char path[PathSize];
        if (!FileExistsAnyCase(root, name, path, sizeof path)) return nullptr;
        dataFiles[0] = OpenForReading(path);
        if (dataFiles[0] == INVALID_HANDLE_VALUE) return nullptr;
        // The file may have changed since the scan: its record is made again.
        uint32_t size = 0;
        int32_t time = 0;
        if (ResourceFileStatus(path, &size, &time)) {
            if (ResourceRecord* fresh =
                    NewResourceRecord(name, time, CompressionRaw, size, size, 0, 0))
                Insert(fresh);
        }
        record = Lookup(name);
        if (!record) {
            CloseData(&dataFiles[0]);
            return nullptr;
        }
    } else if (!images[record->volume] && dataFiles[record->volume] == INVALID_HANDLE_VALUE) {
        OutputDebugStringA("Error - trying to extract data when the library is not open\n");
        return nullptr;
    }
    const bool loose = record->volume == 0;
    uint8_t* out = nullptr;
    if (CheckEntry(record, name)) {
        std::lock_guard<std::mutex> guard(ResourceLock());
        const bool reused = buffer != nullptr;
        if (record->method != CompressionRaw) {
            uint8_t* scratch = ResourceScratch(record->storedSize);
            if (scratch && ReadStored(record, scratch)) out = OutputBlock(record->size, buffer,
                                                                          capacity);
            uint32_t produced = 0;
            if (out && !ExpandMethods[record->method](scratch, out, &produced, record->storedSize,
                                                      record->size)) {
                CorvaneWarning("Resource %s of %s does not expand; refused\n", name, root);
                if (!reused && out) FREE(out);
                out = nullptr;
            }
            if (out) *sizeOut = produced;
        } else {
            out = OutputBlock(record->size, buffer, capacity);
            if (out && !ReadStored(record, out)) {
                if (!reused && out) FREE(out);
                out = nullptr;
            }
            if (out) *sizeOut = record->size;
        }
    }
    if (loose) CloseData(&dataFiles[0]);
    return out;
}

const char* ResourceLibrary::FirstEntry(ResourceIterator* iterator) {
    ASSERT(iterator);
    if (!iterator) return nullptr;
    iterator->at = table.begin();
    iterator->removed = false;
    return iterator->at == table.end() ? nullptr : iterator->at->first;
}

const char* ResourceLibrary::NextEntry(ResourceIterator* iterator) {
    ASSERT(iterator);
    if (!iterator) return nullptr;
    if (iterator->removed)
        iterator->removed = false;
    else if (iterator->at != table.end())
        ++iterator->at;
    return iterator->at == table.end() ? nullptr : iterator->at->first;
}

void ResourceLibrary::RemoveEntry(ResourceIterator* iterator) {
    ASSERT(iterator);
    if (!iterator || iterator->removed || iterator->at == table.end()) return;
    ResourceRecord* record = iterator->at->second;
    iterator->at = table.erase(iterator->at);
    iterator->removed = true;
    FreeResourceRecord(record);
}

bool MemoryFile::Open(const char* fileName, const char* fileMode, ResourceLibrary* library) {
    ASSERT(fileName && fileMode && library);
    if (!fileName || !fileMode || !library) return IsOpen();
    uint32_t entrySize = 0;
    uint8_t* entry = library->Extract(fileName, &entrySize, nullptr, nullptr);
    if (!entry) return IsOpen();
    return Open(fileName, fileMode, entry, entrySize, true);
}
