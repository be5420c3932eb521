// Reader of the shadow script (.ssf): blank-separated words, keys ignoring case, each key followed
// by a fixed number of values; unknown words are skipped one by one.
#pragma once

// What a read met, for a front end that wants to tell a user that a script held no key at all.
struct ShadowScriptReport {
    int keys;        // keys applied (or whose values failed to convert)
    int otherWords;  // words skipped as no key
};

// Reads one script into ShadowSettings. FrameCount and WriteHeightData are reset first, even when
// the file can't be opened. Returns whether the file could be opened; says nothing of its contents.
bool ParseShadowScript(const char* path, ShadowScriptReport* report = nullptr);

// The path of the last script that could be opened, as it was given; "" before the first. The
// light description it names may stand beside it.
const char* LastShadowScriptPath();
