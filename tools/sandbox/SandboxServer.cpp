#include "SandboxServer.h"
