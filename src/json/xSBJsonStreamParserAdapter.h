// Builds arrays and dictionaries from the stream parser's events.
#ifndef VELMOR_JSON_XSBJSONSTREAMPARSERADAPTER_H_
#define VELMOR_JSON_XSBJSONSTREAMPARSERADAPTER_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "json/xSBJsonStreamParser.h"
#include "velmor/Value.h"

namespace velmor {

// Receives each finished outer-most container.
class xSBJsonStreamParserAdapterDelegate {
 public:
  virtual ~xSBJsonStreamParserAdapterDelegate() = default;

  virtual void foundArray(xSBJsonStreamParser& parser, Array array) = 0;
  virtual void foundObject(xSBJsonStreamParser& parser, Dictionary object) = 0;
};

// Turns parser events into a tree of values. The contents of the open
// containers wait on two shared stacks (array elements, object members) and
// move into a container of exactly the right size when it closes, so that
// building costs one allocation per container. For a key given twice in one
// object the later member wins.
//
// Events must come in the order a parser sends them; an end without an open
// container, or an object member without a key, is a programming error and
// raises InternalInconsistencyException. The delegate is not owned.
class xSBJsonStreamParserAdapter final : public xSBJsonStreamParserDelegate {
 public:
  xSBJsonStreamParserAdapter();

  xSBJsonStreamParserAdapterDelegate* delegate() const { return delegate_; }
  void setDelegate(xSBJsonStreamParserAdapterDelegate* delegate) { delegate_ = delegate; }

  // How many outer levels are reported piecewise instead of being built.
  // The reader builds every level.
  std::size_t levelsToSkip() const { return 0; }

  void parserFoundObjectStart(xSBJsonStreamParser& parser) override;
  void foundObjectKey(xSBJsonStreamParser& parser, std::string_view key) override;
  void parserFoundObjectEnd(xSBJsonStreamParser& parser) override;
  void parserFoundArrayStart(xSBJsonStreamParser& parser) override;
  void parserFoundArrayEnd(xSBJsonStreamParser& parser) override;
  void foundBoolean(xSBJsonStreamParser& parser, bool value) override;
  void parserFoundNull(xSBJsonStreamParser& parser) override;
  void foundNumber(xSBJsonStreamParser& parser, Value number) override;
  void foundString(xSBJsonStreamParser& parser, std::string_view string) override;

 private:
  struct OpenContainer {
    bool isObject;
    std::size_t firstItem;  // index of its first element or member on the shared stack
  };

  void openContainer(bool isObject);
  // Closes the current container, whichever end event asked for it.
  void closeContainer(xSBJsonStreamParser& parser);
  // Stores a value made from `args` in the current container.
  template <typename... Args>
  void addValue(Args&&... args);

  xSBJsonStreamParserAdapterDelegate* delegate_ = nullptr;
  std::vector<OpenContainer> containers_;
  std::vector<Value> arrayItems_;
  std::vector<Dictionary::Entry> objectMembers_;
  std::vector<std::string> keyStack_;
};

}  // namespace velmor

#endif  // VELMOR_JSON_XSBJSONSTREAMPARSERADAPTER_H_
