#pragma once

/// HTTP_INTERFACE_API marks the classes whose members are public symbols of
/// the library. HTTP_INTERFACE_BUILDING is defined only while the library
/// itself is compiled.
#if defined(_WIN32)
#if defined(HTTP_INTERFACE_BUILDING)
#define HTTP_INTERFACE_API __declspec(dllexport)
#else
#define HTTP_INTERFACE_API __declspec(dllimport)
#endif
#else
#define HTTP_INTERFACE_API __attribute__((visibility("default")))
#endif
