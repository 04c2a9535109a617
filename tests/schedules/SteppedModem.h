// SteppedModem: the ZAP client library and a data service in the threads of a scenario: it answers
// at once, and its callbacks are a scenario thread's own calls. Each call of it is a point.
#pragma once

#include <cstdint>

namespace zem::schedules {

// On a thread that plays the modem's part. Does nothing while the library has no client.
void indicate(uint32_t event, uint8_t profile);
void restart();

// The modem loses the profile, and says so.
void removeByNetwork(uint8_t profile);

unsigned profilesStored();

// Fails unless every handle is released; empties the modem.
void endModem();

}  // namespace zem::schedules
