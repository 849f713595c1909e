// A time bound for GIO asynchronous work, run to completion on the calling
// thread.
#ifndef VELMOR_PLATFORM_DEADLINE_CONTEXT_H_
#define VELMOR_PLATFORM_DEADLINE_CONTEXT_H_

#include <gio/gio.h>

#include <chrono>
#include <functional>
#include <vector>

#include "platform/GLibHandle.h"

namespace velmor {

// One bounded stretch of work on a GMainContext that the caller owns (and
// that no other thread iterates meanwhile): the context is pushed as the
// calling thread's default for this object's lifetime, and a GCancellable
// is cancelled by a timeout source on it when the deadline passes.
// Asynchronous GIO calls made meanwhile with cancellable() deliver their
// results to that context, and await() iterates it until they complete:
// every call ends by the deadline, because cancelling makes GDBus finish
// pending calls at once (G_IO_ERROR_CANCELLED) and calls started later fail
// straight away.
//
// No thread is started and none is left behind: the work runs on the
// caller's thread (GDBus's own I/O thread aside), and the destructor drains
// what finished calls left queued on the context. Make, use and destroy an
// instance on one thread.
class DeadlineContext final {
 public:
  DeadlineContext(GMainContext* context, std::chrono::milliseconds deadline);
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
  // Starts every call before waiting for any, so that their round trips
  // overlap; the results come back in the order of `starts`.
  std::vector<ObjectHandle<GAsyncResult>> awaitAll(const std::vector<Start>& starts);

 private:
  static gboolean onDeadline(gpointer self);
  static void onReady(GObject* source, GAsyncResult* result, gpointer slot);

  GMainContext* context_;
  ObjectHandle<GCancellable> cancellable_;
  SourceHandle timeout_;
  bool expired_ = false;
};

}  // namespace velmor

#endif  // VELMOR_PLATFORM_DEADLINE_CONTEXT_H_
