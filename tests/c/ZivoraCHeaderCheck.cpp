// Compiled as C++ with -pedantic: the C header must also be valid C++.
#include "zivora/zivora_c.h"

int zivoraCHeaderCheckCxx() {
  zivora_options options;
  zivora_options_init(&options);
  return static_cast<int>(options.struct_size);
}
