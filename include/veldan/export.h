#ifndef VELDAN_EXPORT_H
#define VELDAN_EXPORT_H

/**
 * @file
 * Marks what the shared library exports. Everything else is compiled with hidden visibility.
 */

/** Put before a function, class or variable that leaves the library. */
#if defined(__GNUC__)
#define VELDAN_API __attribute__((visibility("default")))
#else
#define VELDAN_API
#endif

/** Put around declarations that carry plain symbol names. */
#ifdef __cplusplus
#define VELDAN_BEGIN_DECLS extern "C" {
#define VELDAN_END_DECLS }
#else
#define VELDAN_BEGIN_DECLS
#define VELDAN_END_DECLS
#endif

#endif
