// Fuzz target: any bytes as a resource library's header and data files load, extract and open
// as files, or are refused, without a crash. The first two bytes give the header's length; the
// rest of that span is the header file, what follows the data file; bit 0 of the third byte
// caches the library.
#include <string>

#include "base/ResLibrary.h"
#include "base/diagnostics.h"
#include "base/file.h"
#include "base/memory.h"
#include "tests/fuzz/fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    CorvaneSetWarningHandler([](const char*) {});
    const size_t split = size_t(data[0] | data[1] << 8) % (size - 2);
    const FuzzFile header("lib0001.RFH", data + 3, split),
        volume("lib0001.RFD", data + 3 + split, size - 3 - split);
    const std::string root = header.path.substr(0, header.path.size() - 8);
    {
        ResourceLibrary library;
        library.Initialise(root.c_str(), 0, data[2] & 1, false);
        library.Open();
        ResourceIterator it;
        uint8_t* block = nullptr;
        uint32_t capacity = 0, entrySize = 0;
        for (const char* name = library.FirstEntry(&it); name; name = library.NextEntry(&it)) {
            FREE(library.Extract(name, &entrySize, nullptr, nullptr));
            library.Extract(name, &entrySize, &block, &capacity);
            for (bool stream : {false, true}) {
                if (File* file = library.OpenFile(name, "rb", stream)) {
                    uint8_t chunk[256];
                    file->Read(chunk, sizeof chunk);
                    library.CloseFile(file);
                }
            }
        }
        FREE(block);
    }
    CorvaneSetWarningHandler(nullptr);
    return 0;
}
