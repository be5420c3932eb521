// Fuzz target: any bytes as resource.cfg must read without a crash. An odd number of tokens is
// the one error the reader raises; the handler here returns so the run goes on.
#include <cstdint>
#include <cstdio>

#include "base/diagnostics.h"
#include "base/resmanager.h"
#include "tests/fuzz/fuzz_file.h"

static void IgnoreText(const char*) {}
static void IgnoreError(uint32_t, const char*) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CorvaneSetErrorHandler(IgnoreError);
    CorvaneSetWarningHandler(IgnoreText);
    CorvaneSetAlertHandler(IgnoreText);
    std::string path = WriteFuzzInput("config", data, size);
    {
        ResourceManager manager(path.c_str());
        manager.GetResourcePath("LIT");
        manager.GetResourcePath("TEXTURE_DATA");
    }
    std::remove(path.c_str());
    return 0;
}
