// The progress line.
#include "progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "terminal.h"

namespace kvjpx_tool {

Progress::Progress(const std::string& task) : task_(text_for(STDERR_FILENO, task)) {
  if (isatty(STDERR_FILENO)) thread_ = std::thread(&Progress::show, this);
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_over_ = true;
  }
  is_over_changed_.notify_one();
  thread_.join();
}

void Progress::show() {
  std::unique_lock<std::mutex> lock(mutex_);
  int seconds = 0;
  while (!is_over_changed_.wait_for(lock, std::chrono::seconds(1), [this] { return is_over_; })) {
    std::fprintf(stderr, "\r%s: %d s", task_.c_str(), ++seconds);
  }
  if (seconds > 0) std::fputs("\r\033[K", stderr);
}

}  // namespace kvjpx_tool
