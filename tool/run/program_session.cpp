#include "tool/run/program_session.h"

#include "base/diagnostics.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/texture/texture.h"
#include "tool/bake/message_log.h"
#include "tool/maps/tool_load_texture.h"
#include "tool/run/app_state.h"
#include "tool/run/batch_file.h"

void StartProgram(const ProgramReporters& reporters) {
    CorvaneInit();
    if (reporters.warning) CorvaneSetWarningHandler(reporters.warning);
    if (reporters.alert) CorvaneSetAlertHandler(reporters.alert);
    if (reporters.error) CorvaneSetErrorHandler(reporters.error);
}

void StopProgram(bool logHeldTextures) {
    SetMessageLogListener(nullptr);
    FreeJobList();
    SetToolResourceManager(nullptr);
    if (Resources) DELETE(Resources);
    Resources = nullptr;
    ToolTextureCacheClear();
    if (logHeldTextures) LogTexturesStillAllocated();
    FreeAllTextures();
    MessageLogClear();
    CorvaneClose();
}
