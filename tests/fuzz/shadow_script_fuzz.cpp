// Fuzz target: any bytes as a shadow script read without a crash or a hang.
#include <cstdio>

#include "tests/fuzz/fuzz_file.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/shadow_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = WriteFuzzInput("script", data, size);
    ShadowSettings = DefaultShadowSettings();
    ParseShadowScript(path.c_str());
    MessageLogClear();
    std::remove(path.c_str());
    return 0;
}
