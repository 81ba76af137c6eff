// Errors of kxhost. A CliError is a failure a user can act on: main prints its
// message as one line on standard error and exits with its status. A failure that
// concerns one input file also carries the result code behind it, so that batch
// commands can report it per file (text line or JSON) and go on with the others.
#pragma once

#include <stdexcept>
#include <string>

#include "host/kx_result_codes.h"

namespace kxhost {

// Exit statuses of kxhost.
constexpr int kExitOk = 0;
constexpr int kExitFileFailed = 1;  // an input file could not be read or decoded (probe: not taken)
constexpr int kExitUsage = 2;       // bad arguments, module not found, output not writable
constexpr int kExitShort = 3;       // decode: an input ended before the length its header declares
                                    // (the output holds all there was; --allow-short makes it 0)

class CliError : public std::runtime_error {
 public:
  explicit CliError(const std::string& message, int exitCode = kExitUsage)
      : std::runtime_error(message), exitCode_(exitCode) {}
  int ExitCode() const { return exitCode_; }

 private:
  int exitCode_;
};

// A failure tied to one input file: "FILE: REASON (NAME, 0xCODE)".
class FileError : public CliError {
 public:
  FileError(const std::string& file, const std::string& reason, KxResult code);
  const std::string& File() const { return file_; }
  const std::string& Reason() const { return reason_; }
  KxResult Code() const { return code_; }

 private:
  std::string file_;
  std::string reason_;
  KxResult code_;
};

// Thrown when SIGINT/SIGTERM stopped the work (see interrupt.h).
class Interruption : public CliError {
 public:
  Interruption() : CliError("interrupted", 130) {}
};

// "AF_E_NO_SYNC, 0x3101" (or "0x1234" for a code without a name).
std::string ResultText(KxResult code);
// The result code's name, or "" for a code without one.
std::string ResultName(KxResult code);
// A short sentence for the codes a user meets when a file is opened or decoded
// ("no MPEG audio frame found"); "the module refused the file" for the others.
std::string ResultReason(KxResult code);

}  // namespace kxhost
