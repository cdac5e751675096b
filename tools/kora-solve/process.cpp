#include "kora-solve/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <thread>
#include <utility>

namespace kora::solve {

namespace {

constexpr std::size_t kChunk = std::size_t{64} << 10;

// Milliseconds for poll: -1 for no deadline, rounded up so that a wake-up
// never comes before the deadline and spins.
int poll_timeout(Deadline deadline) {
  if (deadline == Deadline::max()) return -1;
  auto left = deadline - Clock::now();
  if (left <= Clock::duration::zero()) return 0;
  auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<decltype(ms)>(ms, INT_MAX));
}

// Number of ready descriptors, 0 when the deadline passed first.
int poll_until(pollfd* fds, nfds_t count, Deadline deadline) {
  for (;;) {
    int n = ::poll(fds, count, poll_timeout(deadline));
    if (n >= 0) return n;
    if (errno != EINTR) return 0;
  }
}

bool readable(const pollfd& p) {
  return p.fd >= 0 && (p.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

void close_fd(int& fd) noexcept {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

// write(2) that reports a closed pipe as EPIPE without raising SIGPIPE: the
// signal is blocked in this thread for the call, and one that the call
// raised is consumed before the mask is restored.
ssize_t write_quietly(int fd, const char* data, std::size_t size) {
  sigset_t pipe_set;
  sigset_t old_mask;
  sigemptyset(&pipe_set);
  sigaddset(&pipe_set, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_set, &old_mask);
  sigset_t pending;
  sigpending(&pending);
  bool was_pending = sigismember(&pending, SIGPIPE) == 1;
  ssize_t n = ::write(fd, data, size);
  int saved = errno;
  if (n < 0 && errno == EPIPE && !was_pending) {
    timespec zero{};
    while (sigtimedwait(&pipe_set, nullptr, &zero) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
  errno = saved;
  return n;
}

void set_nonblocking(int fd) {
  int flags = ::fcntl(fd, F_GETFL);
  if (flags >= 0) ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

// Owns the spawn attributes and file actions for the duration of a spawn.
struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;

  SpawnSetup(int in, int out, int err) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, 0);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    posix_spawnattr_init(&attr);
    // Its own process group, so that a kill reaches what the child starts;
    // an empty signal mask and default dispositions, whatever ours are.
    sigset_t none;
    sigset_t defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int s : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&defaults, s);
    posix_spawnattr_setpgroup(&attr, 0);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(
        &attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
};

// Both ends of the three pipes until the spawn has taken the child's ends.
struct Pipes {
  int fds[3][2] = {{-1, -1}, {-1, -1}, {-1, -1}};

  Pipes() {
    for (auto& p : fds) {
      if (::pipe2(p, O_CLOEXEC) != 0) {
        int e = errno;
        close_all();
        throw SpawnError(std::string("cannot create a pipe: ") + std::strerror(e), e);
      }
    }
  }
  ~Pipes() { close_all(); }
  Pipes(const Pipes&) = delete;
  Pipes& operator=(const Pipes&) = delete;

  void close_all() noexcept {
    for (auto& p : fds) {
      close_fd(p[0]);
      close_fd(p[1]);
    }
  }
  // Hands our end over to the caller.
  int release(int which, int end) noexcept { return std::exchange(fds[which][end], -1); }
};

// The live children, for a signal handler: lock-free atomics only. A child
// that finds no free slot is simply not killed by the handlers.
constexpr std::size_t kRegistrySlots = 256;
std::atomic<pid_t> g_children[kRegistrySlots];

void register_child(pid_t pid) noexcept {
  for (auto& slot : g_children) {
    pid_t empty = 0;
    if (slot.compare_exchange_strong(empty, pid)) return;
  }
}

void unregister_child(pid_t pid) noexcept {
  for (auto& slot : g_children) {
    pid_t mine = pid;
    if (slot.compare_exchange_strong(mine, 0)) return;
  }
}

void kill_children_and_die(int signal_number) {
  for (auto& slot : g_children) {
    pid_t pid = slot.load();
    if (pid > 0) ::kill(-pid, SIGKILL);
  }
  // SA_RESETHAND restored the default action: the signal, delivered again
  // once this handler returns, ends the program as it would have.
  ::raise(signal_number);
}

}  // namespace

Deadline deadline_after(std::optional<double> seconds) {
  if (!seconds) return Deadline::max();
  // Beyond a few decades the arithmetic would overflow; it means "never".
  if (!(*seconds < 1e9)) return Deadline::max();
  auto span = std::chrono::duration<double>(std::max(*seconds, 0.0));
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(span);
}

void kill_children_on_termination() {
  static_assert(std::atomic<pid_t>::is_always_lock_free);
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction old {};
    if (::sigaction(s, nullptr, &old) != 0 || old.sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = kill_children_and_die;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;
    ::sigaction(s, &action, nullptr);
  }
}

bool SpawnError::missing() const noexcept {
  return error_ == ENOENT || error_ == EACCES || error_ == ENOTDIR;
}

std::string ExitStatus::describe() const {
  if (!signaled) return "exited with status " + std::to_string(code);
  const char* name = ::strsignal(code);
  return "was killed by signal " + std::to_string(code) +
         (name ? std::string(" (") + name + ")" : "");
}

Process::Process(const std::vector<std::string>& argv, Limits limits) : limits_(limits) {
  if (argv.empty() || argv[0].empty()) throw SpawnError("no program to start", EINVAL);
  Pipes pipes;
  SpawnSetup setup(pipes.fds[0][0], pipes.fds[1][1], pipes.fds[2][1]);
  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  pid_t child = -1;
  int e = ::posix_spawnp(&child, args[0], &setup.actions, &setup.attr, args.data(), environ);
  if (e != 0) {
    throw SpawnError("cannot start '" + argv[0] + "': " + std::strerror(e), e);
  }
  pid_ = child;
  register_child(child);
  in_ = pipes.release(0, 1);
  out_ = pipes.release(1, 0);
  err_ = pipes.release(2, 0);
  for (int fd : {in_, out_, err_}) set_nonblocking(fd);
}

Process::~Process() {
  kill();
  close_all();
}

void Process::close_all() noexcept {
  close_fd(in_);
  close_fd(out_);
  close_fd(err_);
}

void Process::close_input() noexcept {
  close_fd(in_);
}

void Process::drain_error() noexcept {
  char buf[kChunk];
  while (err_ >= 0) {
    ssize_t n = ::read(err_, buf, sizeof buf);
    if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
      close_fd(err_);
      return;
    }
    if (n < 0) {
      if (errno == EAGAIN) return;
      continue;
    }
    auto size = static_cast<std::size_t>(n);
    std::size_t room =
        limits_.max_error_output - std::min(limits_.max_error_output, error_output_.size());
    std::size_t kept = std::min(room, size);
    error_output_.append(buf, kept);
    error_dropped_ += size - kept;
  }
}

void Process::collect_error_output() {
  drain_error();
}

// One round of waiting: standard error is always drained; standard output
// is read into out (or the pending buffer) when want_output is set. Returns
// Ok after any progress, TimedOut when nothing happened before the deadline.
IoStatus Process::pump(Deadline deadline, bool want_output, std::string* out) {
  pollfd fds[3] = {{want_output ? out_ : -1, POLLIN, 0}, {err_, POLLIN, 0}, {in_, POLLOUT, 0}};
  nfds_t count = out == nullptr ? 3 : 2;  // a write also waits for its pipe
  if (poll_until(fds, count, deadline) == 0) return IoStatus::TimedOut;
  if (readable(fds[1])) drain_error();
  if (!readable(fds[0])) return IoStatus::Ok;
  char buf[kChunk];
  ssize_t n = ::read(out_, buf, sizeof buf);
  if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
    close_fd(out_);
    return IoStatus::Closed;
  }
  if (n < 0) return IoStatus::Ok;
  output_bytes_ += static_cast<std::size_t>(n);
  if (output_bytes_ > limits_.max_output) return IoStatus::Overflow;
  (out ? *out : pending_output_).append(buf, static_cast<std::size_t>(n));
  return IoStatus::Ok;
}

IoStatus Process::write(std::string_view data, Deadline deadline) {
  while (!data.empty()) {
    if (in_ < 0) return IoStatus::Closed;
    IoStatus s = pump(deadline, out_ >= 0, nullptr);
    if (s == IoStatus::TimedOut || s == IoStatus::Overflow) return s;
    ssize_t n = write_quietly(in_, data.data(), std::min(data.size(), kChunk));
    if (n > 0) {
      data.remove_prefix(static_cast<std::size_t>(n));
    } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
      close_fd(in_);
      return IoStatus::Closed;
    }
  }
  return IoStatus::Ok;
}

IoStatus Process::read(std::string& out, Deadline deadline) {
  if (!pending_output_.empty()) {
    out += pending_output_;
    pending_output_.clear();
    return IoStatus::Ok;
  }
  std::size_t before = out.size();
  while (out.size() == before) {
    if (out_ < 0) return IoStatus::Closed;
    IoStatus s = pump(deadline, true, &out);
    if (s != IoStatus::Ok) return s;
  }
  return IoStatus::Ok;
}

IoStatus Process::read_all(std::string& out, Deadline deadline) {
  for (;;) {
    IoStatus s = read(out, deadline);
    if (s == IoStatus::Closed) return IoStatus::Ok;
    if (s != IoStatus::Ok) return s;
  }
}

std::optional<ExitStatus> Process::wait(Deadline deadline) {
  if (status_) return status_;
  auto pause = std::chrono::microseconds(200);
  for (;;) {
    // WNOWAIT leaves the child a zombie, so its process group still exists
    // for reap() to kill whatever the child left behind.
    siginfo_t info{};
    int r = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
    if (r == 0 && info.si_pid == pid_) return reap();
    if (r != 0 && errno != EINTR) return reap();
    drain_error();
    if (Clock::now() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - Clock::now()));
    pause = std::min(pause * 2, std::chrono::microseconds(10000));
  }
}

ExitStatus Process::reap() noexcept {
  ::kill(-pid_, SIGKILL);
  unregister_child(pid_);
  int raw = 0;
  while (::waitpid(pid_, &raw, 0) < 0 && errno == EINTR) {
  }
  drain_error();
  ExitStatus s;
  s.signaled = WIFSIGNALED(raw);
  s.code = s.signaled ? WTERMSIG(raw) : WEXITSTATUS(raw);
  status_ = s;
  return s;
}

ExitStatus Process::kill() noexcept {
  if (status_) return *status_;
  close_input();
  return reap();
}

OutputBuffer::int_type OutputBuffer::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (status_ != IoStatus::Ok) return traits_type::eof();
  chunk_.clear();
  status_ = process_.read(chunk_, deadline_);
  if (status_ != IoStatus::Ok) return traits_type::eof();
  setg(chunk_.data(), chunk_.data(), chunk_.data() + chunk_.size());
  return traits_type::to_int_type(*gptr());
}

}  // namespace kora::solve
