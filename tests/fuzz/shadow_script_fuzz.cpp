// Fuzz target: any bytes as a shadow script must read without a crash or a hang.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "tool/message_log.h"
#include "tool/shadow_script.h"
#include "tool/shadow_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = "/tmp/tenebrix-fuzz-script-" + std::to_string(getpid());
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    ShadowSettings = DefaultShadowSettings();
    ParseShadowScript(path.c_str());
    MessageLogClear();
    std::remove(path.c_str());
    return 0;
}
