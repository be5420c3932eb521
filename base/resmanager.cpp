#include "base/resmanager.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "base/ResLibrary.h"
#include "base/diagnostics.h"
#include "base/file.h"
#include "base/memory.h"
#include "base/quoted_text.h"
#include "base/services.h"
#include "platform/crt/strings.h"

enum { TokenBufferSize = 400 };

// The white space of fscanf's "%s" in the C locale; bytes above 127 are token characters.
static bool IsBlank(int c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Reads the next token into buffer (TokenBufferSize bytes); false at the end of the file with no
// token left. A longer token is cut at TokenBufferSize - 1 characters and the rest of it is read
// and dropped: left in the stream, its tail would come back as the next token and shift every
// key and value behind it.
static bool ReadToken(std::FILE* file, char* buffer) {
    int c = std::getc(file);
    while (IsBlank(c)) c = std::getc(file);
    if (c == EOF) return false;
    size_t length = 0;
    while (c != EOF && !IsBlank(c)) {
        if (length < TokenBufferSize - 1) buffer[length++] = static_cast<char>(c);
        c = std::getc(file);
    }
    buffer[length] = '\0';
    return true;
}

ResourceManager::ResourceManager() {
    ReadConfig("resource.cfg");
}

ResourceManager::ResourceManager(const char* configPath) {
    ASSERT(configPath);  // the default constructor is the one for "resource.cfg"
    if (configPath) ReadConfig(configPath);
}

ResourceManager::~ResourceManager() {
    CorvaneDebug("ResourceManager Destructor");
    while (libraries) {
        LibraryRecord* record = libraries;
        CorvaneWarning("Resource [%s] left open\n", record->key);
        DestroyLibrary(&libraries);
    }
    while (resources) {
        ConfigRecord* record = resources;
        resources = record->next;
        if (record->key) FREE(record->key);
        if (record->value) FREE(record->value);
        DELETE(record);
    }
}

void ResourceManager::ReadConfig(const char* configPath) {
    std::FILE* file = std::fopen(configPath, "r");
    if (!file) {
        // The text names the file as the users of the Windows build know it, whatever the path.
        CorvaneAlert("Could not open RESOURCE.CFG\n");
        return;
    }
    char key[TokenBufferSize];
    char value[TokenBufferSize];
    while (ReadToken(file, key)) {
        if (!ReadToken(file, value)) {
            // An error handler that returns keeps the pairs read so far.
            CorvaneError("Failed to find second line in RESOURCE.CFG\n%s\n",
                         QuotedText(key).c_str());
            break;
        }
        AddResource(key, value);
    }
    std::fclose(file);
}

void ResourceManager::AddResource(const char* key, const char* value) {
    char* keyCopy = CopyString(key);
    char* valueCopy = CopyString(value);
    if (!keyCopy || !valueCopy) {
        if (keyCopy) FREE(keyCopy);
        if (valueCopy) FREE(valueCopy);
        return;
    }
    // Windows data names folders with "\"; callers here compose paths with "/", so the stored
    // value takes "/" whichever separator the file used.
    for (char* c = valueCopy; *c; ++c)
        if (*c == '\\') *c = '/';
    resources = NEW ConfigRecord{keyCopy, valueCopy, resources};
}

const char* ResourceManager::GetResourcePath(const char* key) const {
    ASSERT(key);  // likely a null result of another lookup passed on unchecked
    if (!key) return nullptr;
    for (const ConfigRecord* record = resources; record; record = record->next)
        if (_stricmp(record->key, key) == 0) return record->value;
    CorvaneWarning("Failed to find resource %s\n", key);
    return nullptr;
}

ResourceLibrary* ResourceManager::GetLibrary(const char* key, uint32_t unused, bool cached,
                                             bool scan) {
    ASSERT(key);
    if (!key) return nullptr;
    for (LibraryRecord* record = libraries; record; record = record->next) {
        if (std::strcmp(record->key, key) != 0) continue;
        if (!record->library->IsOpen()) record->library->Open();
        return record->library;
    }
    const ConfigRecord* config = resources;
    while (config && std::strcmp(config->key, key) != 0) config = config->next;
    if (!config) return nullptr;
    ResourceLibrary* library = NEW ResourceLibrary;
    if (!library) return nullptr;
    LibraryRecord* record = NEW LibraryRecord{config->key, library, libraries};
    if (!record) {
        DELETE(library);
        return nullptr;
    }
    library->Initialise(config->value, unused, cached, scan);
    library->Open();  // a library without its volumes comes back all the same, not open
    libraries = record;
    return library;
}

void ResourceManager::DestroyLibrary(LibraryRecord** link) {
    LibraryRecord* record = *link;
    if (record->library->IsOpen()) record->library->Close();
    DELETE(record->library);
    *link = record->next;
    DELETE(record);
}

void ResourceManager::CloseLibrary(const char* key) {
    ASSERT(key);
    if (!key) return;
    for (LibraryRecord** link = &libraries; *link; link = &(*link)->next) {
        if (std::strcmp((*link)->key, key) == 0) {
            DestroyLibrary(link);
            return;
        }
    }
}

void ResourceManager::CloseLibrary(ResourceLibrary* library) {
    ASSERT(library);
    if (!library) return;
    for (LibraryRecord** link = &libraries; *link; link = &(*link)->next) {
        if ((*link)->library == library) {
            DestroyLibrary(link);
            return;
        }
    }
}

File* ResourceManager::OpenFile(const char* key, const char* fileName, const char* mode,
                                bool stream) {
    ResourceLibrary* library = GetLibrary(key, 0, false, true);
    if (!library) return nullptr;
    return library->OpenFile(fileName, mode, stream);
}

void ResourceManager::CloseFile(File*& file) {
    ASSERT(file);
    if (!file) return;
    DELETE(file);
    file = nullptr;
}
