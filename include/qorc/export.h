/// @file
/// The one export macro of the library's public interface.
#ifndef QORC_EXPORT_H
#define QORC_EXPORT_H

/// @def QORC_API
/// Marks the library's public interface: exported by the shared library when it
/// is built, imported (on Windows) by the programs that use it; everything else is hidden.
#if defined(_WIN32)
#if defined(QORC_BUILDING)
#define QORC_API __declspec(dllexport)
#elif defined(QORC_STATIC)
// Linked from the static archive (the library's own tests and benchmarks).
#define QORC_API
#else
#define QORC_API __declspec(dllimport)
#endif
#else
#define QORC_API __attribute__((visibility("default")))
#endif

#endif
