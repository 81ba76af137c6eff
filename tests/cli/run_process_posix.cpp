// Runs a program and captures its output (see run_process.h): POSIX, with
// posix_spawn and one poll loop over the pipes.
#include "run_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

namespace kxtest {

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const std::map<std::string, std::string>& env, const std::optional<std::string>& input) {
  ProcessResult result;
  // A child that stops reading its input must not end this process.
  signal(SIGPIPE, SIG_IGN);
  int inPipe[2] = {-1, -1};
  if (input && pipe(inPipe) != 0) return result;
  if (input) fcntl(inPipe[1], F_SETFL, O_NONBLOCK);  // never block on a child busy writing
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0) return result;
  if (pipe(errPipe) != 0) {
    close(outPipe[0]);
    close(outPipe[1]);
    return result;
  }
  // The environment: ours with the requested changes.
  std::map<std::string, std::string> vars;
  for (char** e = environ; *e != nullptr; ++e) {
    const char* eq = std::strchr(*e, '=');
    if (eq != nullptr) vars[std::string(*e, static_cast<size_t>(eq - *e))] = eq + 1;
  }
  for (const auto& [name, value] : env) {
    if (value.empty()) vars.erase(name);
    else vars[name] = value;
  }
  std::vector<std::string> envStrings;
  for (const auto& [name, value] : vars) envStrings.push_back(name + "=" + value);
  std::vector<char*> envp;
  for (auto& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::vector<std::string> argStrings{program};
  argStrings.insert(argStrings.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& s : argStrings) argv.push_back(s.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
  posix_spawn_file_actions_addclose(&actions, outPipe[0]);
  posix_spawn_file_actions_addclose(&actions, errPipe[0]);
  if (input) {
    posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    posix_spawn_file_actions_addclose(&actions, inPipe[1]);
  } else {
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  }
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  close(outPipe[1]);
  close(errPipe[1]);
  if (input) close(inPipe[0]);
  if (spawned != 0) {
    if (input) close(inPipe[1]);
    close(outPipe[0]);
    close(errPipe[0]);
    result.err = std::string("cannot run ") + program + ": " + std::strerror(spawned);
    return result;
  }
  // Drain both pipes together, and feed the input, so that no pipe can fill up
  // and stall the child.
  pollfd fds[3] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}, {input ? inPipe[1] : -1, POLLOUT, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  size_t fed = 0;
  if (input && input->empty()) {
    close(inPipe[1]);
    fds[2].fd = -1;
  }
  int open = 2;
  char buffer[65536];
  while (open > 0) {
    if (poll(fds, 3, -1) < 0) break;
    if (fds[2].fd >= 0 && fds[2].revents != 0) {
      const ssize_t n = (fds[2].revents & POLLOUT) ? write(fds[2].fd, input->data() + fed, input->size() - fed) : -1;
      if (n > 0) fed += static_cast<size_t>(n);
      if (n < 0 && errno == EAGAIN) continue;
      if (n <= 0 || fed == input->size()) {
        close(fds[2].fd);
        fds[2].fd = -1;
      }
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
      if (n > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(n));
      } else {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  if (fds[2].fd >= 0) close(fds[2].fd);
  int status = 0;
  waitpid(pid, &status, 0);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  else if (WIFSIGNALED(status)) result.exitCode = 128 + WTERMSIG(status);
  return result;
}

}  // namespace kxtest
