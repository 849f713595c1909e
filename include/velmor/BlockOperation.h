// An operation whose work is a function.
#ifndef VELMOR_BLOCK_OPERATION_H_
#define VELMOR_BLOCK_OPERATION_H_

#include <functional>
#include <memory>

#include "velmor/Export.h"
#include "velmor/Operation.h"

namespace velmor {

// Runs its block once, as `main`. The block is released as soon as it has
// run, so whatever it captured does not live on with the operation.
class VELMOR_EXPORT BlockOperation final : public Operation {
 public:
  // An empty block throws InvalidArgumentException.
  explicit BlockOperation(std::function<void()> block);

  static std::shared_ptr<BlockOperation> blockOperationWithBlock(std::function<void()> block);

  void main() override;

 private:
  std::function<void()> block_;
};

}  // namespace velmor

#endif  // VELMOR_BLOCK_OPERATION_H_
