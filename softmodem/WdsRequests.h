// WdsRequests: what the modem does with each request of the WDS service.
// Called with the modem's mutex held.
#pragma once

#include <vector>

#include "ModemState.h"

namespace softmodem {

// What one request leads to besides its response.
struct Outcome {
    ErrorCode error = ErrorCode::kNone;
    std::vector<Change> changes;  // to be indicated
    bool nowRegistered = false;   // to be told that the profiles are ready
};

// Fills the response, whose size has been checked to hold a result at least; a refusal touches
// nothing but the result.
Outcome carryOut(ModemState& modem, ClientId id, unsigned messageId, const void* request,
                 size_t requestSize, void* response, size_t responseSize);

void writeResult(void* response, ErrorCode error);

// For faults that spoil a response which is otherwise right.
void spoilResponse(unsigned messageId, void* response, const MetFaults& met);

}  // namespace softmodem
