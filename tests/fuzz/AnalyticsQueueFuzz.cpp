// Any bytes as the analytics queue's file, drained the way its loop drains
// it: every line handed out is whole ASCII text that either converts to a
// wire form or is one the loop discards; draining always ends; afterwards a
// fresh record saved there is the next line read and converts.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzScratchFile.h"
#include "analytics/ZVPConvertSavedEventForSend.h"
#include "analytics/ZVPCustomParams.h"
#include "analytics/ZVPFileSaver.h"
#include "analytics/ZVPLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const zivora::test::FuzzScratchFile scratch(zivora::ZVPFileSaver::kFileName);
  static const bool quiet = (zivora::ZVPLog::logEnable(false), true);
  (void)quiet;
  zivora::ZVPFileSaver saver(scratch.directory());
  scratch.fill(data, size);

  std::size_t rounds = 0;
  while (auto line = saver.getFirstEvent()) {
    if (!zivora::test::isLiveLine(*line) || ++rounds > size + 1) __builtin_trap();
    zivora::ZVPConvertSavedEventForSend converted(*line, 1767225600);
    if (converted.isError() && converted.getEvent()) __builtin_trap();
    saver.removeFirstLine();
  }

  zivora::ZVPCustomParams record;
  record.put("bo_AppId", "tessaro-profiling");
  record.put("bo_Name", "Fresh");
  record.put("bo_Order", 1);
  const std::string fresh = *record.toStr();
  if (saver.save(fresh)) {
    if (saver.getFirstEvent() != fresh) __builtin_trap();
    if (!zivora::ZVPConvertSavedEventForSend(fresh, 0).getEvent()) __builtin_trap();
  }
  saver.removeFile();
  return 0;
}
