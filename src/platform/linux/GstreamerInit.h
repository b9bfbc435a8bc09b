#pragma once

namespace zivora::platform {

// Initialises GStreamer once for the process, on first use. A host that
// initialised it already keeps its set-up. False when GStreamer cannot start
// (the reason is logged once).
bool ensureGstreamer() noexcept;

}  // namespace zivora::platform
