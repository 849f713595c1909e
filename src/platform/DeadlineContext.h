// A time bound for GIO asynchronous work, run to completion on the calling
// thread.
#ifndef VELMOR_PLATFORM_DEADLINE_CONTEXT_H_
#define VELMOR_PLATFORM_DEADLINE_CONTEXT_H_

#include <gio/gio.h>

#include <chrono>
#include <functional>

#include "platform/GLibHandle.h"

namespace velmor {

// Owns a private GMainContext, pushed as the calling thread's default for
// its lifetime, and a GCancellable that a timeout source on that context
// cancels when the deadline passes. Asynchronous GIO and libsecret calls made
// meanwhile with cancellable() deliver their results to this context, and
// await() iterates it until a call completes: every call ends by the
// deadline, because cancelling makes GDBus finish pending calls at once
// (G_IO_ERROR_CANCELLED) and calls started later fail straight away.
//
// No thread is started and none is left behind: the work runs on the
// caller's thread (GDBus's own I/O thread aside), and the destructor drains
// what the finished calls left queued before the context goes. Make,
// use and destroy an instance on one thread, and destroy every GLib object
// made under it first (declare them after it).
class DeadlineContext final {
 public:
  explicit DeadlineContext(std::chrono::milliseconds deadline);
  ~DeadlineContext();
  DeadlineContext(const DeadlineContext&) = delete;
  DeadlineContext& operator=(const DeadlineContext&) = delete;

  GCancellable* cancellable() const { return cancellable_.get(); }
  // Whether the deadline has passed and cancelled the work.
  bool expired() const { return expired_; }

  // Calls `start` with a completion callback and its user data, to be given
  // to one asynchronous call, and returns that call's result for its
  // `_finish` function once it completes.
  using Start = std::function<void(GAsyncReadyCallback callback, gpointer userData)>;
  ObjectHandle<GAsyncResult> await(const Start& start);

 private:
  static gboolean onDeadline(gpointer self);
  static void onReady(GObject* source, GAsyncResult* result, gpointer slot);

  MainContextHandle context_;
  ObjectHandle<GCancellable> cancellable_;
  SourceHandle timeout_;
  bool expired_ = false;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_DEADLINE_CONTEXT_H_
