#include "transport.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace pcfg::lsp {
namespace {

constexpr size_t kMaxHeaderBytes = 8192;
constexpr size_t kReadWhole = size_t{1} << 20;  // bodies this large are read past the buffer

// The value of Content-Length in a header block, or -1.
long long ContentLength(const std::string& headers) {
  size_t at = 0;
  while (at < headers.size()) {
    size_t end = headers.find("\r\n", at);
    if (end == std::string::npos) end = headers.size();
    const std::string line = headers.substr(at, end - at);
    at = end + 2;
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    if (strncasecmp(line.c_str(), "Content-Length", colon) != 0 || colon != 14) continue;
    const char* value = line.c_str() + colon + 1;
    while (*value == ' ' || *value == '\t') ++value;
    if (*value < '0' || *value > '9') return -1;
    char* stop = nullptr;
    errno = 0;
    const long long length = std::strtoll(value, &stop, 10);
    if (errno != 0 || length < 0) return -1;
    while (*stop == ' ' || *stop == '\t') ++stop;
    return *stop == '\0' ? length : -1;
  }
  return -1;
}

}  // namespace

bool MessageReader::Fill() {
  if (ended_) return false;
  if (at_ > 0 && at_ >= buffer_.size() / 2) {  // keep the buffer from growing with what is consumed
    buffer_.erase(0, at_);
    at_ = 0;
  }
  char chunk[65536];
  for (;;) {
    const ssize_t got = ::read(fd_, chunk, sizeof chunk);
    if (got > 0) {
      buffer_.append(chunk, static_cast<size_t>(got));
      return true;
    }
    if (got < 0 && errno == EINTR) continue;
    ended_ = true;
    return false;
  }
}

MessageReader::Result MessageReader::NextDelimited(std::string* body) {
  body->clear();
  for (;;) {
    size_t end = buffer_.find('\n', at_);
    while (end == std::string::npos) {
      if (!Fill()) {
        end = buffer_.size();
        break;
      }
      end = buffer_.find('\n', at_);
    }
    if (at_ >= buffer_.size())
      return body->find_first_not_of(" \t\r\n") == std::string::npos ? Result::kEnd : Result::kMessage;
    std::string line = buffer_.substr(at_, end - at_);
    at_ = std::min(end + 1, buffer_.size());
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line == "---") {
      if (body->find_first_not_of(" \t\r\n") != std::string::npos) return Result::kMessage;
      continue;
    }
    if (line.empty() || line[0] == '#') continue;
    if (body->size() + line.size() > kMaxMessageBytes) return Result::kTooLarge;
    *body += line;
    *body += '\n';
  }
}

MessageReader::Result MessageReader::Next(std::string* body) {
  if (style_ == Style::kDelimited) return NextDelimited(body);
  // The header block.
  size_t end;
  while ((end = buffer_.find("\r\n\r\n", at_)) == std::string::npos) {
    if (buffer_.size() - at_ > kMaxHeaderBytes) {
      at_ = buffer_.size();  // no header block ends in sight: drop what came
      return Result::kMalformed;
    }
    if (!Fill()) return Result::kEnd;
  }
  const long long length = ContentLength(buffer_.substr(at_, end - at_));
  at_ = end + 4;
  if (length < 0) return Result::kMalformed;
  if (static_cast<unsigned long long>(length) > kMaxMessageBytes) {
    unsigned long long left = static_cast<unsigned long long>(length);
    while (left > 0) {
      const size_t take = static_cast<size_t>(std::min<unsigned long long>(left, buffer_.size() - at_));
      at_ += take;
      left -= take;
      if (left > 0 && !Fill()) return Result::kEnd;
    }
    return Result::kTooLarge;
  }
  const size_t size = static_cast<size_t>(length);
  if (size >= kReadWhole) return ReadLargeBody(size, body);
  while (buffer_.size() - at_ < size)
    if (!Fill()) return Result::kEnd;
  body->assign(buffer_, at_, size);
  at_ += size;
  return Result::kMessage;
}

MessageReader::Result MessageReader::ReadLargeBody(size_t size, std::string* body) {
  // Straight into BODY (a document opened whole, say): the buffer never grows to hold it, so it has
  // no room to give back after, and the body is not copied out of it.
  const size_t buffered = std::min(size, buffer_.size() - at_);
  body->resize(size);
  std::memcpy(body->data(), buffer_.data() + at_, buffered);
  at_ += buffered;
  for (size_t done = buffered; done < size;) {
    const ssize_t got = ::read(fd_, body->data() + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ended_ = true;
      return Result::kEnd;
    }
    done += static_cast<size_t>(got);
  }
  return Result::kMessage;
}

bool WriteMessage(int fd, const std::string& body) {
  const std::string message = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  size_t done = 0;
  while (done < message.size()) {
    const ssize_t wrote = ::write(fd, message.data() + done, message.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) return false;
    done += static_cast<size_t>(wrote);
  }
  return true;
}

}  // namespace pcfg::lsp
