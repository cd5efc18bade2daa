#include "log/front/LogMessage.h"

#include <algorithm>
#include <cstring>

namespace BasicLog {
namespace {

using Length = std::uint32_t;  // a text of 4 GiB or more is cut

std::string_view textAt(const char* bytes) {
  Length length = 0;
  std::memcpy(&length, bytes, sizeof length);
  return {bytes + sizeof length, length};
}

const char* endOf(std::string_view text) { return text.data() + text.size(); }

}  // namespace

LogMessage& LogMessage::operator=(const LogMessage& other) {
  if (this == &other) return *this;
  level = other.level;
  isFromEmitter = other.isFromEmitter;
  created = other.created;
  size_ = 0;
  makeRoom(other.size_);
  std::memcpy(outside_ ? outside_.get() : inside_.data(), other.bytes(), other.size_);
  size_ = other.size_;
  return *this;
}

void LogMessage::begin(std::string_view file, std::string_view function, std::string_view logger,
                       std::string_view text) {
  size_ = 0;
  for (const std::string_view fixed : {file, function, logger, text}) put(fixed);  // in the order of Place
}

void LogMessage::add(std::string_view key, std::string_view value) {
  put(key);
  put(value);
}

std::vector<LogParameter> LogMessage::parameters() const {
  std::vector<LogParameter> all;
  Reader reader(*this);
  (void)reader.next();  // skips the text
  while (!reader.isAtEnd()) {
    const std::string_view key = reader.next();
    all.push_back({key, reader.next()});
  }
  return all;
}

std::string_view LogMessage::fixedText(Place place) const {
  std::string_view found = textAt(bytes());
  for (int before = static_cast<int>(place); before > 0; --before) found = textAt(endOf(found));
  return found;
}

void LogMessage::put(std::string_view text) {
  const auto length = static_cast<Length>(std::min<std::size_t>(text.size(), UINT32_MAX));
  const std::size_t needed = size_ + sizeof length + length;
  if (needed > room_) makeRoom(needed);
  char* const to = (outside_ ? outside_.get() : inside_.data()) + size_;
  std::memcpy(to, &length, sizeof length);
  if (length != 0) std::memcpy(to + sizeof length, text.data(), length);
  size_ = needed;
}

void LogMessage::makeRoom(std::size_t needed) {
  if (needed <= room_) return;
  const std::size_t room = std::max(needed, 2 * room_);
  std::unique_ptr<char[]> larger(new char[room]);
  std::memcpy(larger.get(), bytes(), size_);
  outside_ = std::move(larger);
  room_ = room;
}

LogMessage::Reader::Reader(const LogMessage& message)
    : at_(message.text().data() - sizeof(Length)), end_(message.bytes() + message.size_) {}

std::string_view LogMessage::Reader::next() {
  const std::string_view text = textAt(at_);
  at_ = endOf(text);
  return text;
}

}  // namespace BasicLog
