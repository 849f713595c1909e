// Keeps the outer-most value an adapter has built.
#ifndef VELMOR_JSON_XSBJSONSTREAMPARSERACCUMULATOR_H_
#define VELMOR_JSON_XSBJSONSTREAMPARSERACCUMULATOR_H_

#include <optional>
#include <utility>

#include "json/xSBJsonStreamParserAdapter.h"
#include "velmor/Value.h"

namespace velmor {

// Holds the finished document: absent until the adapter reports the
// outer-most array or object.
class xSBJsonStreamParserAccumulator final : public xSBJsonStreamParserAdapterDelegate {
 public:
  const std::optional<Value>& value() const { return value_; }
  // Hands the value over, leaving the accumulator empty.
  std::optional<Value> takeValue() { return std::exchange(value_, std::nullopt); }

  void foundArray(xSBJsonStreamParser& parser, Array array) override;
  void foundObject(xSBJsonStreamParser& parser, Dictionary object) override;

 private:
  std::optional<Value> value_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONSTREAMPARSERACCUMULATOR_H_
