// Any bytes as an event file. The reader hands out only whole ASCII event
// lines, always makes progress, reads the same next event in one pass with
// a consumption as on its own, and after it has drained the file a new
// event saved there is the next one read, whatever the file held before.
#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzScratchFile.h"
#include "eventqueue/EventFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const zivora::test::FuzzScratchFile scratch("events.dat");
  scratch.fill(data, size);

  zivora::EventFile file(zivora::EventFileOptions{.path = scratch.path()});
  // Every other event is consumed the way the queue does after a delivery,
  // which must answer what firstEvent() then does.
  std::size_t rounds = 0;
  while (auto event = file.firstEvent()) {
    if (!zivora::test::isLiveLine(*event) || ++rounds > size + 1) __builtin_trap();
    if (rounds % 2 == 0) {
      file.removeFirstLine();
      continue;
    }
    const auto next = file.removeFirstLineAndReadNext();
    if (next != file.firstEvent()) __builtin_trap();
  }
  const std::string fresh = "{\"fresh\":1}";
  if (file.save(fresh) && file.firstEvent() != fresh) __builtin_trap();
  return 0;
}
