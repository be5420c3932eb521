// A resource library: numbered volumes (a .RFH header file and a .RFD data file each, beside the
// root path) and loose files below the root as a directory, seen as one table of names in which
// the newest copy of each name wins.
//
// Order of calls: constructor, Initialise, Open, any of the others, Close, destructor. Exists,
// IsPacked and the iteration work once Initialise has run. Names in the table have "\" as their
// separator and upper-case letters; a lookup normalises its name the same way, so it is blind to
// case and to the kind of slash. On disk the root and names take "/" wherever they are touched.
//
// Every record of a header file is bounded by the file's length, and every entry by its data
// file's length when it is extracted: a damaged header or an entry past the end is reported with
// a warning and refused, never read beyond.
//
// Threads: Extract (from step 4 on) and AddFile hold one process-wide lock, since they share the
// scratch buffer and the data files' positions. The table has no lock: an Extract of a loose file,
// Initialise, Open, Close, OpenFile and the iteration must not run beside each other on one
// library.
#pragma once

#include <cstdint>
#include <map>

#include "platform/crt/win_file.h"

class File;

struct ResourceRecord {
    uint32_t nameLength;  // bytes of the name, terminator included
    int32_t time;         // modification, seconds since 1970
    uint32_t method;      // CompressionRaw, CompressionHuffman or CompressionZlib
    uint32_t storedSize;  // bytes in the data file
    uint32_t size;        // bytes of the content
    char* name;           // owned (MALLOC), normalised
    uint32_t volume;      // 0 for a loose file
    uint32_t offset;      // in the volume's data file
};

// Byte order of normalised names: the table runs in ascending byte value.
struct ResourceNameLess {
    bool operator()(const char* a, const char* b) const;
};
using ResourceTable = std::map<const char*, ResourceRecord*, ResourceNameLess>;

// A place in the table for FirstEntry/NextEntry. After RemoveEntry it stands on the removed
// entry's successor, which the next NextEntry gives.
struct ResourceIterator {
    ResourceTable::iterator at;
    bool removed = false;
};

enum : uint32_t {
    ResourceVolumeLimit = 200,     // volumes 1 to 199
    ResourceNameBufferSize = 520,  // a looked-up name has at most 519 characters
};

class ResourceLibrary {
public:
    ResourceLibrary();
    ~ResourceLibrary();  // runs DeInitialise
    ResourceLibrary(const ResourceLibrary&) = delete;
    ResourceLibrary& operator=(const ResourceLibrary&) = delete;

    // Loads the headers of volumes 1, 2, ... up to the first missing one, and with scan set the
    // loose files below the root. Always true.
    bool Initialise(const char* path, uint32_t unused, bool isCached, bool scan);
    void DeInitialise();
    // Opens every volume's data file (cached: reads it whole and closes it). False if one fails;
    // the library then stays not open.
    bool Open();
    bool Close();

    // The entry's content in a block: with buffer and capacity given, the caller's block, grown
    // with CvReallocCopy when too small; else a new MALLOC block of exactly the size, which the
    // caller frees. Null for an unknown name, a failure to read, or a refused entry.
    uint8_t* Extract(const char* name, uint32_t* sizeOut, uint8_t** buffer, uint32_t* capacity);
    // path is the root, one separator and the entry's name; writes the content there.
    bool ExtractToFile(const char* path);
    // A File over the entry; see the .cpp for which form. Null, with a warning, if none opens.
    File* OpenFile(const char* name, const char* mode, bool stream);
    void CloseFile(File*& file);

    bool Exists(const char* name, uint32_t* sizeOut);
    bool IsPacked(const char* name);
    // Appends the file at path (the root, one separator, the entry's name) to volume NextVolume,
    // stored with method, or raw where compression does not pay.
    bool AddFile(const char* path, uint32_t method, int32_t level);

    const char* FirstEntry(ResourceIterator* iterator);
    const char* NextEntry(ResourceIterator* iterator);
    void RemoveEntry(ResourceIterator* iterator);

    const char* GetRoot() const { return root; }
    uint32_t GetNextVolume() const { return nextVolume; }
    uint32_t GetUseCount() const { return useCount; }
    bool IsOpen() const { return isOpen; }
    bool IsCached() const { return cached; }
    // The record of a name, or null; for tests and tools that list a library.
    const ResourceRecord* Find(const char* name);

private:
    void LoadHeaders();
    bool LoadHeader(uint32_t volume);
    void Scan(const char* subDirectory);
    // Takes ownership of record: it enters the table or is freed.
    void Insert(ResourceRecord* record);
    ResourceRecord* Lookup(const char* name);
    // Reads the stored bytes of record into target; false, with a warning, where they can't all
    // be had. Called under the lock.
    bool ReadStored(const ResourceRecord* record, uint8_t* target);
    uint8_t* OutputBlock(uint32_t size, uint8_t** buffer, uint32_t* capacity);
    bool CheckEntry(const ResourceRecord* record, const char* name);
    void VolumeFileName(char* out, uint32_t volume, const char* extension) const;

    char* root = nullptr;  // owned; the path less one trailing separator
    uint32_t nextVolume = 1;
    uint32_t useCount = 0;
    HANDLE dataFiles[ResourceVolumeLimit];  // index 0: the loose file being read
    uint8_t* images[ResourceVolumeLimit];   // cached data files
    uint32_t dataSizes[ResourceVolumeLimit];  // length of each data file or image at Open
    ResourceTable table;  // owns its records
    bool cached = false;
    bool isOpen = false;
};
