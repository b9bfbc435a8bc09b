#pragma once

// Marks the symbols that libzivora exports; everything else is hidden.
#if defined(ZIVORA_STATIC)
#define ZIVORA_API
#elif defined(__GNUC__)
#define ZIVORA_API __attribute__((visibility("default")))
#else
#define ZIVORA_API
#endif
