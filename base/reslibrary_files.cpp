// The library's roads to and from disk: files over entries, extraction to a file, new entries.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/DiskFile.h"
#include "base/MemoryFile.h"
#include "base/ResLibrary.h"
#include "base/WinDiskFile.h"
#include "base/compression/method.h"
#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/reslibrary_header.h"
#include "base/reslibrary_shared.h"
#include "platform/crt/find_file.h"
#include "platform/crt/replacing_file.h"
#include "platform/crt/strings.h"
#include "platform/debug/debug_output.h"

namespace {

enum : uint32_t { PathSize = 1024 };

bool IsReadMode(const char* mode) {
    return _stricmp(mode, "r") == 0 || _stricmp(mode, "rb") == 0 || _stricmp(mode, "rt") == 0;
}

File* OpenOnDisk(const char* root, const char* name, const char* mode, bool stream) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path previous = fs::current_path(error);
    if (error) return nullptr;
    const std::string rootDisk = ResourceDiskPath(root);
    fs::create_directory(rootDisk, error);  // the outcome does not matter: the change says
    fs::current_path(rootDisk, error);
    File* file = nullptr;
    if (!error) {
        if (stream) {
            auto* disk = NEW WinDiskFile;
            if (disk) disk->Open(name, mode);
            file = disk;
        } else {
            // The buffered stream takes the name as the disk has it.
            std::string path = ResourceDiskPath(name);
            char found[PathSize];
            if (IsReadMode(mode) && FileExistsAnyCase(nullptr, path.c_str(), found, sizeof found))
                path = found;
            auto* disk = NEW DiskFile;
            if (disk) disk->Open(path.c_str(), mode);
            file = disk;
        }
    }
    std::error_code restoreError;
    fs::current_path(previous, restoreError);
    if (file && !file->IsOpen()) {
        DELETE(file);
        file = nullptr;
    }
    if (!file) CorvaneWarning("Could Not Open %s(%s)\n", name, mode);
    return file;
}

}  // namespace

File* ResourceLibrary::OpenFile(const char* name, const char* mode, bool stream) {
    ASSERT(name && mode && root);
    if (!name || !mode || !root) return nullptr;
    ++useCount;
    const ResourceRecord* record = Lookup(name);
    if (!record || !IsReadMode(mode) || (record->volume == 0 && stream))
        return OpenOnDisk(root, name, mode, stream);
    File* file = nullptr;
    if (stream) {
        if (cached) {
            CorvaneWarning("Cannot stream file because %s from resource file %s is cached\n", name,
                           root);
            return nullptr;
        }
        if (record->method != CompressionRaw) {
            CorvaneWarning("Cannot stream file because %s from resource file %s is compressed\n",
                           name, root);
            return nullptr;
        }
        char path[PathSize];
        VolumeFileName(path, record->volume, ".RFD");
        // A span past the data's end is damage, not a file.
        if (record->storedSize == record->size && record->offset <= dataSizes[record->volume] &&
            record->size <= dataSizes[record->volume] - record->offset &&
            record->offset <= 0x7FFFFFFFu && record->size <= 0x7FFFFFFFu) {
            auto* disk = NEW WinDiskFile;
            if (disk) disk->Open(path, mode, int32_t(record->offset), int32_t(record->size));
            file = disk;
        }
    } else {
        auto* memory = NEW MemoryFile;
        if (memory) memory->Open(name, mode, this);
        file = memory;
    }
    if (file && !file->IsOpen()) {
        DELETE(file);
        file = nullptr;
    }
    if (!file) CorvaneWarning("Could Not Open %s(%s)\n", name, mode);
    return file;
}

void ResourceLibrary::CloseFile(File*& file) {
    ASSERT(file);
    if (!file) return;
    DELETE(file);
    file = nullptr;
}

bool ResourceLibrary::ExtractToFile(const char* path) {
    ASSERT(path && root);
    const char* name = ResourceNameBehindRoot(root, path);
    if (!name) return false;
    uint32_t size = 0;
    uint8_t* data = Extract(name, &size, nullptr, nullptr);
    if (!data) return false;
    const bool written = WriteFileAtomically(ResourceDiskPath(path).c_str(), data, size);
    FREE(data);
    return written;
}

bool ResourceLibrary::AddFile(const char* path, uint32_t method, int32_t level) {
    ASSERT(path && root && method < CompressionMethodCount);
    if (!path || !root || method >= CompressionMethodCount) return false;
    ++useCount;
    uint32_t size = 0;
    int32_t time = 0;
    if (!ResourceFileStatus(path, &size, &time)) {
        OutputDebugStringA("Could not access target file!\n");
        return false;
    }
    if (size == 0) {
        OutputDebugStringA("File Has zero size\n");
        return false;
    }
    std::lock_guard<std::mutex> guard(ResourceLock());
    const char* name = ResourceNameBehindRoot(root, path);
    ASSERT(name);  // the file must lie below the library's root
    if (!name) return false;
    const ResourceRecord* existing = Lookup(name);
    if (existing && existing->volume > 0) {
        OutputDebugStringA("File is not more recent that the existing library\n");
        return false;
    }
    if (nextVolume >= ResourceVolumeLimit) {
        OutputDebugStringA("Library has no room for another volume\n");
        return false;
    }
    char headerPath[PathSize];
    char dataPath[PathSize];
    VolumeFileName(headerPath, nextVolume, ".RFH");
    VolumeFileName(dataPath, nextVolume, ".RFD");
    // The volume grows in place; a link planted at its name is refused, never written through.
    std::FILE* header = OpenFileNoFollow(headerPath, "ab");
    if (!header) {
        OutputDebugStringA("Could not open header file!\n");
        return false;
    }
    std::FILE* data = OpenFileNoFollow(dataPath, "ab");
    if (!data) {
        std::fclose(header);
        OutputDebugStringA("Could not open data file!\n");
        return false;
    }
    const size_t capacity = size_t(size) * 2 + 5000;
    uint8_t* scratch = ResourceScratch(size);
    auto* output = static_cast<uint8_t*>(MALLOC(capacity));
    ResourceRecord* record = NewResourceRecord(name, time, method, size, size, nextVolume, 0);
    const size_t recordBytes = ResourceHeaderFixedSize + std::strlen(name) + 1;
    auto* headerBytes = static_cast<uint8_t*>(MALLOC(recordBytes));
    bool ok = scratch && output && record && headerBytes;
    if (ok) {
        std::FILE* source = std::fopen(ResourceDiskPath(path).c_str(), "rb");
        ok = source && std::fread(scratch, 1, size, source) == size;
        if (source) std::fclose(source);
        if (!ok) OutputDebugStringA("Could not access target file!\n");
    }
    if (ok) {
        const uint8_t* stored = scratch;
        if (method != CompressionRaw) {
            const uint32_t packed =
                CompressMethods[method](scratch, output, size, uint32_t(capacity), level);
            // Output no smaller than the file, or none at all, is not worth its decoding.
            if (packed == 0 || packed > size) {
                record->method = CompressionRaw;
            } else {
                record->storedSize = packed;
                stored = output;
            }
        }
        std::fseek(data, 0, SEEK_END);
        const long offset = std::ftell(data);
        ok = offset >= 0 && uint64_t(offset) + record->storedSize < 0xFFFFFFFFu;
        if (ok) {
            record->offset = uint32_t(offset);
            WriteResourceHeaderRecord(*record, name, headerBytes, recordBytes);
            ok = std::fwrite(headerBytes, 1, recordBytes, header) == recordBytes &&
                 std::fwrite(stored, 1, record->storedSize, data) == record->storedSize;
        }
        if (!ok) OutputDebugStringA("Could not write the library's files!\n");
    }
    if (headerBytes) FREE(headerBytes);
    if (output) FREE(output);
    if (std::fclose(header) != 0) ok = false;
    if (std::fclose(data) != 0) ok = false;
    if (!ok) {
        FreeResourceRecord(record);
        return false;
    }
    Insert(record);
    return true;
}
