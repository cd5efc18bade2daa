#include "testing/run/Terminal.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <utility>

#include "testing/host/HostFiles.h"

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience(60);
// The bytes that end a terminal escape sequence that begins with ESC [.
constexpr const char* kFinals = "@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~";

// Removes bytes from the front of `bytes` and returns the text that a screen shows for them, without escape sequences.
// An incomplete escape sequence stays in `bytes`.
std::string takeShown(std::string* bytes) {
  std::string shown;
  size_t at = 0;
  while (at < bytes->size()) {
    const char c = (*bytes)[at];
    size_t length = 1;
    if (c == '\x1b') {
      // ESC [ parameters letter, or ESC and one character.
      const bool isLong = at + 1 < bytes->size() && (*bytes)[at + 1] == '[';
      const size_t last = isLong ? bytes->find_first_of(kFinals, at + 2) : at + 1;
      if (last >= bytes->size()) break;
      length = last + 1 - at;
    } else if (c != '\r' && c != '\a') {
      shown += c;
    }
    at += length;
  }
  bytes->erase(0, at);
  return shown;
}

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

bool become(uid_t uid) { return ::setgroups(0, nullptr) == 0 && ::setgid(uid) == 0 && ::setuid(uid) == 0; }

}  // namespace

Terminal::Terminal(const std::vector<std::string>& words, const Start& start) {
  const std::vector<char*> arguments = pointersTo(words);
  const std::vector<char*> environment = pointersTo(start.environment);
  winsize size{};
  size.ws_row = 50;
  size.ws_col = 200;
  child_ = ::forkpty(&screen_, nullptr, nullptr, &size);
  if (child_ != 0) return;
  if ((start.uid && !become(*start.uid)) || ::chdir(start.folder.c_str()) != 0) ::_exit(126);
  ::execve(arguments[0], arguments.data(), environment.data());
  ::_exit(126);
}

Terminal::~Terminal() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  hangUp();
}

void Terminal::type(const std::string& text) const {
  EXPECT_EQ(::write(screen_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string Terminal::upTo(const std::string& text) {
  const auto deadline = steady_clock::now() + kPatience;
  size_t at = std::string::npos;
  while ((at = shown_.find(text)) == std::string::npos) {
    if (steady_clock::now() > deadline || !readMore()) {
      ADD_FAILURE() << "the screen never shows " << host::quoted(text) << " but " << host::quoted(shown_);
      return std::exchange(shown_, "");
    }
  }
  std::string before = shown_.substr(0, at);
  shown_.erase(0, at + text.size());
  return before;
}

std::string Terminal::rest() {
  while (readMore()) {
  }
  return std::exchange(shown_, "");
}

int Terminal::exitStatus() {
  int status = 0;
  ::waitpid(std::exchange(child_, -1), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Terminal::hangUp() {
  if (screen_ >= 0) ::close(std::exchange(screen_, -1));
}

bool Terminal::readMore() {
  if (screen_ < 0) return false;
  pollfd screen{screen_, POLLIN, 0};
  char bytes[4096];
  if (::poll(&screen, 1, static_cast<int>(std::chrono::milliseconds(kPatience).count())) <= 0) {
    hangUp();
    return false;
  }
  const ssize_t got = ::read(screen_, bytes, sizeof bytes);
  if (got <= 0) return false;
  bytes_.append(bytes, static_cast<size_t>(got));
  shown_ += takeShown(&bytes_);
  return true;
}
