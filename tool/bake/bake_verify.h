// The proof that the fast core bakes what the literal walk bakes: sample rows spread over the map
// baked again through both, compared sample by sample.
#pragma once

#include <cstdint>

#include "tool/bake/shadow_settings.h"

class CMesh;

struct VerifyOutcome {
    int rowsChecked = 0;
    bool identical = true;
    // The first differing sample, by row then column, where not identical.
    int row = 0, column = 0;
    float x = 0, z = 0;                      // its world position
    uint32_t fastAdds = 0, literalAdds = 0;  // what it adds to its texel through each core
};

// Compares what each sample of `rows` sample rows adds (the first, the last and rows evenly
// between; every row where the map has no more) through the fast core and through the literal
// walk under the half-open rule. The mesh must stand as it was baked; threads as in a bake.
VerifyOutcome VerifyBakeRows(const ShadowSettingsRecord& settings, CMesh* mesh, int rows,
                             int threads);
