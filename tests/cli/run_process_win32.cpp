// Runs a program and captures its output (see run_process.h): Windows, with
// CreateProcessW. The arguments become one UTF-16 command line quoted so that the C
// runtime's parser gives them back unchanged; standard output and error are drained
// by one thread each while this thread feeds standard input, so that no pipe can
// fill up and stall the child.
#include "run_process.h"

#include "../../platform/win32/windows_api.h"

#include <algorithm>
#include <thread>

#include "win32/utf16_path.h"

namespace kxtest {

namespace {

using kxhost::Utf16Path;

// One argument as the C runtime splits a command line: quotes around it when it is
// empty or holds white space or quotes; backslashes doubled only where a quote
// follows them.
void AppendQuoted(std::wstring& line, const std::wstring& arg) {
  if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    line += arg;
    return;
  }
  line += L'"';
  size_t backslashes = 0;
  for (const wchar_t c : arg) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    if (c == L'"') line.append(2 * backslashes + 1, L'\\');
    else line.append(backslashes, L'\\');
    backslashes = 0;
    line += c;
  }
  line.append(2 * backslashes, L'\\');
  line += L'"';
}

std::wstring CommandLine(const std::string& program, const std::vector<std::string>& args) {
  std::wstring line;
  AppendQuoted(line, Utf16Path(program));
  for (const auto& arg : args) {
    line += L' ';
    AppendQuoted(line, Utf16Path(arg));
  }
  return line;
}

// Windows compares variable names without regard to case.
std::wstring Upper(std::wstring name) {
  std::transform(name.begin(), name.end(), name.begin(), [](wchar_t c) { return static_cast<wchar_t>(towupper(c)); });
  return name;
}

// This process's environment with the requested changes, as a block of
// NAME=VALUE strings sorted by name, each ended by a zero and the block by another.
std::wstring EnvironmentBlock(const std::map<std::string, std::string>& changes) {
  std::map<std::wstring, std::wstring> vars;  // by upper-case name: the name as written, and NAME=VALUE
  if (wchar_t* strings = GetEnvironmentStringsW()) {
    for (const wchar_t* e = strings; *e != L'\0'; e += wcslen(e) + 1) {
      const std::wstring entry = e;
      // Entries such as "=C:=C:\dir" (the current folder of each drive) start with '='.
      const size_t eq = entry.find(L'=', 1);
      if (eq != std::wstring::npos) vars[Upper(entry.substr(0, eq))] = entry;
    }
    FreeEnvironmentStringsW(strings);
  }
  for (const auto& [name, value] : changes) {
    const std::wstring wide = Utf16Path(name);
    if (value.empty()) vars.erase(Upper(wide));
    else vars[Upper(wide)] = wide + L"=" + Utf16Path(value);
  }
  std::wstring block;
  for (const auto& [key, entry] : vars) {
    block += entry;
    block += L'\0';
  }
  block += L'\0';
  return block;
}

// Reads a pipe to its end.
void Drain(HANDLE pipe, std::string* sink) {
  char buffer[65536];
  DWORD n = 0;
  while (ReadFile(pipe, buffer, sizeof(buffer), &n, nullptr) && n > 0) sink->append(buffer, n);
}

// A pipe whose one end (the child's) is inherited.
bool MakePipe(HANDLE* read, HANDLE* write, bool childReads) {
  SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  if (!CreatePipe(read, write, &inherit, 0)) return false;
  SetHandleInformation(childReads ? *write : *read, HANDLE_FLAG_INHERIT, 0);
  return true;
}

void CloseAll(std::initializer_list<HANDLE> handles) {
  for (HANDLE h : handles) {
    if (h != nullptr && h != INVALID_HANDLE_VALUE) CloseHandle(h);
  }
}

}  // namespace

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env, const std::optional<std::string>& input) {
  ProcessResult result;
  HANDLE outRead = nullptr, outWrite = nullptr, errRead = nullptr, errWrite = nullptr;
  HANDLE inRead = nullptr, inWrite = nullptr;
  if (!MakePipe(&outRead, &outWrite, false)) return result;
  if (!MakePipe(&errRead, &errWrite, false)) {
    CloseAll({outRead, outWrite});
    return result;
  }
  bool haveInput = false;
  if (input) {
    haveInput = MakePipe(&inRead, &inWrite, true);
  } else {
    // No input: the null device, as /dev/null on POSIX.
    SECURITY_ATTRIBUTES inherit{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    inRead = CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, nullptr);
  }
  if (inRead == nullptr || inRead == INVALID_HANDLE_VALUE) {
    CloseAll({outRead, outWrite, errRead, errWrite, inWrite});
    return result;
  }

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = inRead;
  startup.hStdOutput = outWrite;
  startup.hStdError = errWrite;
  std::wstring commandLine = CommandLine(program, args);
  std::wstring environment = EnvironmentBlock(env);
  std::wstring application = Utf16Path(program);
  std::replace(application.begin(), application.end(), L'/', L'\\');
  PROCESS_INFORMATION process{};
  const BOOL started = CreateProcessW(application.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                                      CREATE_UNICODE_ENVIRONMENT | CREATE_NO_WINDOW, environment.data(), nullptr,
                                      &startup, &process);
  const DWORD startError = GetLastError();
  // The child holds its own copies of its ends: the pipes end when it does.
  CloseAll({outWrite, errWrite, inRead});
  if (!started) {
    CloseAll({outRead, errRead, inWrite});
    result.err = "cannot run " + program + ": error " + std::to_string(startError);
    return result;
  }
  CloseHandle(process.hThread);

  std::thread outReader(Drain, outRead, &result.out);
  std::thread errReader(Drain, errRead, &result.err);
  if (haveInput) {
    // Fed here; a child that stops reading breaks the pipe, which ends the feeding.
    for (size_t fed = 0; fed < input->size();) {
      DWORD n = 0;
      const DWORD chunk = static_cast<DWORD>(std::min<size_t>(input->size() - fed, 1 << 20));
      if (!WriteFile(inWrite, input->data() + fed, chunk, &n, nullptr) || n == 0) break;
      fed += n;
    }
    CloseHandle(inWrite);
  }
  outReader.join();
  errReader.join();
  CloseAll({outRead, errRead});
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD code = 0;
  if (GetExitCodeProcess(process.hProcess, &code)) result.exitCode = static_cast<int>(code);
  CloseHandle(process.hProcess);
  return result;
}

}  // namespace kxtest
