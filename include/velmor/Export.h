// Marks what the library exports. A shared build hides every other symbol,
// so that only the API declared in these headers is part of its ABI.
#ifndef VELMOR_EXPORT_H_
#define VELMOR_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define VELMOR_EXPORT __attribute__((visibility("default")))
#else
#define VELMOR_EXPORT
#endif

#endif  // VELMOR_EXPORT_H_
