// The faults the fake codec host (fake_host.cpp) can show, and its test controls, which a test
// finds with dlsym on the module the player loaded.
#pragma once

#include <cstdint>

enum FakeHostFault { kFakeHostNoFault, kFakeHostCannotBeMade, kFakeHostNoStatus, kFakeHostBusy };

extern "C" {
void FakeHost_SetFault(int fault);
int64_t FakeHost_Polls();  // GetState calls so far
int64_t FakeHost_Runs();   // Run calls so far
}
