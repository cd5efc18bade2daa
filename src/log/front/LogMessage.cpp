#include "log/front/LogMessage.h"

#include <algorithm>
#include <cstring>

namespace BasicLog {
namespace {

// A text follows its length: one byte, or longMark and four bytes.
using LongLength = std::uint32_t;  // a text of 4 GiB or more is cut
constexpr unsigned char longMark = 0xFF;

constexpr std::size_t roomForParameters = 64;

std::size_t sizeWithLength(std::string_view text) {
  return text.size() + (text.size() < longMark ? 1 : 1 + sizeof(LongLength));
}

std::string_view textAt(const char* bytes) {
  const auto first = static_cast<unsigned char>(*bytes++);
  if (first != longMark) return {bytes, first};
  LongLength length = 0;
  std::memcpy(&length, bytes, sizeof length);
  return {bytes + sizeof length, length};
}

const char* endOf(std::string_view text) { return text.data() + text.size(); }

}  // namespace

std::unique_ptr<LogMessage> LogMessage::make(std::string_view file, std::string_view function, std::string_view logger,
                                             std::string_view text) {
  std::size_t room = roomForParameters;
  for (const std::string_view fixed : {file, function, logger, text}) room += sizeWithLength(fixed);
  std::unique_ptr<LogMessage> message(new (::operator new(sizeof(LogMessage) + room)) LogMessage(room));
  message->begin(file, function, logger, text);
  return message;
}

LogMessage& LogMessage::operator=(const LogMessage& other) {
  if (this == &other) return *this;
  level = other.level;
  isFromEmitter = other.isFromEmitter;
  created = other.created;
  makeRoom(other.size_);
  std::memcpy(bytes(), other.bytes(), other.size_);
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

const char* LogMessage::addressOf(Place place) const {
  const char* at = bytes();
  for (int before = static_cast<int>(place); before != 0; --before) at = endOf(textAt(at));
  return at;
}

std::string_view LogMessage::fixedText(Place place) const { return textAt(addressOf(place)); }

void LogMessage::put(std::string_view text) {
  text = text.substr(0, UINT32_MAX);
  const std::size_t needed = size_ + sizeWithLength(text);
  makeRoom(needed);
  char* to = bytes() + size_;
  if (text.size() < longMark) {
    *to++ = static_cast<char>(text.size());
  } else {
    const auto length = static_cast<LongLength>(text.size());
    *to++ = static_cast<char>(longMark);
    std::memcpy(to, &length, sizeof length);
    to += sizeof length;
  }
  text.copy(to, text.size());
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
    : at_(message.addressOf(Place::text)), end_(message.bytes() + message.size_) {}

std::string_view LogMessage::Reader::next() {
  const std::string_view text = textAt(at_);
  at_ = endOf(text);
  return text;
}

}  // namespace BasicLog
