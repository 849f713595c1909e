#include "platform/DeadlineContext.h"

#include <algorithm>
#include <limits>

namespace velmor {

namespace {

guint timeoutMilliseconds(std::chrono::milliseconds deadline) {
  auto limit = std::chrono::milliseconds(std::numeric_limits<guint>::max());
  return static_cast<guint>(std::clamp(deadline, std::chrono::milliseconds(0), limit).count());
}

}  // namespace

DeadlineContext::DeadlineContext(GMainContext* context, std::chrono::milliseconds deadline)
    : context_(context),
      cancellable_(g_cancellable_new()),
      timeout_(g_timeout_source_new(timeoutMilliseconds(deadline))) {
  g_source_set_callback(timeout_.get(), &DeadlineContext::onDeadline, this, nullptr);
  g_source_attach(timeout_.get(), context_);
  g_main_context_push_thread_default(context_);
}

DeadlineContext::~DeadlineContext() {
  timeout_.reset();
  // Finished calls may still have queued idle work here (late replies of
  // cancelled calls); run it so that nothing it owns leaks.
  while (g_main_context_iteration(context_, FALSE)) {
  }
  g_main_context_pop_thread_default(context_);
}

ObjectHandle<GAsyncResult> DeadlineContext::await(const Start& start) {
  return std::move(awaitAll({start}).front());
}

std::vector<ObjectHandle<GAsyncResult>> DeadlineContext::awaitAll(
    const std::vector<Start>& starts) {
  std::vector<ObjectHandle<GAsyncResult>> results(starts.size());
  for (std::size_t i = 0; i < starts.size(); ++i) starts[i](&DeadlineContext::onReady, &results[i]);
  for (const ObjectHandle<GAsyncResult>& result : results) {
    while (!result) g_main_context_iteration(context_, TRUE);
  }
  return results;
}

gboolean DeadlineContext::onDeadline(gpointer self) {
  auto* context = static_cast<DeadlineContext*>(self);
  context->expired_ = true;
  g_cancellable_cancel(context->cancellable_.get());
  return G_SOURCE_REMOVE;
}

void DeadlineContext::onReady(GObject*, GAsyncResult* result, gpointer slot) {
  static_cast<ObjectHandle<GAsyncResult>*>(slot)->reset(G_ASYNC_RESULT(g_object_ref(result)));
}

}  // namespace velmor
