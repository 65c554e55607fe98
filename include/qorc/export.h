// The one export macro of the library's public interface.
#ifndef QORC_EXPORT_H
#define QORC_EXPORT_H

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
