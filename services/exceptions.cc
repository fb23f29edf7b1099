#include "services/exceptions.h"

#include <utility>

ORVSException::ORVSException(std::string message, std::string className, int resultCode)
    : text(std::move(message)), nameOfClass(std::move(className)), code(resultCode) {}

ORVSException::~ORVSException() = default;

const char* ORVSException::what() const noexcept {
  return text.c_str();
}

int ORVSException::rc() const noexcept {
  return code;
}

const char* ORVSException::className() const noexcept {
  return nameOfClass.c_str();
}

std::string ORVSException::classID() const {
  return nameOfClass;
}

namespace orvs {

Base_Exception::Base_Exception(
    const char* file, int line, const char* message, const char* className, int rc)
    : ORVSException(message, className, rc), sourceFile(file), sourceLine(line) {}

}  // namespace orvs
