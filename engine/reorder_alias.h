// Short-block reordering and alias reduction of one granule-channel's spectrum.
#pragma once

#include <cstdint>

#include "engine_types.h"

namespace kxmp3 {

// Reorders a short (block_type 2) block from band-then-window order into the
// interleaved order (line i of window w at short start S + 3 i + w). Mixed blocks keep
// their first 36 lines. Does nothing for other block types.
void ReorderShortBlock(double* spectrum, const GranuleInfo& gi, uint32_t rateCode);

// The driver's per-channel alias-reduction decision: long blocks over the boundaries
// below active_subbands - 1, mixed blocks only the boundary between subbands 0 and 1,
// pure short blocks nothing. `spectrum` is 16-byte aligned.
void AliasReduce(double* spectrum, const GranuleInfo& gi);

}  // namespace kxmp3
