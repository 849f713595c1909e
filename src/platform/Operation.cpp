#include "velmor/Operation.h"

#include "support/Format.h"

namespace velmor {

void Operation::start() {
  if (started_.exchange(true)) return;
  struct MarkFinished {
    Operation& operation;
    ~MarkFinished() {
      operation.executing_.store(false);
      operation.finished_.store(true);
    }
  } markFinished{*this};
  if (isCancelled()) return;
  executing_.store(true);
  main();
}

std::string Operation::description() const {
  return stringWithFormat("<Operation: %p>", static_cast<const void*>(this));
}

}  // namespace velmor
