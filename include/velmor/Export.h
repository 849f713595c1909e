// Marks what the library exports. A shared build hides every other symbol,
// so that only the API declared in these headers is part of its ABI.
#ifndef VELMOR_EXPORT_H_
#define VELMOR_EXPORT_H_

#if defined(__GNUC__) || defined(__clang__)
#define VELMOR_EXPORT __attribute__((visibility("default")))
// For a class nested in an exported one that stays internal (a private
// implementation): it would otherwise be exported with its enclosing class.
#define VELMOR_NO_EXPORT __attribute__((visibility("hidden")))
#else
#define VELMOR_EXPORT
#define VELMOR_NO_EXPORT
#endif

#endif  // VELMOR_EXPORT_H_
