#include "base/file.h"

#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/services.h"

namespace {

struct RegistryNode {
    File* file;
    RegistryNode* next;
};

// Open files, newest first.
RegistryNode* Registry = nullptr;

// Takes file out of the registry; false if it was not there.
bool Unregister(const File* file) {
    for (RegistryNode** link = &Registry; *link; link = &(*link)->next) {
        if ((*link)->file != file) continue;
        RegistryNode* node = *link;
        *link = node->next;
        if (node) FREE(node);
        return true;
    }
    return false;
}

// Reports print a closed file's missing name the way the C library would.
const char* Printable(const char* text) {
    return text ? text : "(null)";
}

}  // namespace

File::~File() {
    if (!name) return;
    CorvaneWarning(" File %s not Correctly Closed", name);
    ASSERT(!name && !mode);  // a form's destructor did not close
    // Behind a handler that returns, the registry must not keep a pointer to a dead object.
    Unregister(this);
    if (name) FREE(name);
    if (mode) FREE(mode);
    name = mode = nullptr;
}

bool File::Close() {
    if (name) {
        if (bytesRead == 0 && bytesWritten == 0) {
            CorvaneWarning("File %s was opened but never used.", name);
        } else if (bytesWritten == 0 && !(mode && std::strchr(mode, 'r'))) {
            CorvaneWarning("File %s closed without writing.  Open for read only", name);
        }
    }
    if (Unregister(this)) {
        if (name) FREE(name);
        if (mode) FREE(mode);
        name = mode = nullptr;
        return true;
    }
    ASSERT(!IsOpen());  // an open file that was never registered
    CorvaneWarning("Cannot find File Pointer %s", Printable(name));
    return false;
}

bool File::IsEOF() {
    CorvaneDebug("This method is deprecated please use IsEndOfFile()\n");
    return IsEndOfFile();
}

char* File::Get(char* buffer, uint32_t size) {
    ASSERT(buffer);
    if (!buffer || size == 0) return nullptr;
    uint32_t kept = 0;
    buffer[0] = '\0';
    int32_t stalledAt = -2;
    while (kept < size - 1 && !IsEndOfFile()) {
        uint8_t byte = 0;
        if (Read(&byte, 1) == 0) {
            // A text-mode memory file drops a 13 and still moves on. A read that does not move,
            // as in a span that claims more than its file holds, would loop for ever.
            const int32_t position = Tell();
            if (position == stalledAt) break;
            stalledAt = position;
            continue;
        }
        if (byte == 13) continue;
        buffer[kept++] = char(byte);
        if (byte == 0 || byte == 10) break;
    }
    buffer[kept] = '\0';
    return kept ? buffer : nullptr;
}

uint32_t File::WriteString(const char* text) {
    ASSERT(text);
    if (!text) return 0;
    return Write(text, uint32_t(std::strlen(text)));
}

int32_t File::Tell() {
    if (!IsOpen()) return -1;
    return Seek(1, 0);
}

void File::Commit() {}

bool File::Register(const char* fileName, const char* fileMode, int32_t start, int32_t length) {
    ASSERT(fileName && fileMode);
    ASSERT(!name && !mode);  // opened twice: Close() first
    ASSERT(start >= 0 && length >= 0);
    char* nameCopy = CopyString(fileName ? fileName : "");
    char* modeCopy = CopyString(fileMode ? fileMode : "");
    auto* node = static_cast<RegistryNode*>(MALLOC(sizeof(RegistryNode)));
    if (!nameCopy || !modeCopy || !node) {
        ASSERT(nameCopy && modeCopy && node);  // out of memory
        if (nameCopy) FREE(nameCopy);
        if (modeCopy) FREE(modeCopy);
        if (node) FREE(node);
        return false;
    }
    if (name) FREE(name);
    if (mode) FREE(mode);
    name = nameCopy;
    mode = modeCopy;
    bytesRead = 0;
    bytesWritten = 0;
    spanStart = start;
    spanLength = length;
    node->file = this;
    node->next = Registry;
    Registry = node;
    return true;
}

bool File::ReadyToOpen() const {
    ASSERT(!name && !mode);  // open already: Close() first
    return !name && !mode;
}

void FileCloseReport() {
    if (!Registry) return;
    CorvaneDebug("\nFILES LEFT OPEN\n\n");
    while (Registry) {
        File* file = Registry->file;
        CorvaneWarning("Failed to close file %s\n", Printable(file->GetName()));
        // The destructor closes, which unlinks the node.
        DELETE(file);
    }
    CorvaneDebug("\nEND\n\n");
}

uint32_t FileOpenCount() {
    uint32_t count = 0;
    for (const RegistryNode* node = Registry; node; node = node->next) ++count;
    return count;
}
