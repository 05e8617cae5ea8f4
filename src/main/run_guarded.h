#pragma once

#include <functional>

#include "main/run/processor.h"

namespace tolven {

// The one catch ladder of the program: runs `body` and turns whatever leaves it into a printed message and an
// exit code. Shared by main and the embedded entry; nothing escapes.
void RunGuarded(CProcessor& processor, const std::function<void()>& body);

}  // namespace tolven
