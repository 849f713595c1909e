#include "json/xSBJsonStreamParserAccumulator.h"

#include <utility>

namespace velmor {

void xSBJsonStreamParserAccumulator::foundArray(xSBJsonStreamParser&, Array array) {
  value_.emplace(std::move(array));
}

void xSBJsonStreamParserAccumulator::foundObject(xSBJsonStreamParser&, Dictionary object) {
  value_.emplace(std::move(object));
}

}  // namespace velmor
