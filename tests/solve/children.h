#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace kora::solve::testing {

// The fields of /proc/PID/stat after the command name: state, then ppid.
// Read with plain system calls: a process that ends between the open and the
// read makes the read fail with ESRCH, which a stream would throw.
inline bool read_stat(pid_t pid, char& state, pid_t& parent) {
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buffer[1024];
  const ssize_t n = ::read(fd, buffer, sizeof buffer);
  ::close(fd);
  if (n <= 0) return false;
  const std::string text(buffer, static_cast<std::size_t>(n));
  auto close = text.rfind(')');
  if (close == std::string::npos || close + 4 >= text.size()) return false;
  state = text[close + 2];
  parent = static_cast<pid_t>(std::stol(text.substr(close + 4)));
  return true;
}

// The processes (zombies included) whose parent is this test.
inline std::vector<pid_t> children_of_self() {
  std::vector<pid_t> found;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    char state = 0;
    pid_t parent = 0;
    auto pid = static_cast<pid_t>(std::stol(name));
    if (read_stat(pid, state, parent) && parent == ::getpid()) found.push_back(pid);
  }
  return found;
}

// Whether pid is gone or a zombie that nobody runs any more, waiting up to
// a few seconds for a process killed by someone else to be reaped.
inline bool gone(pid_t pid) {
  for (int i = 0; i < 500; ++i) {
    char state = 0;
    pid_t parent = 0;
    if (!read_stat(pid, state, parent) || state == 'Z' || state == 'X') return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Whether pid was one of our children and has been reaped: no zombie left.
inline bool reaped(pid_t pid) {
  return ::waitpid(pid, nullptr, WNOHANG) < 0 && errno == ECHILD && ::kill(pid, 0) < 0 &&
         errno == ESRCH;
}

// Whether an executable program is on the PATH (a solver is installed).
inline bool on_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string_view dirs = path ? path : "";
  while (!dirs.empty()) {
    auto colon = dirs.find(':');
    std::filesystem::path dir(std::string(dirs.substr(0, colon)));
    if (::access((dir / program).c_str(), X_OK) == 0) return true;
    dirs = colon == std::string_view::npos ? std::string_view() : dirs.substr(colon + 1);
  }
  return false;
}

}  // namespace kora::solve::testing
