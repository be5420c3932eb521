// Fuzz target: any bytes as a shadow script read without a crash or a hang.
#include "tests/fuzz/fuzz_file.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/shadow_settings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFile script("script", data, size);
    ShadowSettings = DefaultShadowSettings();
    ParseShadowScript(script.path.c_str());
    MessageLogClear();
    return 0;
}
