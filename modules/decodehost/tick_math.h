// The module's tick sums: the library's saturating arithmetic (vexel/tick_math.h).
//
// Threads: pure functions, any thread.
#pragma once

#include "vexel/tick_math.h"

namespace vexel::decodehost {

using vexel::AddTicks;
using vexel::SubTicks;

}  // namespace vexel::decodehost
