// Where the application's data lies: the key/value pairs of resource.cfg, read once at start,
// and the resource libraries opened through the manager. One manager lives for the whole run,
// made behind CorvaneInit and deleted before CorvaneClose; it is used from one thread.
#pragma once

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

    // Both lists take new records at the head, so the configured list runs opposite to the file
    // and of two equal keys the later one is found first.
    ConfigRecord* resources = nullptr;
    LibraryRecord* libraries = nullptr;
};
