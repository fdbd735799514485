#include "automation/ComError.h"

#include <utility>

namespace vx {

ComError::ComError(std::int32_t number, std::string source, std::string description,
                   std::string helpFile, std::int32_t helpContext)
    : std::runtime_error(description),
      m_number(number),
      m_source(std::move(source)),
      m_description(std::move(description)),
      m_helpFile(std::move(helpFile)),
      m_helpContext(helpContext) {}

std::string RuntimeErrorText(std::int32_t number) {
    switch (number) {
        case kErrInvalidProcedureCall:
            return "Invalid procedure call or argument";
        case kErrOverflow:
            return "Overflow";
        case kErrSubscriptOutOfRange:
            return "Subscript out of range";
        case kErrDivisionByZero:
            return "Division by zero";
        case kErrTypeMismatch:
            return "Type mismatch";
        case kErrObjectNotSet:
            return "Object variable or With block variable not set";
        case kErrInvalidUseOfNull:
            return "Invalid use of Null";
        case kErrResourceNotFound:
            return "Resource with identifier not found";
        case kErrDuplicateKey:
            return "This key is already associated with an element of this collection";
        default:
            return "Application-defined or object-defined error";
    }
}

ComError RuntimeError(std::int32_t number, std::string source) {
    return ComError(number, std::move(source), RuntimeErrorText(number));
}

void RaiseRuntimeError(std::int32_t number, std::string source) {
    throw RuntimeError(number, std::move(source));
}

}  // namespace vx
