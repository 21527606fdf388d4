#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "stand/event_log.h"
#include "stand/http.h"

namespace CryptStand {

/// The file of --record: one line of JSON for each start of the program and for each exchange, complete, with
/// all secrets of the environment. Safe for any number of threads.
///
/// Each line is written with one call, so that whoever kills the program finds whole lines; the last one may
/// be incomplete if the system went down. Appended to, never truncated.
class Recording {
 public:
  Recording() = default;
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  /// Opens the file, or makes it with mode 0600, and writes `startLine`. False with the reason in `error`:
  /// also for a file that has other contents than a recording. Called once, before any other thread uses it.
  bool Open(const std::string& path, const std::string& startLine, std::string& error);
  bool IsOpen() const { return file_ >= 0; }

  /// Appends a line. After a failure, which is reported on standard error, nothing more is written: what
  /// follows an incomplete line could not be read.
  void Write(std::string line);

 private:
  bool Append(std::string_view bytes);

  std::mutex mutex_;
  std::string path_;
  int file_ = -1;
  bool hasFailed_ = false;  // guarded by mutex_
};

/// Records an exchange. If the body of the reply is a stream, the line is written when the stream ends, with
/// as much as was sent; `reply` then refers to `recording`. Nothing happens unless that is open.
void Record(Recording& recording, const Event& event, const HttpRequest& request, HttpReply& reply);

}  // namespace CryptStand
