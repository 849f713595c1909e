#include "velmor/BlockOperation.h"

#include <utility>

#include "velmor/Exception.h"

namespace velmor {

BlockOperation::BlockOperation(std::function<void()> block) : block_(std::move(block)) {
  if (!block_) throw InvalidArgumentException("-[BlockOperation initWithBlock:]: block is empty");
}

std::shared_ptr<BlockOperation> BlockOperation::blockOperationWithBlock(
    std::function<void()> block) {
  return std::make_shared<BlockOperation>(std::move(block));
}

void BlockOperation::main() {
  // Moved out first: the captures die here, on the queue's thread, rather
  // than whenever the last reference to the operation goes.
  std::function<void()> block = std::move(block_);
  block_ = nullptr;
  if (block) block();
}

}  // namespace velmor
