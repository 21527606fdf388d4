// The file of --record. Front hands over each exchange; fixture/replay.cpp and the Python package read what
// is written here.
#include "stand/recording.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "stand/recording_lines.h"

namespace CryptStand {
namespace {

// A start line is much shorter, with a hundred key servers too.
constexpr std::size_t kMaxStartLine = 64U << 10U;
// What a client of this environment reads at most. More is not kept in memory for the recording's sake.
constexpr std::size_t kMaxStream = 64U << 20U;

std::string Because(const std::string& path) {
  return path + ": " + std::strerror(errno);
}

std::string ReadFirstLine(int file) {
  std::string text(kMaxStartLine, '\0');
  const ssize_t size = pread(file, text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return text.substr(0, text.find('\n'));
}

// Whether the program that wrote the file went down in the middle of a line.
bool EndsInsideLine(int file, off_t size) {
  char last = '\n';
  return size > 0 && pread(file, &last, 1, size - 1) == 1 && last != '\n';
}

// What was sent of a body that is a stream. Writes its line when the stream has ended, or is given up because
// the client is gone or wants no body.
class StreamedLine {
 public:
  StreamedLine(Recording& recording, Event event, HttpRequest request, HttpReply head)
      : recording_(recording),
        event_(std::move(event)),
        request_(std::move(request)),
        head_(std::move(head)) {}
  ~StreamedLine() {
    try {
      Write(/*isEnd=*/false);
    } catch (...) {
      // On allocation failure the line is missing; the server goes on.
    }
  }
  StreamedLine(const StreamedLine&) = delete;
  StreamedLine& operator=(const StreamedLine&) = delete;

  void Add(const std::string& chunk) {
    if (chunk.empty()) return Write(/*isEnd=*/true);
    const std::size_t left = kMaxStream - sent_.size();
    isWhole_ = isWhole_ && chunk.size() <= left;
    sent_.append(chunk, 0, left);
  }

 private:
  void Write(bool isEnd) {
    if (isWritten_) return;
    isWritten_ = true;
    recording_.Write(MakeExchangeLine(event_, request_, head_, {sent_, isWhole_ && isEnd}));
  }

  Recording& recording_;
  Event event_;
  HttpRequest request_;
  HttpReply head_;  // without a body
  std::string sent_;
  bool isWhole_ = true;
  bool isWritten_ = false;
};

}  // namespace

Recording::~Recording() {
  if (file_ >= 0) close(file_);
}

bool Recording::Open(const std::string& path, const std::string& startLine, std::string& error) {
  path_ = path;
  file_ = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, S_IRUSR | S_IWUSR);
  struct stat status = {};
  if (file_ < 0 || fstat(file_, &status) != 0) {
    error = Because(path);
    return false;
  }
  // Lines of two programs in one file would be exchanges of environments that know nothing of each other.
  if (S_ISREG(status.st_mode) && flock(file_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    error = path + " is being written by another process";
    return false;
  }
  if (!S_ISREG(status.st_mode) || (status.st_size > 0 && !IsStartLine(ReadFirstLine(file_)))) {
    error = path + " is neither empty nor a recording of version " + std::to_string(kRecordingVersion);
    return false;
  }
  // An empty file may have been made with another mode.
  const std::string begin = EndsInsideLine(file_, status.st_size) ? "\n" : "";
  if (fchmod(file_, S_IRUSR | S_IWUSR) != 0 || !Append(begin + startLine + "\n")) {
    error = Because(path);
    return false;
  }
  return true;
}

void Recording::Write(std::string line) {
  line += '\n';
  const std::lock_guard<std::mutex> lock(mutex_);
  if (hasFailed_ || Append(line)) return;
  hasFailed_ = true;
  std::cerr << "cryptstand: " << Because(path_) << "; the recording ends here\n" << std::flush;
}

bool Recording::Append(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = write(file_, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void Record(Recording& recording, const Event& event, const HttpRequest& request, HttpReply& reply) {
  if (!recording.IsOpen()) return;
  if (!reply.openBody) {
    recording.Write(MakeExchangeLine(event, request, reply, {reply.body, true}));
    return;
  }
  HttpReply head = reply;
  head.openBody = nullptr;
  auto line = std::make_shared<StreamedLine>(recording, event, request, std::move(head));
  reply.openBody = [line = std::move(line), open = std::move(reply.openBody)] {
    return [line, next = open()] {
      std::string chunk = next();
      line->Add(chunk);
      return chunk;
    };
  };
}

}  // namespace CryptStand
