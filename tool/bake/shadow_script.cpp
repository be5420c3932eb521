#include "tool/bake/shadow_script.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "platform/crt/file_status.h"
#include "platform/crt/strings.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"
#include "tool/bake/word_reader.h"

static_assert(sizeof(ShadowSettings.LitFile) == 260, "the SCRIPT word fills LitFile");

enum { ScriptWordSize = 200 };

static std::string LastScriptPath;

// Values are read one at a time so that a value that does not convert can be put back whole:
// fscanf may already have eaten part of it (a lone "-" or "."), and losing that would put the
// reader out of step. The word then comes round again as the next key. Nothing is applied unless
// every value of the key converted. A stream that can't seek (a pipe) only loses the eaten part.
static int ScanValue(FILE* file, float* value) {
    return std::fscanf(file, " %f", value);
}
static int ScanValue(FILE* file, int* value) {
    return std::fscanf(file, " %d", value);
}

template <typename T>
static bool ReadValues(FILE* file, T* values, int count) {
    for (int i = 0; i < count; ++i) {
        long start = std::ftell(file);
        if (ScanValue(file, &values[i]) != 1) {
            if (start >= 0) std::fseek(file, start, SEEK_SET);
            return false;
        }
    }
    return true;
}

// Components are neither masked nor range-checked; unsigned so that odd values wrap, not overflow.
static uint32_t PackColour(const int rgb[3]) {
    return ((static_cast<uint32_t>(rgb[0]) << 8 | static_cast<uint32_t>(rgb[1])) << 8) |
           static_cast<uint32_t>(rgb[2]);
}

// Why a SCRIPT word can't name the light description, or null. The run joins it to the LIT
// folder and copies that file beside the map, so anything but a plain name there would let a
// script copy out any file the user can read; a cut name would copy some other file.
static const char* LitNameFault(const char* name, size_t length, size_t size) {
    if (length >= size) return "is longer than 259 characters";
    if (std::strlen(name) != length) return "holds a NUL byte";
    if (std::strpbrk(name, "/\\")) return "holds a path separator";
    if (!*name || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
        return "names no file";
    return nullptr;
}

static void SetLitFile(FILE* file, const char* path) {
    char name[sizeof ShadowSettings.LitFile];
    size_t length = 0;
    if (!ReadWord(file, name, sizeof name, nullptr, &length)) return;
    if (const char* fault = LitNameFault(name, length, sizeof name)) {
        const bool cut = length >= sizeof name;
        CorvaneWarning("Script %s: SCRIPT %.*s%s %s; the light description stays %s\n", path,
                       cut ? 40 : int(sizeof name), name, cut ? "..." : "", fault,
                       *ShadowSettings.LitFile ? ShadowSettings.LitFile : "unset");
        return;
    }
    std::memcpy(ShadowSettings.LitFile, name, length + 1);
}

// Values the bake takes as they stand but that don't do what their key says: each gets one
// warning naming the script, the key and what the bake makes of it.
static void CheckLight(const char* path, const float (&light)[3]) {
    if (std::isfinite(light[0]) && std::isfinite(light[1]) && std::isfinite(light[2])) return;
    CorvaneWarning(
        "Script %s: LIGHT %g %g %g is no direction; the bake finds no light, so the "
        "whole map gets the ambient level\n",
        path, double(light[0]), double(light[1]), double(light[2]));
}

static void CheckAmbient(const char* path, int ambient) {
    if (ambient > 255)
        CorvaneWarning("Script %s: AMBIENT %d is above 255; every texel bakes at the level 255\n",
                       path, ambient);
    if (ambient < 0)
        CorvaneWarning(
            "Script %s: AMBIENT %d is below 0; light levels wrap around below 0, so "
            "unlit texels bake as with AMBIENT %d\n",
            path, ambient, (ambient % 256 + 256) % 256);
}

static void CheckColour(const char* path, const char* key, const int (&rgb)[3]) {
    for (int c : rgb)
        if (c < 0 || c > 255) {
            CorvaneWarning(
                "Script %s: %s %d %d %d has a component outside 0 to 255; the colour "
                "is packed unmasked as 0x%X\n",
                path, key, rgb[0], rgb[1], rgb[2], unsigned(PackColour(rgb)));
            return;
        }
}

static void SetOversample(const char* path, int n) {
    if (n == 1 || n == 2 || n == 4 || n == 8 || n == 16) {
        ShadowSettings.Oversample = n;
        return;
    }
    CorvaneWarning("Script %s: OVERSAMPLE %d is not 1, 2, 4, 8 or 16; the bake keeps %d\n", path, n,
                   ShadowSettings.Oversample);
}

// Compares the word with the keys in their fixed order and applies the first that matches.
// FAST is recognised and, like FULLSCREEN, does nothing. False for a word that is no key.
static bool ApplyWord(FILE* file, const char* word, const char* path) {
    float light[3];
    int ints[3];
    if (_stricmp(word, "LIGHT") == 0) {
        if (ReadValues(file, light, 3)) {
            CheckLight(path, light);
            ShadowSettings.Light = {light[0], light[1], light[2]};
        }
    } else if (_stricmp(word, "SHADOW_COLOUR") == 0) {
        if (ReadValues(file, ints, 3)) {
            CheckColour(path, "SHADOW_COLOUR", ints);
            ShadowSettings.ShadowColour = PackColour(ints);
        }
    } else if (_stricmp(word, "LIGHT_COLOUR") == 0) {
        if (ReadValues(file, ints, 3)) {
            CheckColour(path, "LIGHT_COLOUR", ints);
            ShadowSettings.LightColour = PackColour(ints);
        }
    } else if (_stricmp(word, "TEXTURE_SIZE") == 0) {
        ReadValues(file, ints, 1);  // consumed only: no key sets the texture size
    } else if (_stricmp(word, "AMBIENT") == 0) {
        if (ReadValues(file, ints, 1)) {
            CheckAmbient(path, ints[0]);
            ShadowSettings.Ambient = ints[0];
        }
    } else if (_stricmp(word, "MAPSIZE") == 0) {
        ReadValues(file, ints, 2);  // consumed only: the map file gives the size
    } else if (_stricmp(word, "SCRIPT") == 0) {
        SetLitFile(file, path);
    } else if (_stricmp(word, "OVERSAMPLE") == 0) {
        if (ReadValues(file, ints, 1)) SetOversample(path, ints[0]);
    } else if (_stricmp(word, "FULLSCREEN") == 0 || _stricmp(word, "FAST") == 0) {
        // no effect
    } else if (_stricmp(word, "HEIGHTDATA") == 0) {
        ShadowSettings.WriteHeightData = 1;
    } else if (_stricmp(word, "ANIMATED") == 0) {
        if (ReadValues(file, ints, 1)) ShadowSettings.FrameCount = ints[0];
    } else {
        return false;
    }
    return true;
}

static void LogFailedOpen(const char* path) {
    static const char format[] = "***** FAILED TO OPEN SCRIPT %s *****";
    int length = std::snprintf(nullptr, 0, format, path);
    if (length < 0) return;
    size_t bytes = static_cast<size_t>(length) + 1;
    char* text = static_cast<char*>(MALLOC(bytes));
    if (!text) return;
    std::snprintf(text, bytes, format, path);
    LogMessage(text);
    if (text) FREE(text);
}

bool ParseShadowScript(const char* path, ShadowScriptReport* report) {
    ShadowScriptReport counts = {0, 0};
    ShadowSettings.FrameCount = 0;
    ShadowSettings.WriteHeightData = 0;

    // A directory opens for reading on Linux, but it is no script.
    struct _stat status;
    bool directory = _stat(path, &status) == 0 && (status.st_mode & _S_IFMT) == _S_IFDIR;
    FILE* file = directory ? nullptr : std::fopen(path, "r");
    if (!file) {
        LogFailedOpen(path);
        return false;
    }
    LastScriptPath = path;
    char word[ScriptWordSize];
    size_t length = 0;
    for (;;) {
        if (ReadWord(file, word, sizeof word, nullptr, &length)) {
            // A cut word or one with a NUL byte is no key, whatever text the buffer kept.
            if (length >= sizeof word)
                CorvaneWarning(
                    "Script %s: the word %.40s... is longer than %d characters; skipped\n", path,
                    word, ScriptWordSize - 1);
            bool key = length == std::strlen(word) && ApplyWord(file, word, path);
            ++(key ? counts.keys : counts.otherWords);
        }
        (void)std::fscanf(file, " ");
        // A read error never sets the end-of-file flag.
        if (std::feof(file) || std::ferror(file)) break;
    }
    std::fclose(file);
    if (report) *report = counts;
    return true;
}

const char* LastShadowScriptPath() {
    return LastScriptPath.c_str();
}
