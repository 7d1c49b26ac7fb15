// Symbol visibility of the shared library. Only names marked TESSEL_API are exported;
// everything else stays internal (the library is built with hidden visibility).
#pragma once

#if defined(_WIN32)
#if defined(TESSEL_BUILDING_LIBRARY)
#define TESSEL_API __declspec(dllexport)
#else
#define TESSEL_API __declspec(dllimport)
#endif
#else
#define TESSEL_API __attribute__((visibility("default")))
#endif

// The entry point a separately loaded module of the library exports (looked up by name).
#if defined(_WIN32)
#define TESSEL_MODULE_ENTRY extern "C" __declspec(dllexport)
#else
#define TESSEL_MODULE_ENTRY extern "C" __attribute__((visibility("default")))
#endif
