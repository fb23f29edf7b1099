// The exception family. Only three things throw it: the client of the agent, the search for a spare
// id, and the settings. Everything else reports failures by return values.
//
// NotFoundException means that the zone has no such account; the caller who asked catches it. The
// others end the comparison of the accounts, and the driver turns them into an exit status.
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

  // The name of the class. Two exceptions are of one class when their names are equal.
  std::string classID() const;

 private:
  std::string text;
  std::string nameOfClass;
  int code;
};

namespace orvs {

// `file` (a source tag such as "cli_idshift") and `line` are the place of the throw. They are kept
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

// The agent cannot be reached, or it answers that it cannot find out.
class IOException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

// The connection to the agent broke during a request, or the answer made no sense.
class ConnectionBrokenException : public Base_Exception {
 public:
  using Base_Exception::Base_Exception;
};

}  // namespace orvs
