#include "zivora/ZVConstants.h"

namespace zivora {

const double ZivoraSDKVersionNumber = 1.0;

// A what(1)-style banner, so the version can also be read out of the binary.
const char* const ZivoraSDKVersionString =
    "@(#)PROGRAM:Zivora  PROJECT:Zivora-" ZIVORA_VERSION_STRING;

}  // namespace zivora
