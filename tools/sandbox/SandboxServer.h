#pragma once

namespace zivora::sandbox {

// Placeholder until the sandbox server lands.
class SandboxServer {};

}  // namespace zivora::sandbox
