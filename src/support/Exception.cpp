#include "velmor/Exception.h"

#include <utility>

namespace velmor {

Exception::Exception(std::string name, std::string reason, Dictionary userInfo)
    : name_(std::move(name)), reason_(std::move(reason)), userInfo_(std::move(userInfo)) {}

InvalidArgumentException::InvalidArgumentException(std::string reason)
    : Exception("NSInvalidArgumentException", std::move(reason)) {}

RangeException::RangeException(std::string reason)
    : Exception("NSRangeException", std::move(reason)) {}

InternalInconsistencyException::InternalInconsistencyException(std::string reason)
    : Exception("NSInternalInconsistencyException", std::move(reason)) {}

GenericException::GenericException(std::string reason)
    : Exception("NSGenericException", std::move(reason)) {}

}  // namespace velmor
