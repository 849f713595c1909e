// Move-only owners for the GLib and GIO handles the Secret Service store
// holds, so that every early return releases what it took.
#ifndef VELMOR_PLATFORM_GLIB_HANDLE_H_
#define VELMOR_PLATFORM_GLIB_HANDLE_H_

#include <gio/gio.h>

#include <utility>

namespace velmor {

// Owns one reference to (or the one copy of) `T`, released with `Release`.
// Not thread-safe; an owner belongs to one call on one thread.
template <typename T, void (*Release)(T*)>
class GLibHandle final {
 public:
  GLibHandle() = default;
  // Takes over a reference the caller owns (a "transfer full" result).
  explicit GLibHandle(T* handle) : handle_(handle) {}
  ~GLibHandle() { reset(); }

  GLibHandle(GLibHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  GLibHandle& operator=(GLibHandle&& other) noexcept {
    reset(std::exchange(other.handle_, nullptr));
    return *this;
  }
  GLibHandle(const GLibHandle&) = delete;
  GLibHandle& operator=(const GLibHandle&) = delete;

  T* get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

  // For GLib's out parameters (GError**, ...): releases what is held first.
  T** out() {
    reset();
    return &handle_;
  }

  void reset(T* handle = nullptr) {
    if (handle_) Release(handle_);
    handle_ = handle;
  }

 private:
  T* handle_ = nullptr;
};

namespace glib_release {

template <typename T>
void unrefObject(T* object) {
  g_object_unref(object);
}
inline void freeText(gchar* text) { g_free(text); }
inline void destroySource(GSource* source) {
  g_source_destroy(source);
  g_source_unref(source);
}

}  // namespace glib_release

using ErrorHandle = GLibHandle<GError, g_error_free>;
template <typename T>
using ObjectHandle = GLibHandle<T, glib_release::unrefObject<T>>;
using HashTableHandle = GLibHandle<GHashTable, g_hash_table_unref>;
using VariantHandle = GLibHandle<GVariant, g_variant_unref>;
using MainContextHandle = GLibHandle<GMainContext, g_main_context_unref>;
// An attached source: destroyed (it never fires again) and unreferenced.
using SourceHandle = GLibHandle<GSource, glib_release::destroySource>;

}  // namespace velmor

#endif  // VELMOR_PLATFORM_GLIB_HANDLE_H_
