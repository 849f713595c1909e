#include "json/xSBJsonStreamParserAdapter.h"

#include <iterator>
#include <utility>

#include "support/Format.h"
#include "velmor/Exception.h"

namespace velmor {

namespace {

constexpr std::size_t kInitialStackCapacity = 32;

[[noreturn]] void raiseUnsatisfied(const char* condition) {
  throw InternalInconsistencyException(
      stringWithFormat("Invalid parameter not satisfying: %s", condition));
}

}  // namespace

xSBJsonStreamParserAdapter::xSBJsonStreamParserAdapter() {
  containers_.reserve(kInitialStackCapacity);
  arrayItems_.reserve(kInitialStackCapacity);
  objectMembers_.reserve(kInitialStackCapacity);
  keyStack_.reserve(kInitialStackCapacity);
}

template <typename... Args>
void xSBJsonStreamParserAdapter::addValue(Args&&... args) {
  // The parser refuses values outside a container, so there is no outer-most
  // scalar to hand on.
  if (containers_.empty()) return;
  if (!containers_.back().isObject) {
    arrayItems_.emplace_back(std::forward<Args>(args)...);
    return;
  }
  if (keyStack_.empty()) raiseUnsatisfied("keyStack.count");
  objectMembers_.emplace_back(std::piecewise_construct,
                              std::forward_as_tuple(std::move(keyStack_.back())),
                              std::forward_as_tuple(std::forward<Args>(args)...));
  keyStack_.pop_back();
}

void xSBJsonStreamParserAdapter::parserFoundObjectStart(xSBJsonStreamParser&) {
  openContainer(true);
}

void xSBJsonStreamParserAdapter::foundObjectKey(xSBJsonStreamParser&, std::string_view key) {
  keyStack_.emplace_back(key);
}

void xSBJsonStreamParserAdapter::parserFoundObjectEnd(xSBJsonStreamParser& parser) {
  closeContainer(parser);
}

void xSBJsonStreamParserAdapter::parserFoundArrayStart(xSBJsonStreamParser&) {
  openContainer(false);
}

void xSBJsonStreamParserAdapter::parserFoundArrayEnd(xSBJsonStreamParser& parser) {
  closeContainer(parser);
}

void xSBJsonStreamParserAdapter::foundBoolean(xSBJsonStreamParser&, bool value) { addValue(value); }

void xSBJsonStreamParserAdapter::parserFoundNull(xSBJsonStreamParser&) { addValue(nullptr); }

void xSBJsonStreamParserAdapter::foundNumber(xSBJsonStreamParser&, Value number) {
  addValue(std::move(number));
}

void xSBJsonStreamParserAdapter::foundString(xSBJsonStreamParser&, std::string_view string) {
  addValue(string);
}

void xSBJsonStreamParserAdapter::openContainer(bool isObject) {
  containers_.push_back(
      OpenContainer{isObject, isObject ? objectMembers_.size() : arrayItems_.size()});
}

void xSBJsonStreamParserAdapter::closeContainer(xSBJsonStreamParser& parser) {
  if (containers_.empty()) raiseUnsatisfied("obj");
  OpenContainer closing = containers_.back();
  containers_.pop_back();
  bool isOuterMost = containers_.empty();

  if (closing.isObject) {
    Dictionary::Entry* first = objectMembers_.data() + closing.firstItem;
    Dictionary object =
        Dictionary::fromEntries(first, objectMembers_.data() + objectMembers_.size());
    objectMembers_.resize(closing.firstItem);
    if (!isOuterMost) {
      addValue(std::move(object));
    } else if (delegate_) {
      delegate_->foundObject(parser, std::move(object));
    }
  } else {
    auto first = arrayItems_.begin() + static_cast<std::ptrdiff_t>(closing.firstItem);
    Array array(std::make_move_iterator(first), std::make_move_iterator(arrayItems_.end()));
    arrayItems_.erase(first, arrayItems_.end());
    if (!isOuterMost) {
      addValue(std::move(array));
    } else if (delegate_) {
      delegate_->foundArray(parser, std::move(array));
    }
  }
}

}  // namespace velmor
