// Checked standard output (see standard_output.h).
#include "standard_output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli_error.h"

namespace kxhost {

namespace {

[[noreturn]] void Fail(int error) {
  throw CliError(std::string("cannot write standard output: ") +
                 (error != 0 ? std::strerror(error) : "write error"));
}

}  // namespace

void FlushStandardOutput() {
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) Fail(errno);
}

void CloseStandardOutput() {
  FlushStandardOutput();
  errno = 0;
  if (std::fclose(stdout) != 0 && errno != EBADF) Fail(errno);
}

}  // namespace kxhost
