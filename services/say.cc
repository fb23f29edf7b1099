#include "services/say.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "services/progress_line.h"
#include "services/text.h"

void issueMessage(
    const orvs::LoggerPtr& logger, int level, SayPlace place, Echo echo, const char* format, ...) {
  const int savedErrno = errno;
  va_list arguments;
  va_start(arguments, format);
  std::string text = formatText(format, arguments);
  va_end(arguments);

  if (orvs::logEnabled(logger, level))
    logger->log(level, place.file, place.line, place.function, "%s", text.c_str());
  if (echo != Echo::None) {
    FILE* stream = echo == Echo::Stdout ? stdout : stderr;
    progress_line::clear();
    text += '\n';
    fwrite(text.data(), 1, text.size(), stream);
  }
  errno = savedErrno;
}
