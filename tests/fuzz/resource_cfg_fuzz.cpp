// Fuzz target: any bytes as resource.cfg read without a crash. An odd number of tokens is the one
// error the reader raises; the handler here returns so the run goes on.
#include "base/diagnostics.h"
#include "base/resmanager.h"
#include "tests/fuzz/fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CorvaneSetErrorHandler([](uint32_t, const char*) {});
    CorvaneSetWarningHandler([](const char*) {});
    CorvaneSetAlertHandler([](const char*) {});
    const FuzzFile config("config", data, size);
    ResourceManager(config.path.c_str()).GetResourcePath("LIT");
    return 0;
}
