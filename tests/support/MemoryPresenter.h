#pragma once

#include "platform/dispatch/Runtime.h"

namespace zivora::test {

// Has the current context draw its screens in memory on a 640 x 360 screen
// (landscape), and opens the display on the main queue as start-up does.
void useMemoryPresenter(dispatch::Runtime& runtime);

}  // namespace zivora::test
