// Runs a program as a user would from a shell: arguments, optional environment
// changes, captured standard output and error, and the exit code. One interface,
// two implementations: run_process_posix.cpp and run_process_win32.cpp.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kxtest {

struct ProcessResult {
  int exitCode = -1;   // exit status (on POSIX 128 + signal number for a signal)
  std::string out;     // standard output
  std::string err;     // standard error
};

// Runs `program` with `args`. `env` entries are set (an empty value unsets the
// variable) on top of this process's environment. Standard input is the null
// device (/dev/null, NUL), or a pipe that carries `input` when it is given.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env = {},
                         const std::optional<std::string>& input = std::nullopt);

}  // namespace kxtest
