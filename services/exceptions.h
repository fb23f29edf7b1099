// The exception family. Used for the agent, the id range and the settings alone; everything else in
// the tool reports failures by return values.
//
// A miss in the zone travels as NotFoundException and is caught by whoever asked. The others end
// the mapping phase; the driver turns them into an exit status.
#pragma once

#include <exception>
#include <string>

// Root of the family. `rc` is a result code, -1 unless the thrower has a better one.
class ORVSException : public std::exception {
 public:
  ORVSException(std::string message, std::string className, int resultCode);
  ~ORVSException() override;

  const char* what() const noexcept override;
  virtual int rc() const noexcept;
  virtual const char* className() const noexcept;

  // The identity of a class of the family is its name; two exceptions are of one class when this is
  // equal.
  std::string classID() const;

 private:
  std::string text;
  std::string nameOfClass;
  int code;
};

namespace orvs {

// `file` (a source tag such as "cli_idshift") and `line` tell where it was thrown; they are kept
// for debuggers and are not part of what().
class Base_Exception : public ORVSException {
 public:
  Base_Exception(const char* file, int line, const char* message, const char* className, int rc);

  const char* file() const noexcept { return sourceFile; }
  int line() const noexcept { return sourceLine; }

 private:
  const char* sourceFile;  // a literal
  int sourceLine;
};

// The account does not exist in the zone: an answer, not an error.
class NotFoundException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

// Every id of the range is taken.
class InvalidRangeException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

// The agent cannot be reached, or cannot say.
class IOException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

// The agent was lost, or talked nonsense, during a request.
class ConnectionBrokenException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

}  // namespace orvs
