// A line on the terminal that tells that a long task is still at work.
#ifndef KVJPX_TOOLS_PROGRESS_H_
#define KVJPX_TOOLS_PROGRESS_H_

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace kvjpx_tool {

class Progress {
 public:
  // Shows "<task>: N s" on standard error from the first second on, if that is a terminal.
  explicit Progress(const std::string& task);
  // Wipes the line.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  void show();

  std::string task_;
  std::mutex mutex_;
  std::condition_variable is_over_changed_;
  bool is_over_ = false;
  std::thread thread_;
};

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_PROGRESS_H_
