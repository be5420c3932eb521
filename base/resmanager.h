// Where the application's data lies: the key/value pairs of resource.cfg, read once at start,
// and the resource libraries opened through the manager. One manager lives for the whole run,
// made behind CorvaneInit and deleted before CorvaneClose; it is used from one thread.
#pragma once

#include <cstdint>

class File;
class ResourceLibrary;

class ResourceManager {
public:
    // Reads "resource.cfg" in the current directory.
    ResourceManager();
    // Reads the given file instead (the command line's --config). A missing file alerts and
    // leaves the manager empty, which the run survives.
    explicit ResourceManager(const char* configPath);
    ~ResourceManager();
    ResourceManager(const ResourceManager&) = delete;
    ResourceManager& operator=(const ResourceManager&) = delete;

    // The value behind key, compared without regard to case; the manager keeps owning it. Null,
    // with a warning, for an unknown key. The value is a path with "/" separators.
    const char* GetResourcePath(const char* key) const;

    // The library whose root is the value of key (compared exactly, unlike GetResourcePath),
    // open. A library already in the list is opened again if it was closed, and the flags change
    // nothing for it. Null, without a report, for a key that is not configured. A library whose
    // volumes are missing comes back not open.
    ResourceLibrary* GetLibrary(const char* key, uint32_t unused, bool cached, bool scan);
    // Close and delete the library of key, or this library; an unknown one does nothing.
    void CloseLibrary(const char* key);
    void CloseLibrary(ResourceLibrary* library);
    // The library's file for name, the library got as by GetLibrary with cached off and scan on.
    File* OpenFile(const char* key, const char* fileName, const char* mode, bool stream);
    // Deletes the file and sets the pointer to null.
    void CloseFile(File*& file);

private:
    struct ConfigRecord {
        char* key;    // owned
        char* value;  // owned
        ConfigRecord* next;
    };
    struct LibraryRecord {
        const char* key;           // the configured record's text, not a copy
        ResourceLibrary* library;  // owned
        LibraryRecord* next;
    };

    void ReadConfig(const char* configPath);
    void AddResource(const char* key, const char* value);
    void DestroyLibrary(LibraryRecord** link);

    // Both lists take new records at the head, so the configured list runs opposite to the file
    // and of two equal keys the later one is found first.
    ConfigRecord* resources = nullptr;
    LibraryRecord* libraries = nullptr;
};
